#include "support/queue.h"

namespace {

// Set before main and never destroyed: connection events may still arrive on
// a worker thread while the process exits.
platform::QueueRef* _mainQueue = nullptr;

}  // namespace

// Registered here, beside the queue it makes, so that static linking keeps it.
__attribute__((constructor)) void LKSQueueInit() {
  platform::QueueRef queue = LKSQueueContextCreate("com.larkspan.main");
  if (!_mainQueue) _mainQueue = new platform::QueueRef;
  *_mainQueue = std::move(queue);
}

platform::QueueRef LKSQueueMain() { return _mainQueue ? *_mainQueue : nullptr; }

platform::QueueRef LKSQueueContextCreate(const char* label) { return LKSQueueCreate(label, nullptr); }

platform::QueueRef LKSQueueCreate(const char* label, platform::QueueRef target) {
  return platform::SerialQueue::create(label ? label : "", std::move(target));
}
