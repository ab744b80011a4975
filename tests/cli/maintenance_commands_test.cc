// The maintenance commands' choices on older systems, run in this process with
// another system version installed and recording stand-ins at the system
// tools' paths (inside a sandbox). This machine's system is covered end to end.
#include "cli/maintenance_commands.h"

#include <gtest/gtest.h>

#include "harness/end_to_end.h"
#include "harness/installed.h"
#include "harness/standard_streams.h"
#include "harness/tool_stand_in.h"
#include "platform/foundation/process_info.h"

namespace testing_support {
namespace {

using Lines = std::vector<std::string>;

class MaintenanceByVersion : public EndToEndTest {};

TEST_F(MaintenanceByVersion, LogAndDebugLogsChooseTheirToolBySystem) {
  constexpr const char *kLog = "/usr/bin/log", *kSyslog = "/usr/bin/syslog", *kSubsystem = "com.larkspan.quillhaven";
  constexpr const char* kPredicate = "subsystem = 'com.larkspan.quillhaven'";
  const std::optional<platform::OperatingSystemVersion> kNoVersionQuery;
  ToolStandIns standIns;
  std::string whyNot;
  ASSERT_TRUE(standIns.install(kLog, "exit 0", &whyNot) && standIns.install(kSyslog, "exit 0", &whyNot)) << whyNot;
  const struct {
    Lines words;
    std::optional<platform::OperatingSystemVersion> system;
    Lines ran;  // the tool's argument vector, or what was printed instead
    int status;
  } cases[] = {
      {{"log"}, {{10, 12, 6}}, {kLog, "show", "--debug", "--info", "--predicate", kPredicate, "--style", "syslog"}, 0},
      {{"log", "--last", "2h"}, {{10, 13, 0}},
       {kLog, "show", "--debug", "--info", "--last", "2h", "--predicate", kPredicate, "--style", "compact"}, 0},
      {{"log", "--last"}, {{10, 11, 6}}, {kSyslog, "-k", "Facility", kSubsystem}, 0},
      {{"log", "--last", "30m"}, kNoVersionQuery, {kSyslog, "-k", "Facility", kSubsystem, "-k", "Time", "ge", "-30m"}, 0},
      {{"debug-logs", "yes"}, {{10, 12, 0}}, {kLog, "config", "--subsystem", kSubsystem, "--mode", "level:debug,persist:info"}, 0},
      {{"debug-logs", "yes"}, {{10, 11, 6}}, {"Requires macOS 10.12 or later."}, 1},
      {{"debug-logs"}, kNoVersionQuery, {"Missing yes/no argument.\n"}, 1},  // refused first, on every system
  };
  for (auto c : cases) {
    const platform::FixedProcessInfo system(c.system);
    const testing_support::Installed<platform::ProcessInfo> installed(&system);
    std::vector<char*> argv;
    for (std::string& word : c.words) argv.push_back(word.data());
    argv.push_back(nullptr);
    CapturedOutput captured;
    EXPECT_EQ((c.words[0] == "log" ? log_cmd : debug_logs_cmd)(static_cast<int>(argv.size() - 1), argv.data()), c.status);
    const bool toolRan = c.ran[0].starts_with("/");
    EXPECT_EQ(captured.text(), toolRan ? ToolStandIns::outputLine(c.ran[0]) + "\n" : c.ran[0]) << c.words.back();
    EXPECT_TRUE(!toolRan || ToolStandIns::arguments(c.ran[0]) == c.ran) << c.words.back();
  }
}

}  // namespace
}  // namespace testing_support
