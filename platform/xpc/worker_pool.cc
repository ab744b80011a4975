#include "platform/xpc/worker_pool.h"

#include <algorithm>

namespace platform {

WorkerPool::WorkerPool(std::size_t threads) {
  for (std::size_t i = 0; i < std::max<std::size_t>(threads, 1); ++i) threads_.emplace_back(&WorkerPool::work, this);
}

WorkerPool::~WorkerPool() {
  {
    std::lock_guard lock(mutex_);
    stopping_ = true;
    jobs_.clear();
  }
  available_.notify_all();
  for (std::thread& thread : threads_) thread.join();
}

void WorkerPool::submit(std::function<void()> job) {
  {
    std::lock_guard lock(mutex_);
    jobs_.push_back(std::move(job));
  }
  available_.notify_one();
}

void WorkerPool::work() {
  for (;;) {
    std::function<void()> job;
    {
      std::unique_lock lock(mutex_);
      available_.wait(lock, [this] { return stopping_ || !jobs_.empty(); });
      if (stopping_) return;
      job = std::move(jobs_.front());
      jobs_.pop_front();
    }
    job();
  }
}

}  // namespace platform
