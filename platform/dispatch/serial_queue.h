// platform/dispatch stands in for Grand Central Dispatch: serial queues and
// process-exit sources (process_exit_source.h). Left out: concurrent and global
// queues, qualities of service, groups, semaphores, suspending a queue, and
// sources of any other kind.
//
// Named serial queues: work items run one at a time, in submission order.
// A queue with a target runs its items on the target, so they are serialized
// with everything else submitted there. Worker threads start lazily, on the
// first asynchronous submission, and never keep the process from exiting.
#pragma once

#include <functional>
#include <memory>
#include <string>

namespace platform {

class SerialQueue {
 public:
  // A new serial queue named `label`; with a target, its items run on `target`.
  static std::shared_ptr<SerialQueue> create(std::string label,
                                             std::shared_ptr<SerialQueue> target = nullptr);
  ~SerialQueue();
  SerialQueue(const SerialQueue&) = delete;
  SerialQueue& operator=(const SerialQueue&) = delete;

  // The name given at creation.
  const std::string& label() const { return label_; }

  // Runs `work` after every item submitted before it and before any item
  // submitted after it; returns once it ran. It may run on the calling thread.
  // Calling it from an item of the same queue deadlocks, as on the platform.
  void sync(const std::function<void()>& work);

  // Queues `work` to run later on a worker thread, never on the caller's stack.
  // Items still queued when the queue is released run all the same.
  void async(std::function<void()> work);

 private:
  struct Executor;
  SerialQueue(std::string label, std::shared_ptr<SerialQueue> target);

  std::string label_;
  std::shared_ptr<SerialQueue> target_;  // when set, every item runs there
  std::shared_ptr<Executor> executor_;   // only for a queue without target
};

using QueueRef = std::shared_ptr<SerialQueue>;

}  // namespace platform
