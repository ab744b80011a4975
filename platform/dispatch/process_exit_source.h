// A process-exit dispatch source: reports, once, on a serial queue, that a
// process has ended. The process is pinned by a pidfd taken when the source is
// made, so an exit that happens before the source is armed is still reported.
#pragma once

#include <sys/types.h>

#include <functional>
#include <memory>

#include "platform/dispatch/serial_queue.h"

namespace platform {

class ProcessExitSource {
 public:
  // A source for the exit of process `pid` whose handler runs on `queue`; not
  // armed until resume(). Never null. When no pidfd can be had (descriptors
  // exhausted), the exit of a child of this process is still seen, by waiting
  // for it without reaping it; other processes then cannot be watched.
  static std::shared_ptr<ProcessExitSource> create(pid_t pid, QueueRef queue);
  ProcessExitSource(const ProcessExitSource&) = delete;
  ProcessExitSource& operator=(const ProcessExitSource&) = delete;

  // The work to run on the queue when the process has ended. Set it before resume().
  void setEventHandler(std::function<void()> handler);

  // Arms the source: once the process has ended, whether before or after this
  // call, the handler is submitted to the queue exactly once. Later calls do nothing.
  void resume();

  // Makes the sources created from now on do without a pidfd, as when no
  // descriptor can be had; false restores pidfds. For tests.
  static void refusePidfdsForTesting(bool refuse);

  // Stops delivery: a handler not yet run never runs, and it is released now
  // (a handler may cancel its own source while it runs). A watch still waiting
  // for the process ends when the process does.
  void cancel();

 private:
  struct State;
  explicit ProcessExitSource(std::shared_ptr<State> state) : state_(std::move(state)) {}
  std::shared_ptr<State> state_;
};

using ProcessExitSourceRef = std::shared_ptr<ProcessExitSource>;

}  // namespace platform
