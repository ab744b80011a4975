// Threads that take turns at an event loop and run the requests it brings.
// One thread at a time leads: it runs one turn of the loop, which may submit
// jobs. A thread whose turn brought a job runs it itself, so that a request
// reaches its handler on the thread that read it, and wakes the next free
// thread to lead meanwhile. At most `handlers` jobs run at once, so that one
// thread is always free to lead.
#pragma once

#include <condition_variable>
#include <cstddef>
#include <deque>
#include <functional>
#include <mutex>

namespace platform {

class WorkerPool {
 public:
  explicit WorkerPool(std::size_t handlers) : handlers_(handlers == 0 ? 1 : handlers) {}
  WorkerPool(const WorkerPool&) = delete;
  WorkerPool& operator=(const WorkerPool&) = delete;

  // Runs turns of `turn` on the calling thread and `handlers` more until one
  // returns false; then lets the jobs that run finish, drops those that have
  // not started, and returns once every thread has ended.
  void run(const std::function<bool()>& turn);

  // Queues `job` for the next free thread; called from within a turn.
  void submit(std::function<void()> job);

 private:
  void work(const std::function<bool()>& turn);
  bool jobCanStartLocked() const { return !jobs_.empty() && running_ < handlers_; }

  const std::size_t handlers_;
  std::mutex mutex_;  // guards everything below
  std::condition_variable changed_;
  std::deque<std::function<void()>> jobs_;
  std::size_t running_ = 0;  // jobs running
  bool leading_ = false;     // a thread runs a turn
  bool stopping_ = false;
};

}  // namespace platform
