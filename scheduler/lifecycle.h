// The scheduler's commands: serving in the foreground, starting in the
// background, stopping, and asking whether one serves.
#pragma once

#include "scheduler/command_line.h"

namespace dev_scheduler {

// Carries out `options.command` and returns the exit status: 0 on success, 1
// when it failed (the reason on standard error); `status` gives 3 when no
// scheduler serves the state directory.
int runSchedulerCommand(const SchedulerOptions& options);

}  // namespace dev_scheduler
