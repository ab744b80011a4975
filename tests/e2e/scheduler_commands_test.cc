// The commands that talk to the scheduler through the built tool, for what
// only a whole run shows: the root stop ending the process with what was
// printed before it kept, an answer read from the process's own standard
// input, and the log file of a run that finds no service. The handlers
// themselves are tested in the test process (tests/cli).
#include "harness/dev_scheduler.h"
#include "harness/scheduler_runs.h"

namespace testing_support {
namespace {

const std::string kOffer = "Quillhaven 5.3.0 (230) is available. ";
const std::string kUpdated = "Quillhaven has been updated.\n";

class SchedulerCommands : public SchedulerTest {};

TEST_F(SchedulerCommands, WhatOnlyAWholeRunShows) {
  expectRuns(scheduler(), runTool, {
      {{"updates", "check", "-i"}, kUser, kOffer + "Updating now...\n", kRefusal, 1, {26}},
      {{"updates", "check"}, kRoot, kOffer + "Would you like to update now? (y/n)\n" + kUpdated, "", 0, {26, 27}, {}, "\ny\n"},
  }, [this] { scheduler().setAvailableUpdate("5.3.0", 230); });

  ASSERT_TRUE(scheduler().stop());
  expectRuns(scheduler(), runTool, {{{"info"}, kUser,
               "Could not send message (5), the service is not available (com.larkspan.quillhaven.scheduler).\n", "", 1,
               {}}});
  const std::string log = readFile(std::string(Sandbox::kUserHome) + "/Library/Logs/Quillhaven/ctl.log").value_or("");
  EXPECT_NE(log.find("] Connection became invalid with server.\n"), std::string::npos) << log;
}

}  // namespace
}  // namespace testing_support
