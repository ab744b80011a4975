// The maintenance commands through the built tool, with recording stand-ins at
// the paths of the system tools: the exact argument vectors, the streams the
// tools inherit, the records in the log file and the exit statuses.
#include <sys/stat.h>

#include <algorithm>
#include <cstring>

#include "harness/end_to_end.h"
#include "harness/tool_stand_in.h"

namespace testing_support {
namespace {

constexpr const char* kRootLog = "/Library/Logs/Quillhaven/ctl.log";
constexpr const char* kScript = "/Library/Quillhaven/uninstall.sh";
constexpr const char* kLogTool = "/usr/bin/log";
constexpr const char* kPredicate = "subsystem = 'com.larkspan.quillhaven'";

using Lines = std::vector<std::string>;

class MaintenanceCommands : public EndToEndTest {
 protected:
  void install(const std::string& path, const std::string& behaviour, bool readsInput = false) {
    std::string whyNot;
    ASSERT_TRUE(standIns_.install(path, behaviour, &whyNot, readsInput)) << whyNot;
  }

  // The log file's lines, each without its date, category and process id.
  static Lines logMessages() {
    Lines messages;
    const std::string text = readFile(kRootLog).value_or("");
    std::size_t start = 0;
    while (start < text.size()) {
      const std::size_t end = text.find('\n', start);
      const std::string line = text.substr(start, end - start);
      const std::size_t tag = line.find("] ");
      messages.push_back(tag == std::string::npos ? line : line.substr(tag + 2));
      if (end == std::string::npos) break;
      start = end + 1;
    }
    return messages;
  }

  static bool logged(const std::string& message) {
    const Lines messages = logMessages();
    return std::find(messages.begin(), messages.end(), message) != messages.end();
  }

  static std::string out(const std::string& path) { return ToolStandIns::outputLine(path) + "\n"; }
  static std::string err(const std::string& path) { return ToolStandIns::errorLine(path) + "\n"; }

