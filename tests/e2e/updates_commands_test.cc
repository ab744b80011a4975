// The updates and dry-run commands through the built tool against the
// development scheduler: what is sent, what is printed and where, the answer
// typed at the update prompt, and the root refusals.
#include <memory>

#include "errors/lks_error.h"
#include "harness/dev_scheduler.h"
#include "harness/end_to_end.h"
#include "messaging/helper_messages.h"

namespace testing_support {
namespace {

using platform::Value;

constexpr const char* kRefusal = "This command requires root privileges.\n";
constexpr const char* kQuestion = "Quillhaven 5.3.0 (230) is available. Would you like to update now? (y/n)\n";
constexpr const char* kUpdatingNow = "Quillhaven 5.3.0 (230) is available. Updating now...\n";
constexpr const char* kUpdated = "Quillhaven has been updated.\n";

Value enabled(bool on) { return Value::dictionary({{"Enabled", Value::boolean(on)}}); }

class UpdatesCommands : public EndToEndTest {
 protected:
  void SetUp() override {
    EndToEndTest::SetUp();
    if (IsSkipped()) return;
    scheduler_ = std::make_unique<DevScheduler>();
  }
  void TearDown() override {
    scheduler_.reset();
    EndToEndTest::TearDown();
  }

  DevScheduler& scheduler() { return *scheduler_; }

  // The messages received, in order.
  std::vector<std::int64_t> messages() const {
    std::vector<std::int64_t> out;
    for (const RecordedRequest& request : scheduler_->requests()) out.push_back(request.message.value_or(-1));
    return out;
  }

  // The payload of the one request received.
  Value onlyPayload() const {
    const std::vector<RecordedRequest> requests = scheduler_->requests();
    EXPECT_EQ(requests.size(), 1u);
    return requests.empty() ? Value() : requests.front().payload;
  }

  static RunOptions typing(const std::string& input, bool asUser = false) {
    RunOptions options;
    options.input = input;
    options.asUser = asUser;
    return options;
  }

  void offerUpdate() { scheduler_->setAvailableUpdate("5.3.0", 230); }

