// Named serial queues and the process-wide queue "com.larkspan.main", on which
// connection events are delivered (on a worker thread, never the main thread).
#pragma once

#include "platform/dispatch/serial_queue.h"

// Creates the process-wide queue, replacing any made before. Runs once before
// main as a load-time initializer; nothing needs to call it.
void LKSQueueInit();

// The process-wide queue "com.larkspan.main"; null if LKSQueueInit has not run.
platform::QueueRef LKSQueueMain();

// A new serial queue named `label` with the default target. The caller owns it.
platform::QueueRef LKSQueueContextCreate(const char* label);

// A new serial queue named `label` whose items run on `target`. The caller owns it.
platform::QueueRef LKSQueueCreate(const char* label, platform::QueueRef target);
