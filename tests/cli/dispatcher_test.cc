// The dispatcher on the real command table with every handler replaced by a
// recording one, so that every row is walked without running any command.
#include "cli/dispatcher.h"

#include <gtest/gtest.h>

#include "authorization/authorization_manager.h"
#include "cli/usage.h"
#include "harness/installed.h"
#include "harness/standard_streams.h"
#include "platform/foundation/program_name.h"
#include "platform/foundation/user_ids.h"

namespace {

std::vector<std::vector<std::string>> received;  // the arguments of each handler call

int recordingHandler(int argc, char** argv) {
  received.emplace_back(argv, argv + argc);
  return 42;
}

// The exit status and standard output of `args` run against `rows` by a user
// of the real and effective ids given.
std::pair<int, std::string> runTable(std::span<const CommandEntry> rows, std::vector<std::string> args, uid_t real,
                                     uid_t effective) {
  const platform::FixedUserIds ids(real, effective);
  const testing_support::Installed<platform::UserIds> acting(&ids);
  std::vector<char*> argv;
  for (std::string& arg : args) argv.push_back(arg.data());
  argv.push_back(nullptr);
  received.clear();
  testing_support::CapturedOutput captured;
  const int status = dispatch_command(rows, static_cast<int>(args.size()), argv.data());
  return {status, captured.text()};
}

// runTable against the real table with recording handlers.
std::pair<int, std::string> run(std::vector<std::string> args, uid_t real, uid_t effective) {
  std::array<CommandEntry, kCommandCount> rows = commands;
  for (CommandEntry& row : rows) row.handler = row.is_separator() ? nullptr : recordingHandler;
  return runTable(rows, std::move(args), real, effective);
}

std::string captureUsage() {
  testing_support::CapturedOutput captured;
  print_usage(false);
  return captured.text();
}

// The first row of a name decides: "settings" reads for everyone although
// "settings import" needs root. Only the real user id counts.
TEST(Dispatcher, EveryRowRunsItsHandlerOrIsRefusedByTheFirstRowOfItsName) {
  for (const CommandEntry& row : commands) {
    EXPECT_EQ(row.handler == nullptr, row.is_separator()) << (row.name ? row.name : "separator");
    if (row.is_separator()) continue;
    const CommandEntry* first = commands.data();
    while (!first->name || std::string_view(first->name) != row.name) ++first;
    for (const auto& [real, effective] : {std::pair<uid_t, uid_t>{0, 501}, {501, 0}}) {
      const auto [status, out] = run({"qhvctl", row.name, "arg"}, real, effective);
      const bool refused = first->requires_root && real != 0;
      EXPECT_EQ(out, refused ? "This command requires root privileges.\n" : "") << row.name;
      EXPECT_EQ(status, refused ? 1 : 42) << row.name;
      EXPECT_EQ(received, (refused ? decltype(received){} : decltype(received){{row.name, "arg"}})) << row.name;
    }
  }
}

TEST(Dispatcher, UsagePathsNeverRunAHandlerAndInteractionIsOffOnceACommandIsLookedUp) {
  const struct {
    std::vector<std::string> args;
    bool full, lookedUp;  // the full usage, with the hidden rows; the command word looked up
  } cases[] = {
      {{"qhvctl"}, false, false},
      {{"qhvctl", "-d"}, true, false},
      {{"qhvctl", "Version"}, false, true},         // case matters
  };
  for (const auto& c : cases) {
    LKSAuthorizationManager::sharedManager().setAllowsUserInteraction(true);
    const auto [status, out] = run(c.args, 0, 0);
    EXPECT_EQ(status, 1);
    EXPECT_TRUE(out.starts_with("usage: ") && received.empty()) << out;
    EXPECT_EQ(out.find("set-settings") != std::string::npos, c.full) << c.args.back();
    EXPECT_EQ(LKSAuthorizationManager::sharedManager().allowsUserInteraction(), !c.lookedUp) << c.args.back();
  }
}

// A handler that prints the usage on wrong arguments prints that of the table
// it was found in; the table in use before the run is back after it.
TEST(Dispatcher, AHandlersUsageIsThatOfTheTableItRunsFrom) {
  const std::string program = platform::getprogname();
  const std::string globalUsage = captureUsage();
  ASSERT_TRUE(globalUsage.starts_with("usage: " + program + " version")) << globalUsage;
  const auto printsUsage = [](int, char**) {
    print_usage(false);
    return 7;
  };
  const CommandEntry rows[] = {
      command("own", "[x]", "Prints the usage.", printsUsage, kNoFlags),
      separator(kNoFlags),
      command("other", nullptr, "Another row.", printsUsage, kRequiresRoot),
      command("unseen", nullptr, "Only in the full usage.", printsUsage, kHidden),
  };
  const auto [status, out] = runTable(rows, {"qhvctl", "own"}, 0, 0);
  EXPECT_EQ(status, 7);
  std::vector<std::string> lines;
  for (std::size_t start = 0, end; (end = out.find('\n', start)) != std::string::npos; start = end + 1) {
    lines.push_back(out.substr(start, end - start));
  }
  ASSERT_EQ(lines.size(), 3U) << out;
  EXPECT_TRUE(lines[0].starts_with("usage: " + program + " own [x] ")) << lines[0];
  EXPECT_EQ(lines[1], "");
  EXPECT_TRUE(lines[2].starts_with("       " + program + " other ") && lines[2].ends_with(" Must be run as root."))
      << lines[2];
  EXPECT_EQ(captureUsage(), globalUsage);
}

}  // namespace
