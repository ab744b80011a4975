// Serving the scheduler's mach service for one state directory.
#pragma once

#include <functional>

#include "platform/plist/value.h"
#include "scheduler/command_line.h"

namespace dev_scheduler {

// Serves until SIGINT or SIGTERM: makes the state directory when missing,
// takes its pid file, makes the default settings when there are none, lowers
// the descriptor limit when asked to, listens, calls `ready` once requests are
// answered, and answers them within the options' limits. When it returns, the
// socket and the pid file are gone. False with an error when it cannot start
// (another scheduler serves the directory, the service is served already, no
// permission) or its event loop could not work.
bool serve(const SchedulerOptions& options, const std::function<void()>& ready, platform::ErrorRef* error);

}  // namespace dev_scheduler
