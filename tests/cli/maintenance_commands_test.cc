// The maintenance commands' choices by operating-system version, run in this
// process with another system version installed and recording stand-ins at
// the system tools' paths (inside a sandbox).
#include "cli/maintenance_commands.h"

#include <gtest/gtest.h>

#include <optional>

#include "harness/captured_stdout.h"
#include "harness/end_to_end.h"
#include "harness/tool_stand_in.h"
#include "platform/process_info.h"

namespace testing_support {
namespace {

using Lines = std::vector<std::string>;
using platform::OperatingSystemVersion;

constexpr const char* kLogTool = "/usr/bin/log";
constexpr const char* kSyslogTool = "/usr/bin/syslog";
constexpr const char* kPredicate = "subsystem = 'com.larkspan.quillhaven'";

class MaintenanceByVersion : public EndToEndTest {
 protected:
  void SetUp() override {
    EndToEndTest::SetUp();
    if (IsSkipped()) return;
    std::string whyNot;
    ASSERT_TRUE(standIns_.install(kLogTool, "exit 0", &whyNot)) << whyNot;
    ASSERT_TRUE(standIns_.install(kSyslogTool, "exit 0", &whyNot)) << whyNot;
  }
  void TearDown() override {
    platform::ProcessInfo::setForTesting(nullptr);
    EndToEndTest::TearDown();
  }

  // Runs `handler` with `words` as its arguments on a system of `version`
  // (nullopt: one without the version query); returns what it printed.
  std::string run(int (*handler)(int, char**), Lines words, std::optional<OperatingSystemVersion> version,
                  int* status) {
    const platform::FixedProcessInfo system(version);
    platform::ProcessInfo::setForTesting(&system);
    std::vector<char*> argv;
    for (std::string& word : words) argv.push_back(word.data());
    argv.push_back(nullptr);
    CapturedStdout captured;
    *status = handler(static_cast<int>(words.size()), argv.data());
    platform::ProcessInfo::setForTesting(nullptr);
    return captured.text();
  }

  static std::string out(const char* path) { return ToolStandIns::outputLine(path) + "\n"; }

 private:
  ToolStandIns standIns_;
};

constexpr OperatingSystemVersion k10_11{10, 11, 6};
constexpr OperatingSystemVersion k10_12{10, 12, 0};
constexpr OperatingSystemVersion k10_13{10, 13, 0};
constexpr OperatingSystemVersion k14{14, 2, 1};

TEST_F(MaintenanceByVersion, LogStyleIsCompactFrom10_13AndSyslogOn10_12) {
  const struct {
    OperatingSystemVersion version;
    const char* style;
  } cases[] = {{k10_12, "syslog"}, {{10, 12, 6}, "syslog"}, {k10_13, "compact"}, {k14, "compact"}};
  for (const auto& c : cases) {
    int status = -1;
    EXPECT_EQ(run(log_cmd, {"log"}, c.version, &status), out(kLogTool));
    EXPECT_EQ(status, 0);
    EXPECT_EQ(ToolStandIns::arguments(kLogTool),
              (Lines{kLogTool, "show", "--debug", "--info", "--predicate", kPredicate, "--style", c.style}))
        << c.style;
    EXPECT_EQ(run(log_cmd, {"log", "--last", "2h"}, c.version, &status), out(kLogTool));
    EXPECT_EQ(ToolStandIns::arguments(kLogTool), (Lines{kLogTool, "show", "--debug", "--info", "--last", "2h",
                                                       "--predicate", kPredicate, "--style", c.style}))
        << c.style;
  }
  EXPECT_FALSE(ToolStandIns::arguments(kSyslogTool));
}

TEST_F(MaintenanceByVersion, LogBefore10_12UsesTheLegacyTool) {
  // Also on the oldest system, which has no version query at all.
  for (const std::optional<OperatingSystemVersion>& version :
       {std::optional(k10_11), std::optional<OperatingSystemVersion>()}) {
    int status = -1;
    EXPECT_EQ(run(log_cmd, {"log"}, version, &status), out(kSyslogTool));
    EXPECT_EQ(status, 0);
    EXPECT_EQ(ToolStandIns::arguments(kSyslogTool), (Lines{kSyslogTool, "-k", "Facility", "com.larkspan.quillhaven"}));
    EXPECT_EQ(run(log_cmd, {"log", "--last", "30m"}, version, &status), out(kSyslogTool));
    EXPECT_EQ(ToolStandIns::arguments(kSyslogTool),
              (Lines{kSyslogTool, "-k", "Facility", "com.larkspan.quillhaven", "-k", "Time", "ge", "-30m"}));
    run(log_cmd, {"log", "--last"}, version, &status);
    EXPECT_EQ(ToolStandIns::arguments(kSyslogTool), (Lines{kSyslogTool, "-k", "Facility", "com.larkspan.quillhaven"}));
  }
  EXPECT_FALSE(ToolStandIns::arguments(kLogTool));
}

TEST_F(MaintenanceByVersion, DebugLogsNeeds10_12) {
  for (const std::optional<OperatingSystemVersion>& version :
       {std::optional(k10_11), std::optional<OperatingSystemVersion>()}) {
    int status = -1;
    EXPECT_EQ(run(debug_logs_cmd, {"debug-logs", "yes"}, version, &status), "Requires macOS 10.12 or later.");
    EXPECT_EQ(status, 1);
    // The missing value is refused first, on every system.
    EXPECT_EQ(run(debug_logs_cmd, {"debug-logs"}, version, &status), "Missing yes/no argument.\n");
    EXPECT_EQ(status, 1);
  }
  EXPECT_FALSE(ToolStandIns::arguments(kLogTool));
  int status = -1;
  EXPECT_EQ(run(debug_logs_cmd, {"debug-logs", "yes"}, k10_12, &status), out(kLogTool));
  EXPECT_EQ(status, 0);
  EXPECT_EQ(ToolStandIns::arguments(kLogTool),
            (Lines{kLogTool, "config", "--subsystem", "com.larkspan.quillhaven", "--mode", "level:debug,persist:info"}));
}

}  // namespace
}  // namespace testing_support
