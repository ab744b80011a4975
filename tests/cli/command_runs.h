// Command handlers run in this process against the development scheduler
// serving in it (harness/in_process_scheduler.h), so that they are tested by
// every contributor, root or not. What only a whole run of the tool shows
// stays with the end-to-end tests.
#pragma once

#include <gtest/gtest.h>

#include "harness/command_in_process.h"
#include "harness/in_process_scheduler.h"
#include "harness/saved_environment.h"
#include "harness/scheduler_runs.h"

namespace testing_support {

class CommandRuns : public ::testing::Test {
 protected:
  CommandRuns() { ::setenv("HOME", home_.path().c_str(), 1); }

  // Runs each in this process (see testing_support::expectRuns).
  void expectRuns(const std::vector<ToolRun>& runs, const std::function<void()>& beforeEach = {}) {
    testing_support::expectRuns(scheduler_, runCommandInProcess, runs, beforeEach);
  }

  const SavedEnvironment environment_{"HOME"};
  TempDir home_;
  InProcessScheduler scheduler_;
};

}  // namespace testing_support
