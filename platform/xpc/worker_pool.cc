#include "platform/xpc/worker_pool.h"

#include <thread>
#include <vector>

namespace platform {

void WorkerPool::run(const std::function<bool()>& turn) {
  std::vector<std::thread> threads;
  for (std::size_t i = 0; i < handlers_; ++i) threads.emplace_back(&WorkerPool::work, this, std::cref(turn));
  work(turn);
  for (std::thread& thread : threads) thread.join();
}

void WorkerPool::submit(std::function<void()> job) {
  std::lock_guard lock(mutex_);
  jobs_.push_back(std::move(job));
}

void WorkerPool::work(const std::function<bool()>& turn) {
  std::unique_lock lock(mutex_);
  for (;;) {
    changed_.wait(lock, [this] { return stopping_ || jobCanStartLocked() || !leading_; });
    if (stopping_) return;
    // Jobs first: a thread back from its turn runs what the turn brought.
    if (jobCanStartLocked()) {
      std::function<void()> job = std::move(jobs_.front());
      jobs_.pop_front();
      ++running_;
      // One waiting thread is needed to lead, or to start the next job.
      if (!leading_ || jobCanStartLocked()) changed_.notify_one();
      lock.unlock();
      job();
      lock.lock();
      --running_;
      continue;
    }
    // Nobody leads: this thread does, turn after turn, until a turn brings a job.
    leading_ = true;
    lock.unlock();
    const bool more = turn();
    lock.lock();
    leading_ = false;
    if (!more) {
      stopping_ = true;
      jobs_.clear();
      changed_.notify_all();
      return;
    }
  }
}

}  // namespace platform