 private:
  std::unique_ptr<DevScheduler> scheduler_;
};

// Settings: enabled, mode, feed and the unlisted words.

TEST_F(UpdatesCommands, EnabledReadsTheSwitchForEveryUser) {
  scheduler().setSetting("UpdatesEnabled", Value::boolean(false));
  RunResult run = runTool({"updates", "enabled"}, asUser());
  EXPECT_EQ(run.out, "no\n");
  EXPECT_EQ(run.exitStatus, 0);
  scheduler().setSetting("UpdatesEnabled", Value::boolean(true));
  run = runTool({"updates", "enabled"});
  EXPECT_EQ(run.out, "yes\n");
  EXPECT_EQ(run.exitStatus, 0);
  EXPECT_EQ(messages(), (std::vector<std::int64_t>{QHVHelperMessageGetUpdatesEnabled,
                                                   QHVHelperMessageGetUpdatesEnabled}));
}

TEST_F(UpdatesCommands, EnabledWithoutTheKeyReadsNo) {
  scheduler().setFault(QHVHelperMessageGetUpdatesEnabled, SchedulerFault::replyPayload(Value::dictionary({})));
  const RunResult run = runTool({"updates", "enabled"});
  EXPECT_EQ(run.out, "no\n");
  EXPECT_EQ(run.exitStatus, 0);
}

TEST_F(UpdatesCommands, EnabledWithAValueSetsItByTheTruthTest) {
  const struct {
    const char* value;
    bool on;
  } cases[] = {{"no", false}, {"yes", true}, {"1", true}, {"off", false}, {"", false}};
  for (const auto& c : cases) {
    scheduler().clearRequests();
    const RunResult run = runTool({"updates", "enabled", c.value, "ignored"});
    EXPECT_EQ(run.out, "") << c.value;
    EXPECT_EQ(run.exitStatus, 0) << c.value;
    EXPECT_EQ(onlyPayload(), enabled(c.on)) << c.value;
    EXPECT_EQ(messages(), std::vector<std::int64_t>{QHVHelperMessageSetUpdatesEnabled});
  }
}

TEST_F(UpdatesCommands, EnableAndDisableIgnoreWhatFollows) {
  EXPECT_EQ(runTool({"updates", "enable", "extra"}).exitStatus, 0);
  EXPECT_EQ(onlyPayload(), enabled(true));
  scheduler().clearRequests();
  EXPECT_EQ(runTool({"updates", "disable"}).exitStatus, 0);
  EXPECT_EQ(onlyPayload(), enabled(false));
}

TEST_F(UpdatesCommands, OrdinaryUsersCannotChangeTheSettings) {
  const std::vector<std::vector<std::string>> commands = {
      {"updates", "enabled", "no"}, {"updates", "enable"},          {"updates", "disable"},
      {"updates", "mode", "beta"},  {"updates", "set-feed", "test"}, {"dry-run", "yes"},
  };
  for (const auto& command : commands) {
    const RunResult run = runTool(command, asUser());
    EXPECT_EQ(run.out, "") << command[1];
    EXPECT_EQ(run.err, kRefusal) << command[1];
    EXPECT_EQ(run.exitStatus, 1) << command[1];
  }
  EXPECT_EQ(messages(), std::vector<std::int64_t>{}) << "nothing was sent";
}

TEST_F(UpdatesCommands, ModeAndFeedAreReadAsText) {
  scheduler().setSetting("UpdatesMode", Value::string("beta"));
  scheduler().setSetting("UpdatesFeed", Value::string("test"));
  RunResult run = runTool({"updates", "mode"}, asUser());
  EXPECT_EQ(run.out, "beta\n");
  EXPECT_EQ(run.exitStatus, 0);
  run = runTool({"updates", "feed"}, asUser());
  EXPECT_EQ(run.out, "test\n");
  EXPECT_EQ(run.exitStatus, 0);
  EXPECT_EQ(messages(), (std::vector<std::int64_t>{QHVHelperMessageGetUpdatesMode, QHVHelperMessageGetUpdatesFeed}));
}

TEST_F(UpdatesCommands, ModeRepliesOfOtherShapes) {
  // Absent: an empty line; a number: its decimal text.
  scheduler().setFault(QHVHelperMessageGetUpdatesMode, SchedulerFault::replyPayload(Value::dictionary({})));
  RunResult run = runTool({"updates", "mode"});
  EXPECT_EQ(run.out, "\n");
  EXPECT_EQ(run.exitStatus, 0);
  scheduler().setFault(QHVHelperMessageGetUpdatesFeed,
                       SchedulerFault::replyPayload(Value::dictionary({{"Feed", Value::integer(7)}})));
  run = runTool({"updates", "feed"});
  EXPECT_EQ(run.out, "7\n");
  EXPECT_EQ(run.exitStatus, 0);
}

TEST_F(UpdatesCommands, ModeAndFeedAreSetByTheirOwnWordsAndTheUnlistedOnes) {
  const struct {
    std::vector<std::string> command;
    std::int64_t message;
    const char* key;
  } cases[] = {
      {{"updates", "mode", "beta"}, QHVHelperMessageSetUpdatesMode, "Mode"},
      {{"updates", "set-mode", "std", "ignored"}, QHVHelperMessageSetUpdatesMode, "Mode"},
      {{"updates", "feed", "std"}, QHVHelperMessageSetUpdatesFeed, "Feed"},
      {{"updates", "set-feed", "test"}, QHVHelperMessageSetUpdatesFeed, "Feed"},
  };
  for (const auto& c : cases) {
    scheduler().clearRequests();
    const RunResult run = runTool(c.command);
    EXPECT_EQ(run.out, "") << c.command[2];
    EXPECT_EQ(run.exitStatus, 0) << c.command[2];
    EXPECT_EQ(messages(), std::vector<std::int64_t>{c.message});
    EXPECT_EQ(onlyPayload(), Value::dictionary({{c.key, Value::string(c.command[2])}}));
  }
  EXPECT_EQ(scheduler().settings().get("UpdatesFeed"), Value::string("test"));
}

TEST_F(UpdatesCommands, UnknownChannelsAreRefusedWithoutSending) {
  // Matched exactly: case, blanks and prefixes count.
  for (const char* value : {"Beta", "STD", " std", "tes", "stable", ""}) {
    RunResult run = runTool({"updates", "mode", value});
    EXPECT_EQ(run.out, "Unknown mode: '" + std::string(value) + "'.\n");
    EXPECT_EQ(run.exitStatus, 1);
    run = runTool({"updates", "set-feed", value}, asUser());
    EXPECT_EQ(run.out, "Unknown feed: '" + std::string(value) + "'.\n");
    EXPECT_EQ(run.err, "");
    EXPECT_EQ(run.exitStatus, 1);
  }
  EXPECT_EQ(messages(), std::vector<std::int64_t>{});
}

TEST_F(UpdatesCommands, MissingOrUnknownSubCommandPrintsTheUsage) {
  const RunResult usage = runTool({"updates"});
  EXPECT_TRUE(usage.out.starts_with("usage: ")) << usage.out;
  EXPECT_EQ(usage.exitStatus, 1);
  for (const char* word : {"Enabled", "bogus", "checks", ""}) {
    const RunResult run = runTool({"updates", word});
    EXPECT_EQ(run.out, usage.out) << word;
    EXPECT_EQ(run.exitStatus, 1) << word;
  }
  EXPECT_EQ(messages(), std::vector<std::int64_t>{});
}

TEST_F(UpdatesCommands, FailedReadIsPrintedAndFails) {
  ASSERT_TRUE(scheduler().stop());
  const RunResult run = runTool({"updates", "enabled"});
  EXPECT_EQ(run.exitStatus, 1);
  EXPECT_NE(run.out, "") << "the service's absence is reported at default level, on standard output";
}

// The update check.

TEST_F(UpdatesCommands, CheckWhenUpToDate) {
  const RunResult run = runTool({"updates", "check"}, asUser());
  EXPECT_EQ(run.out, "You are already running the latest version.\n");
  EXPECT_EQ(run.err, "");
  EXPECT_EQ(run.exitStatus, 0);
  EXPECT_EQ(messages(), std::vector<std::int64_t>{QHVHelperMessageCheckForUpdates});
}

TEST_F(UpdatesCommands, CheckFailuresArePrintedByTheirLevel) {
  const platform::ErrorRef fetch = platform::Error::make(LKSUpdaterErrorDomain, LKSUpdaterErrorFetchInfo);
  scheduler().setFault(QHVHelperMessageCheckForUpdates, SchedulerFault::replyError(fetch));
  RunResult run = runTool({"updates", "check", "-i"});
  EXPECT_EQ(run.out, "");
  EXPECT_EQ(run.err, LKSError::localizedDescriptionForError(fetch) + "\n");
  EXPECT_EQ(run.exitStatus, 1);
  const platform::ErrorRef notNow = platform::Error::make(LKSUpdaterErrorDomain, LKSUpdaterErrorNotNow);
  scheduler().setFault(QHVHelperMessageCheckForUpdates, SchedulerFault::replyError(notNow));
  run = runTool({"updates", "check"});
  EXPECT_EQ(run.out, LKSError::localizedDescriptionForError(notNow) + "\n");
  EXPECT_EQ(run.err, "");
  EXPECT_EQ(run.exitStatus, 1) << "only the up-to-date answer counts as success";
  EXPECT_EQ(messages(), (std::vector<std::int64_t>{QHVHelperMessageCheckForUpdates, QHVHelperMessageCheckForUpdates}));
}

TEST_F(UpdatesCommands, AnswersToTheQuestion) {
  // What was typed, whether it installs, the exit status.
  const struct {
    const char* input;
    bool installs;
    int status;
  } cases[] = {
      {"y\n", true, 0},
      {"Y\n", true, 0},
      {"yes\n", true, 0},
      {"true\n", true, 0},
      {" 7\n", true, 0},
      {"y", true, 0},                         // no line end before the end of input
      {"\ny\n", true, 0},                     // Return, then an answer
      {"yyyyyyyyyyyyyyyyyyyyyyyy\n", true, 0},  // only 15 characters are read
      {"n\n", false, 0},
      {"no\n", false, 0},
      {"0\n", false, 0},
      {"maybe\n", false, 0},
      {"\nn\n", false, 0},
      {" \ny\n", false, 0},                   // a blank is not an empty line
      {"nnnnnnnnnnnnnnnyes\n", false, 0},     // the answer is the first 15 characters
      {"", false, 1},                         // end of input at once
      {"\n", false, 1},                       // Return, then end of input
      {"\n\n", false, 1},
  };
  for (const auto& c : cases) {
    offerUpdate();
    scheduler().clearRequests();
    const RunResult run = runTool({"updates", "check"}, typing(c.input));
    EXPECT_EQ(run.out, std::string(kQuestion) + (c.installs ? kUpdated : "")) << c.input;
    EXPECT_EQ(run.err, "") << c.input;
    EXPECT_EQ(run.exitStatus, c.status) << c.input;
    const std::vector<std::int64_t> expected =
        c.installs ? std::vector<std::int64_t>{QHVHelperMessageCheckForUpdates, QHVHelperMessageInstallUpdate}
                   : std::vector<std::int64_t>{QHVHelperMessageCheckForUpdates};
    EXPECT_EQ(messages(), expected) << c.input;
  }
}

TEST_F(UpdatesCommands, InstallSwitchInstallsWithoutAsking) {
  offerUpdate();
  const RunResult run = runTool({"updates", "check", "-i"}, typing("n\n"));
  EXPECT_EQ(run.out, std::string(kUpdatingNow) + kUpdated);
  EXPECT_EQ(run.exitStatus, 0);
  EXPECT_EQ(messages(), (std::vector<std::int64_t>{QHVHelperMessageCheckForUpdates, QHVHelperMessageInstallUpdate}));
}

TEST_F(UpdatesCommands, OnlyExactlyDashIIsTheInstallSwitch) {
  for (const char* other : {"-x", "-I", "-i ", "--install"}) {
    offerUpdate();
    const RunResult run = runTool({"updates", "check", other}, typing("n\n"));
    EXPECT_EQ(run.out, kQuestion) << other;
    EXPECT_EQ(run.exitStatus, 0) << other;
  }
}

TEST_F(UpdatesCommands, OfferLineTakesWhatTheServiceSent) {
  scheduler().setFault(QHVHelperMessageCheckForUpdates,
                       SchedulerFault::replyPayload(Value::dictionary(
                           {{"HumanVersion", Value::string("6.0 beta 2")}, {"Version", Value::integer(-5)}})));
  RunResult run = runTool({"updates", "check"}, typing("n\n"));
  EXPECT_EQ(run.out, "Quillhaven 6.0 beta 2 (-5) is available. Would you like to update now? (y/n)\n");
  EXPECT_EQ(run.exitStatus, 0);
}

TEST_F(UpdatesCommands, LosingTheServiceDuringTheInstallationIsSuccess) {
  offerUpdate();
  scheduler().setFault(QHVHelperMessageInstallUpdate, SchedulerFault::closeConnection());
  const RunResult run = runTool({"updates", "check", "-i"});
  EXPECT_EQ(run.out, std::string(kUpdatingNow) + kUpdated);
  EXPECT_EQ(run.err, "");
  EXPECT_EQ(run.exitStatus, 0);
}

TEST_F(UpdatesCommands, OtherInstallationFailuresGoToStandardError) {
  // Whatever the level: the handler prints the installation's failures itself.
  for (const platform::ErrorRef& failure :
       {platform::Error::make(QHVErrorDomain, QHVErrorBackupRunning),
        platform::Error::make(LKSUpdaterErrorDomain, LKSUpdaterErrorInstall)}) {
    offerUpdate();
    scheduler().setFault(QHVHelperMessageInstallUpdate, SchedulerFault::replyError(failure));
    const RunResult run = runTool({"updates", "check"}, typing("y\n"));
    EXPECT_EQ(run.out, kQuestion);
    EXPECT_EQ(run.err, LKSError::localizedDescriptionForError(failure) + "\n");
    EXPECT_EQ(run.exitStatus, 1);
  }
}

TEST_F(UpdatesCommands, OrdinaryUsersSeeTheOfferThenTheRefusal) {
  for (const std::vector<std::string>& command :
       {std::vector<std::string>{"updates", "check", "-i"}, std::vector<std::string>{"updates", "check"}}) {
    offerUpdate();
    scheduler().clearRequests();
    const RunResult run = runTool(command, typing("yes\n", /*asUser=*/true));
    EXPECT_EQ(run.out, command.size() == 3 ? kUpdatingNow : kQuestion);
    EXPECT_EQ(run.err, kRefusal);
    EXPECT_EQ(run.exitStatus, 1);
    EXPECT_EQ(messages(), std::vector<std::int64_t>{QHVHelperMessageCheckForUpdates}) << "the installation was not sent";
  }
}

TEST_F(UpdatesCommands, OrdinaryUsersMayDecline) {
  offerUpdate();
  const RunResult run = runTool({"updates", "check"}, typing("n\n", /*asUser=*/true));
  EXPECT_EQ(run.out, kQuestion);
  EXPECT_EQ(run.err, "");
  EXPECT_EQ(run.exitStatus, 0);
}

// dry-run.

TEST_F(UpdatesCommands, DryRunReadsAndSetsTheSwitch) {
  scheduler().setSetting("DryRun", Value::boolean(true));
  RunResult run = runTool({"dry-run"}, asUser());
  EXPECT_EQ(run.out, "yes\n");
  EXPECT_EQ(run.exitStatus, 0);
  scheduler().clearRequests();
  run = runTool({"dry-run", "1", "ignored"});
  EXPECT_EQ(run.out, "");
  EXPECT_EQ(run.exitStatus, 0);
  EXPECT_EQ(onlyPayload(), enabled(true));
  scheduler().clearRequests();
  run = runTool({"dry-run", "nope"});
  EXPECT_EQ(run.exitStatus, 0);
  EXPECT_EQ(onlyPayload(), enabled(false));
  run = runTool({"dry-run"});
  EXPECT_EQ(run.out, "no\n");
}

TEST_F(UpdatesCommands, DryRunWithoutTheServiceFails) {
  ASSERT_TRUE(scheduler().stop());
  for (const std::vector<std::string>& command :
       {std::vector<std::string>{"dry-run"}, std::vector<std::string>{"dry-run", "no"}}) {
    const RunResult run = runTool(command);
    EXPECT_EQ(run.exitStatus, 1) << command.size();
    EXPECT_NE(run.out, "") << command.size();
  }
}

}  // namespace
}  // namespace testing_support
