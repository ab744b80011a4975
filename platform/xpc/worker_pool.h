// A fixed number of threads that run jobs in the order they were given, each
// on whichever thread is free first.
#pragma once

#include <condition_variable>
#include <cstddef>
#include <deque>
#include <functional>
#include <mutex>
#include <thread>
#include <vector>

namespace platform {

class WorkerPool {
 public:
  // Starts `threads` threads (at least one).
  explicit WorkerPool(std::size_t threads);
  // Lets the jobs that run finish, drops those that have not started, and
  // joins the threads.
  ~WorkerPool();
  WorkerPool(const WorkerPool&) = delete;
  WorkerPool& operator=(const WorkerPool&) = delete;

  // Queues `job` for the next free thread.
  void submit(std::function<void()> job);

 private:
  void work();

  std::mutex mutex_;  // guards jobs_ and stopping_
  std::condition_variable available_;
  std::deque<std::function<void()>> jobs_;
  bool stopping_ = false;
  std::vector<std::thread> threads_;
};

}  // namespace platform
