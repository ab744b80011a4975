// End-to-end tests of commands that talk to the scheduler: runs of the built
// tool against the development scheduler checked whole, for what it printed on
// which stream, its exit status, and what reached the scheduler.
#pragma once

#include "harness/dev_scheduler.h"
#include "harness/scheduler_runs.h"

namespace testing_support {

class ToolRunTest : public SchedulerTest {
 protected:
  // Runs the built tool for each (see testing_support::expectRuns).
  void expectRuns(const std::vector<ToolRun>& runs, const std::function<void()>& beforeEach = {}) {
    testing_support::expectRuns(scheduler(), runTool, runs, beforeEach);
  }
};

}  // namespace testing_support
