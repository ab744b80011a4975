#include "cli/dispatcher.h"

#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "authorization/authorization_manager.h"
#include "harness/captured_stdout.h"
#include "platform/user_ids.h"

namespace {

using testing_support::CapturedStdout;

// What the recording handler last received.
std::vector<std::string> received;
int calls = 0;

int recordingHandler(int argc, char** argv) {
  ++calls;
  received.assign(argv, argv + argc);
  return 42;
}

// The real table with every handler replaced by the recording one, so that the
// walk below runs every row without running any command.
std::array<CommandEntry, kCommandCount> recordingTable() {
  std::array<CommandEntry, kCommandCount> rows = commands;
  for (CommandEntry& row : rows) {
    if (!row.is_separator()) row.handler = recordingHandler;
  }
  return rows;
}

struct Outcome {
  int status;
  std::string out;
};

class Dispatcher : public ::testing::Test {
 protected:
  void SetUp() override {
    calls = 0;
    received.clear();
    LKSAuthorizationManager::sharedManager().setAllowsUserInteraction(true);
  }
  void TearDown() override { platform::UserIds::setForTesting(nullptr); }

  Outcome run(std::span<const CommandEntry> rows, std::vector<std::string> args, uid_t real,
              uid_t effective) {
    platform::FixedUserIds ids(real, effective);
    platform::UserIds::setForTesting(&ids);
    std::vector<char*> argv;
    for (std::string& arg : args) argv.push_back(arg.data());
    argv.push_back(nullptr);
    CapturedStdout captured;
    const int status = dispatch_command(rows, static_cast<int>(args.size()), argv.data());
    platform::UserIds::setForTesting(nullptr);
    return {status, captured.text()};
  }
};

TEST(CommandTable, EveryCommandHasAHandlerAndNoSeparatorHasOne) {
  for (const CommandEntry& row : commands) {
    EXPECT_EQ(row.handler == nullptr, row.is_separator()) << (row.name ? row.name : "separator");
  }
}

TEST_F(Dispatcher, LookupStopsAtTheFirstRowOfAName) {
  EXPECT_EQ(find_command(commands, "settings"), &commands[5]);
  EXPECT_EQ(find_command(commands, "backups"), &commands[10]);
  EXPECT_EQ(find_command(commands, "updates"), &commands[17]);
  EXPECT_EQ(find_command(commands, "_update"), &commands[28]);
  EXPECT_EQ(find_command(commands, "backups when-inactive"), nullptr);
  EXPECT_EQ(find_command(commands, "Version"), nullptr);
  EXPECT_EQ(find_command(commands, ""), nullptr);
}

TEST_F(Dispatcher, EveryRowRunsItsHandlerOrIsRefused) {
  const auto rows = recordingTable();
  for (const CommandEntry& row : commands) {
    if (row.is_separator()) continue;
    const CommandEntry& first = *find_command(commands, row.name);
    for (uid_t user : {uid_t{0}, uid_t{501}}) {
      calls = 0;
      const Outcome outcome = run(rows, {"qhvctl", row.name, "arg"}, user, user);
      if (first.requires_root && user != 0) {
        EXPECT_EQ(calls, 0) << row.name;
        EXPECT_EQ(outcome.out, "This command requires root privileges.\n") << row.name;
        EXPECT_EQ(outcome.status, 1) << row.name;
      } else {
        EXPECT_EQ(calls, 1) << row.name;
        EXPECT_EQ(received, (std::vector<std::string>{row.name, "arg"})) << row.name;
        EXPECT_EQ(outcome.out, "") << row.name;
        EXPECT_EQ(outcome.status, 42) << row.name;
      }
    }
  }
}

TEST_F(Dispatcher, TheRealUserDecidesNotTheEffectiveOne) {
  const auto rows = recordingTable();
  EXPECT_EQ(run(rows, {"qhvctl", "_update"}, 501, 0).status, 1);
  EXPECT_EQ(calls, 0);
  EXPECT_EQ(run(rows, {"qhvctl", "_update"}, 0, 501).status, 42);
  EXPECT_EQ(calls, 1);
}

TEST_F(Dispatcher, UsagePathsNeverRunAHandler) {
  const auto rows = recordingTable();
  for (const std::vector<std::string>& args : std::vector<std::vector<std::string>>{
           {"qhvctl"}, {"qhvctl", "-d"}, {"qhvctl", "-d", "version"}, {"qhvctl", "nothing"}}) {
    const Outcome outcome = run(rows, args, 0, 0);
    EXPECT_EQ(outcome.status, 1);
    EXPECT_TRUE(outcome.out.starts_with("usage: ")) << outcome.out;
  }
  EXPECT_EQ(calls, 0);
}

TEST_F(Dispatcher, InteractionIsTurnedOffBeforeAnyCommand) {
  const auto rows = recordingTable();
  run(rows, {"qhvctl"}, 0, 0);
  EXPECT_TRUE(LKSAuthorizationManager::sharedManager().allowsUserInteraction());
  run(rows, {"qhvctl", "unknown"}, 0, 0);
  EXPECT_FALSE(LKSAuthorizationManager::sharedManager().allowsUserInteraction());
}

}  // namespace