 private:
  ToolStandIns standIns_;
};

// uninstall and _uninstall.

TEST_F(MaintenanceCommands, UninstallRunsTheScriptWithTheShellAndReports) {
  install(kScript, "exit 0", /*readsInput=*/true);
  RunOptions options;
  options.input = "typed by the user\n";
  const RunResult run = runTool({"uninstall", "ignored", "words"}, options);
  EXPECT_EQ(run.out, out(kScript) + "Quillhaven has been uninstalled.\n");
  EXPECT_EQ(run.err, err(kScript));
  EXPECT_EQ(run.exitStatus, 0);
  EXPECT_EQ(ToolStandIns::commandLine(kScript), (Lines{"/bin/sh", kScript}));
  EXPECT_EQ(ToolStandIns::inputLine(kScript), "typed by the user");
  const Lines environment = ToolStandIns::environment(kScript).value_or(Lines{});
  EXPECT_NE(std::find(environment.begin(), environment.end(), "TZ=UTC"), environment.end())
      << "the tool's own environment";
  EXPECT_TRUE(logged("Quillhaven has been uninstalled."));
}

TEST_F(MaintenanceCommands, UninstallScriptFailureIsRecordedAndPrinted) {
  install(kScript, "exit 1");
  const RunResult run = runTool({"uninstall"});
  EXPECT_EQ(run.out, out(kScript) + "Could not uninstall. /bin/sh exited with status 1.\n");
  EXPECT_EQ(run.err, err(kScript));
  EXPECT_EQ(run.exitStatus, 1);
  // The spawner's error as it was made, then the command's record.
  EXPECT_EQ(logMessages(), (Lines{"/bin/sh exited with status 1.", "Could not uninstall. /bin/sh exited with status 1."}));
}

TEST_F(MaintenanceCommands, UninstallScriptKilledBySignal) {
  install(kScript, "kill -9 $$");
  const RunResult run = runTool({"uninstall"});
  const std::string description = std::string("/bin/sh received signal 9 (") + ::strsignal(9) + ").";
  EXPECT_EQ(run.out, out(kScript) + "Could not uninstall. " + description + "\n");
  EXPECT_EQ(run.exitStatus, 1);
  EXPECT_TRUE(logged("Could not uninstall. " + description));
}

TEST_F(MaintenanceCommands, UninstallWithoutTheScriptFails) {
  const RunResult run = runTool({"uninstall"});
  EXPECT_TRUE(run.out.starts_with("Could not uninstall. /bin/sh exited with status ")) << run.out;
  EXPECT_NE(run.err, "") << "the shell says why";
  EXPECT_EQ(run.exitStatus, 1);
}

TEST_F(MaintenanceCommands, UninstallStaysInTheCallersSession) {
  install(kScript, "exit 0");
  ASSERT_EQ(runTool({"uninstall"}).exitStatus, 0);
  const auto ids = ToolStandIns::sessionAndParent(kScript);
  ASSERT_TRUE(ids);
  EXPECT_NE(ids->first, ids->second) << "the tool leads no session of its own";
}

TEST_F(MaintenanceCommands, HiddenUninstallRunsFromASessionOfItsOwn) {
  install(kScript, "exit 0");
  const RunResult run = runTool({"_uninstall", "ignored"});
  EXPECT_EQ(run.out, out(kScript) + "Quillhaven has been uninstalled.\n");
  EXPECT_EQ(run.exitStatus, 0);
  EXPECT_EQ(ToolStandIns::commandLine(kScript), (Lines{"/bin/sh", kScript}));
  const auto ids = ToolStandIns::sessionAndParent(kScript);
  ASSERT_TRUE(ids);
  EXPECT_EQ(ids->first, ids->second) << "the tool leads the script's session";
}

TEST_F(MaintenanceCommands, HiddenUninstallFailureIsReportedTheSameWay) {
  install(kScript, "exit 2");
  const RunResult run = runTool({"_uninstall"});
  EXPECT_EQ(run.out, out(kScript) + "Could not uninstall. /bin/sh exited with status 2.\n");
  EXPECT_EQ(run.exitStatus, 1);
}

TEST_F(MaintenanceCommands, OrdinaryUsersCannotUninstall) {
  install(kScript, "exit 0");
  for (const char* command : {"uninstall", "_uninstall"}) {
    const RunResult run = runTool({command}, asUser());
    EXPECT_EQ(run.out, "This command requires root privileges.\n") << command;
    EXPECT_EQ(run.exitStatus, 1) << command;
  }
  EXPECT_FALSE(ToolStandIns::arguments(kScript)) << "the script never ran";
}

// log.

TEST_F(MaintenanceCommands, LogShowsTheProductsEntriesInTheCompactStyle) {
  install(kLogTool, "exit 0");
  const RunResult run = runTool({"log"});
  EXPECT_EQ(run.out, out(kLogTool));
  EXPECT_EQ(run.err, err(kLogTool));
  EXPECT_EQ(run.exitStatus, 0);
  EXPECT_EQ(ToolStandIns::arguments(kLogTool),
            (Lines{kLogTool, "show", "--debug", "--info", "--predicate", kPredicate, "--style", "compact"}));
}

TEST_F(MaintenanceCommands, LogLastPassesTheValueOnUnchecked) {
  install(kLogTool, "exit 0");
  for (const char* value : {"2h", "30m", "not a time", ""}) {
    ASSERT_EQ(runTool({"log", "--last", value}).exitStatus, 0);
    EXPECT_EQ(ToolStandIns::arguments(kLogTool), (Lines{kLogTool, "show", "--debug", "--info", "--last", value,
                                                       "--predicate", kPredicate, "--style", "compact"}))
        << value;
  }
}

TEST_F(MaintenanceCommands, LogWithoutATimeLimit) {
  install(kLogTool, "exit 0");
  const Lines whole = {kLogTool, "show", "--debug", "--info", "--predicate", kPredicate, "--style", "compact"};
  // "--last" without a value, other words, "--last" not first: the whole log.
  const std::vector<std::vector<std::string>> commands = {
      {"log", "--last"}, {"log", "foo", "bar"}, {"log", "--LAST", "2h"}, {"log", "2h", "--last"}};
  for (const auto& command : commands) {
    ASSERT_EQ(runTool(command).exitStatus, 0) << command[1];
    EXPECT_EQ(ToolStandIns::arguments(kLogTool), whole) << command[1];
  }
}

TEST_F(MaintenanceCommands, LogSucceedsWhateverTheViewerDoes) {
  for (const char* behaviour : {"exit 3", "kill -9 $$"}) {
    install(kLogTool, behaviour);
    const RunResult run = runTool({"log"});
    EXPECT_EQ(run.out, out(kLogTool)) << behaviour;
    EXPECT_EQ(run.exitStatus, 0) << behaviour;
  }
  // No error was asked for, so none was made or logged.
  EXPECT_EQ(logMessages(), Lines{});
}

TEST_F(MaintenanceCommands, LogWithoutAViewerPrintsNothingAndSucceeds) {
  // As on this system: there is no /usr/bin/log.
  const RunResult run = runTool({"log", "--last", "1h"});
  EXPECT_EQ(run.out, "");
  EXPECT_EQ(run.err, "");
  EXPECT_EQ(run.exitStatus, 0);
}

TEST_F(MaintenanceCommands, OrdinaryUsersCannotReadTheLog) {
  install(kLogTool, "exit 0");
  const RunResult run = runTool({"log"}, asUser());
  EXPECT_EQ(run.out, "This command requires root privileges.\n");
  EXPECT_EQ(run.exitStatus, 1);
  EXPECT_FALSE(ToolStandIns::arguments(kLogTool));
}

// debug-logs.

TEST_F(MaintenanceCommands, DebugLogsSetsTheLevelByTheTruthTest) {
  install(kLogTool, "exit 0");
  const struct {
    const char* value;
    const char* mode;
  } cases[] = {
      {"yes", "level:debug,persist:info"}, {"1", "level:debug,persist:info"}, {" +0true", "level:debug,persist:info"},
      {"no", "level:info,persist:default"}, {"off", "level:info,persist:default"},
      {"0", "level:info,persist:default"},  {"", "level:info,persist:default"},
  };
  for (const auto& c : cases) {
    const RunResult run = runTool({"debug-logs", c.value, "ignored"});
    EXPECT_EQ(run.out, out(kLogTool)) << c.value;
    EXPECT_EQ(run.exitStatus, 0) << c.value;
    EXPECT_EQ(ToolStandIns::arguments(kLogTool),
              (Lines{kLogTool, "config", "--subsystem", "com.larkspan.quillhaven", "--mode", c.mode}))
        << c.value;
  }
}

TEST_F(MaintenanceCommands, DebugLogsWithoutAValue) {
  install(kLogTool, "exit 0");
  const RunResult run = runTool({"debug-logs"});
  EXPECT_EQ(run.out, "Missing yes/no argument.\n");
  EXPECT_EQ(run.exitStatus, 1);
  EXPECT_FALSE(ToolStandIns::arguments(kLogTool));
}

TEST_F(MaintenanceCommands, DebugLogsFailsSilentlyWithTheTool) {
  install(kLogTool, "exit 64");
  const RunResult run = runTool({"debug-logs", "yes"});
  EXPECT_EQ(run.out, out(kLogTool));
  EXPECT_EQ(run.err, err(kLogTool));
  EXPECT_EQ(run.exitStatus, 1);
}

TEST_F(MaintenanceCommands, DebugLogsWithoutTheToolFailsSilently) {
  // As on this system: there is no /usr/bin/log.
  const RunResult run = runTool({"debug-logs", "yes"});
  EXPECT_EQ(run.out, "");
  EXPECT_EQ(run.err, "");
  EXPECT_EQ(run.exitStatus, 1);
}

TEST_F(MaintenanceCommands, DebugLogsMakesNoRootCheckOfItsOwn) {
  install(kLogTool, "exit 0");
  const RunResult run = runTool({"debug-logs", "no"}, asUser());
  EXPECT_EQ(run.out, out(kLogTool));
  EXPECT_EQ(run.exitStatus, 0);
  EXPECT_EQ(ToolStandIns::arguments(kLogTool),
            (Lines{kLogTool, "config", "--subsystem", "com.larkspan.quillhaven", "--mode", "level:info,persist:default"}));
}

}  // namespace
}  // namespace testing_support
