// backups, snapshots, set-interval and set-when-inactive through the built tool
// and the development scheduler.
#include "errors/error_domains.h"
#include "scheduler_fixture.h"

namespace testing_support {
namespace {

using platform::Dictionary;
using platform::Value;

constexpr const char* kRefusal = "This command requires root privileges.\n";

Value enabled(bool on) { return Value::dictionary({{"Enabled", Value::boolean(on)}}); }

class BackupsCommands : public SchedulerTest {};

TEST_F(BackupsCommands, YesNoValuesFollowTheTruthTest) {
  struct Case {
    std::vector<std::string> args;
    QHVHelperMessage message;
    bool value;
  };
  const std::vector<Case> cases = {
      {{"backups", "enabled", "no"}, QHVHelperMessageSetBackupsEnabled, false},
      {{"backups", "enabled", "maybe"}, QHVHelperMessageSetBackupsEnabled, false},
      {{"backups", "enabled", "Yes"}, QHVHelperMessageSetBackupsEnabled, true},
      {{"backups", "enabled", "1", "ignored"}, QHVHelperMessageSetBackupsEnabled, true},
      {{"backups", "enabled", ""}, QHVHelperMessageSetBackupsEnabled, false},
      {{"snapshots", "enabled", " +007"}, QHVHelperMessageSetSnapshotsEnabled, true},
      {{"snapshots", "enabled", "off"}, QHVHelperMessageSetSnapshotsEnabled, false},
  };
  for (const Case& c : cases) {
    scheduler().clearRequests();
    const RunResult run = root(c.args);
    EXPECT_EQ(run.exitStatus, 0) << c.args[2];
    EXPECT_EQ(run.out, "");
    ASSERT_EQ(messages(), std::vector<std::int64_t>{c.message}) << c.args[2];
    EXPECT_EQ(onlyPayload(), enabled(c.value)) << c.args[2];
    EXPECT_EQ(scheduler().requests().front().authValid, true);
  }
}

TEST_F(BackupsCommands, ReadsPrintOneLineForEveryUser) {
  EXPECT_EQ(user({"backups", "enabled"}).out, "yes\n");
  EXPECT_EQ(user({"snapshots", "enabled"}).out, "yes\n");
  ASSERT_EQ(root({"backups", "enabled", "no"}).exitStatus, 0);
  EXPECT_EQ(user({"backups", "enabled"}).out, "no\n");
  EXPECT_EQ(user({"backups", "mode"}).out, "Interval\n");
  EXPECT_EQ(user({"backups", "when-inactive"}).out, "no\n");
  // The interval reply is printed whole, in the old-style text.
  const RunResult interval = user({"backups", "interval"});
  EXPECT_EQ(interval.out, "{\n    Hours = 1;\n}\n");
  EXPECT_EQ(interval.exitStatus, 0);
  EXPECT_EQ(root({"set-interval"}).out, interval.out);
  for (const RecordedRequest& request : scheduler().requests()) {
    if (request.message == QHVHelperMessageSetBackupsEnabled) continue;
    EXPECT_FALSE(request.payload);
    EXPECT_FALSE(request.authPresent);
  }
}

TEST_F(BackupsCommands, AReplyWithoutTheValueReadsAsNo) {
  scheduler().setFault(QHVHelperMessageGetBackupsEnabled, SchedulerFault::replyPayload(Value::dictionary({})));
  scheduler().setFault(QHVHelperMessageGetBackupsMode, SchedulerFault::replyPayload(Value::dictionary({})));
  RunResult run = root({"backups", "enabled"});
  EXPECT_EQ(run.out, "no\n");
  EXPECT_EQ(run.exitStatus, 0);
  run = root({"backups", "mode"});
  EXPECT_EQ(run.out, "\n");
  EXPECT_EQ(run.exitStatus, 0);
}

TEST_F(BackupsCommands, ModesAreMatchedExactly) {
  for (const char* mode : {"WhenInactive", "Interval", "CalendarIntervals"}) {
    scheduler().clearRequests();
    EXPECT_EQ(root({"backups", "mode", mode}).exitStatus, 0);
    EXPECT_EQ(onlyPayload(), Value::dictionary({{"Mode", Value::string(mode)}}));
  }
  scheduler().clearRequests();
  // Checked before anything else, for an ordinary user too.
  for (const RunOptions& options : {RunOptions{}, asUser()}) {
    const RunResult run = runTool({"backups", "mode", "interval"}, options);
    EXPECT_EQ(run.out, "Mode must be either \"WhenInactive\", \"Interval\" or \"CalendarIntervals\".\n");
    EXPECT_EQ(run.err, "");
    EXPECT_EQ(run.exitStatus, 1);
  }
  EXPECT_TRUE(messages().empty());
}

TEST_F(BackupsCommands, IntervalValues) {
  struct Case {
    std::vector<std::string> args;
    const char* key;
    std::uint64_t count;
  };
  const std::vector<Case> cases = {
      {{"backups", "interval", "90"}, "Minutes", 90},
      {{"backups", "interval", "90m"}, "Minutes", 90},
      {{"backups", "interval", "12H"}, "Minutes", 12},
      {{"backups", "interval", "5 h"}, "Minutes", 5},
      {{"backups", "interval", "5x"}, "Minutes", 5},
      {{"backups", "interval", "2h"}, "Hours", 2},
      {{"backups", "interval", " 5hours"}, "Hours", 5},
      {{"backups", "interval", "1d"}, "Days", 1},
      {{"set-interval", "3w"}, "Weeks", 3},
      // strtoul takes a sign and wraps it round.
      {{"set-interval", "-1"}, "Minutes", UINT64_MAX},
  };
  for (const Case& c : cases) {
    scheduler().clearRequests();
    const RunResult run = root(c.args);
    EXPECT_EQ(run.exitStatus, 0) << c.args.back();
    ASSERT_EQ(messages(), std::vector<std::int64_t>{QHVHelperMessageSetBackupsInterval}) << c.args.back();
    EXPECT_EQ(onlyPayload(), Value::dictionary({{c.key, Value::unsignedInteger(c.count)}})) << c.args.back();
  }
  scheduler().clearRequests();
  for (const char* value : {"0", "w", "0h", "abc", ""}) {
    const RunResult run = user({"backups", "interval", value});
    EXPECT_EQ(run.out, "Interval value must be equal or greater than one.\n") << value;
    EXPECT_EQ(run.exitStatus, 1);
  }
  EXPECT_TRUE(messages().empty());
}

TEST_F(BackupsCommands, WhenInactiveTakesOnlyYes) {
  for (const char* value : {"yes", "true"}) {
    scheduler().clearRequests();
    EXPECT_EQ(root({"backups", "when-inactive", value}).exitStatus, 0);
    EXPECT_EQ(messages(), std::vector<std::int64_t>{QHVHelperMessageSetBackupsWhenInactive});
    EXPECT_FALSE(onlyPayload());
  }
  scheduler().clearRequests();
  const RunResult run = user({"backups", "when-inactive", "no"});
  EXPECT_EQ(run.out, "Only accepted value is 'yes'\n");
  EXPECT_EQ(run.exitStatus, 1);
  EXPECT_TRUE(messages().empty());
  EXPECT_EQ(root({"set-when-inactive", "anything"}).exitStatus, 0);
  EXPECT_EQ(messages(), std::vector<std::int64_t>{QHVHelperMessageSetBackupsWhenInactive});
}

TEST_F(BackupsCommands, KickstartNeedsNoRightsAndReportsABusyScheduler) {
  RunResult run = user({"backups", "kickstart", "now"});
  EXPECT_EQ(run.out, "");
  EXPECT_EQ(run.exitStatus, 0);
  const std::vector<RecordedRequest> requests = scheduler().requests();
  ASSERT_EQ(requests.size(), 1u);
  EXPECT_EQ(requests[0].message, QHVHelperMessageKickstartBackup);
  EXPECT_FALSE(requests[0].authPresent);
  EXPECT_EQ(requests[0].uid, Sandbox::kUserId);
  // A backup is running now: the scheduler says so, and it is no error-level failure.
  run = user({"backups", "kickstart"});
  EXPECT_EQ(run.out, "A backup operation is currently running.\n");
  EXPECT_EQ(run.err, "");
  EXPECT_EQ(run.exitStatus, 1);
}

TEST_F(BackupsCommands, ChangesByOrdinaryUsersAreStoppedBeforeSending) {
  for (const std::vector<std::string>& args : std::vector<std::vector<std::string>>{
           {"backups", "enabled", "no"}, {"backups", "mode", "Interval"}, {"backups", "interval", "2h"},
           {"backups", "when-inactive", "yes"}, {"snapshots", "enabled", "yes"}}) {
    const RunResult run = user(args);
    EXPECT_EQ(run.out, "") << args[1];
    EXPECT_EQ(run.err, kRefusal) << args[1];
    EXPECT_EQ(run.exitStatus, 1) << args[1];
  }
  EXPECT_TRUE(messages().empty());
  // set-interval and set-when-inactive are the dispatcher's to refuse.
  EXPECT_EQ(user({"set-interval", "2h"}).out, kRefusal);
}

TEST_F(BackupsCommands, MissingOrUnknownSubCommandsPrintTheUsage) {
  const std::string usage = root({}).out;
  for (const std::vector<std::string>& args : std::vector<std::vector<std::string>>{
           {"backups"}, {"backups", "frobnicate"}, {"backups", "Enabled"}, {"snapshots"}, {"snapshots", "mode"}}) {
    const RunResult run = root(args);
    EXPECT_EQ(run.out, usage) << args.back();
    EXPECT_EQ(run.exitStatus, 1);
  }
  EXPECT_TRUE(messages().empty());
}

TEST_F(BackupsCommands, FailedRequestsAreReportedByLevel) {
  // Refused authorization is an error-level failure: standard error.
  scheduler().setFault(QHVHelperMessageSetBackupsEnabled,
                       SchedulerFault::replyError(platform::Error::make(
                           LKSMessagerErrorDomain, LKSMessagerErrorMissingAuthorization,
                           {{"message", Value::integer(QHVHelperMessageSetBackupsEnabled)}})));
  RunResult run = root({"backups", "enabled", "yes"});
  EXPECT_EQ(run.err, "Authorization data is missing for message (11).\n");
  EXPECT_EQ(run.out, "");
  EXPECT_EQ(run.exitStatus, 1);
  // Replies the tool cannot read.
  scheduler().setFault(QHVHelperMessageGetSnapshotsEnabled, SchedulerFault::unparsablePayload());
  run = root({"snapshots", "enabled"});
  EXPECT_TRUE(run.err.starts_with("Could not deserialize reply for message (16).")) << run.err;
  EXPECT_EQ(run.exitStatus, 1);
  scheduler().setFault(QHVHelperMessageGetBackupsMode, SchedulerFault::unarchivableError());
  run = root({"backups", "mode"});
  EXPECT_TRUE(run.err.starts_with("Could not unarchive reply error for message (8).")) << run.err;
  EXPECT_EQ(run.exitStatus, 1);
  // The scheduler going away mid-request is not an error-level failure.
  scheduler().setFault(QHVHelperMessageKickstartBackup, SchedulerFault::closeConnection());
  run = root({"backups", "kickstart"});
  EXPECT_EQ(run.out, "Could not send message (15), the service disappeared (crash?) "
                     "(com.larkspan.quillhaven.scheduler).\n");
  EXPECT_EQ(run.exitStatus, 1);
}

}  // namespace
}  // namespace testing_support
