// The commands that run system tools, through the built tool with recording
// stand-ins at the tools' paths: the exact argument vectors, the streams the
// tools inherit, the sessions they run in, the records in the log file and the
// exit statuses; and for _update, what it says on the system bus.
#include <signal.h>
#include <unistd.h>

#include <chrono>
#include <cstring>
#include <fstream>
#include <functional>
#include <sstream>
#include <thread>

#include "harness/end_to_end.h"
#include "harness/tool_stand_in.h"

namespace testing_support {
namespace {

using Lines = std::vector<std::string>;

constexpr const char* kRootLog = "/Library/Logs/Quillhaven/ctl.log";
constexpr const char* kScript = "/Library/Quillhaven/uninstall.sh";
constexpr const char* kLogTool = "/usr/bin/log";
constexpr const char* kInstaller = "/usr/sbin/installer";
constexpr const char* kPackage = "/Library/Quillhaven 5.3.pkg";
constexpr const char* kBusMonitorOutput = "/run/qhv-bus-monitor.txt";

// The log file's messages, without date, category and process id.
Lines logMessages() {
  Lines messages;
  std::istringstream in(readFile(kRootLog).value_or(""));
  for (std::string line; std::getline(in, line);) messages.push_back(line.substr(line.find("] ") + 2));
  return messages;
}

// What a stand-in says on standard output and error, as the tool passes it on.
std::string out(const char* path) { return ToolStandIns::outputLine(path) + "\n"; }
std::string err(const char* path) { return ToolStandIns::errorLine(path) + "\n"; }

// Waits up to five seconds for `ready`.
bool waitFor(const std::function<bool()>& ready) {
  for (int i = 0; i < 500 && !ready(); ++i) std::this_thread::sleep_for(std::chrono::milliseconds(10));
  return ready();
}

// How often the bus monitor saw `call`, its member and arguments as the monitor prints them.
std::size_t timesSeen(const std::string& call) {
  const std::string monitored = readFile(kBusMonitorOutput).value_or("");
  std::size_t times = 0;
  for (std::size_t at = monitored.find(call); at != std::string::npos; at = monitored.find(call, at + 1)) ++times;
  return times;
}

class SystemToolCommands : public EndToEndTest {
 protected:
  void TearDown() override {
    for (const pid_t started : started_) ::kill(started, SIGTERM);
    EndToEndTest::TearDown();
  }

  void install(const char* path, const std::string& behaviour) {
    std::string whyNot;
    ASSERT_TRUE(standIns_.install(path, behaviour, &whyNot, /*readsInput=*/true)) << whyNot;
  }
  // Runs the tool as root with `input`, its log file fresh.
  static RunResult run(const Lines& args, const std::string& input = "typed\n") {
    ::unlink(kRootLog);
    RunOptions options;
    options.input = input;
    return runTool(args, options);
  }
  // Starts a private bus at the system bus's address and, once it listens, a
  // monitor of it; both are stopped at the end of the test.
  void startBus() {
    const std::string address = "unix:path=/run/dbus/system_bus_socket";
    std::istringstream ids(runProgram("/bin/sh", {"-c",
        "mkdir -p /run/dbus; dbus-daemon --session --address=" + address + " --nofork --nopidfile >/dev/null 2>&1 &"
        "echo $!; while [ ! -S /run/dbus/system_bus_socket ]; do sleep 0.01; done;"
        "dbus-monitor --address " + address + " > " + kBusMonitorOutput + " 2>/dev/null & echo $!"}).out);
    for (pid_t id; ids >> id;) started_.push_back(id);
  }

 private:
  ToolStandIns standIns_;
  std::vector<pid_t> started_;
};

TEST_F(SystemToolCommands, UninstallRunsTheScriptWithTheShell) {
  const std::string done = "Quillhaven has been uninstalled.";
  const std::string exited = "/bin/sh exited with status 2.";
  const std::string killed = std::string("/bin/sh received signal 9 (") + ::strsignal(9) + ").";
  // The script's behaviour, the command, and what comes of it: its last line, exit status, records.
  const std::tuple<const char*, const char*, std::string, int, Lines> cases[] = {
      {"exit 0", "uninstall", done, 0, {done}},
      {"exit 2", "uninstall", "Could not uninstall. " + exited, 1, {exited, "Could not uninstall. " + exited}},
      {"kill -9 $$", "uninstall", "Could not uninstall. " + killed, 1, {killed, "Could not uninstall. " + killed}},
      {"exit 0", "_uninstall", done, 0, {done}},
  };
  for (const auto& [behaviour, command, last, status, records] : cases) {
    SCOPED_TRACE(std::string(command) + " with a script that does " + behaviour);
    install(kScript, behaviour);
    const RunResult result = run({command, "ignored"});
    EXPECT_EQ(result.out, out(kScript) + last + "\n");
    EXPECT_EQ(result.err, err(kScript));
    EXPECT_EQ(result.exitStatus, status);
    EXPECT_EQ(logMessages(), records);
    EXPECT_EQ(ToolStandIns::commandLine(kScript), (Lines{"/bin/sh", kScript}));
    EXPECT_EQ(ToolStandIns::inputLine(kScript), "typed");
    EXPECT_EQ(ToolStandIns::parentLedItsSession(kScript), std::string(command) == "_uninstall");
  }
}

TEST_F(SystemToolCommands, LogAndDebugLogsRunTheLogTool) {
  // Without a log tool, as on this system: log succeeds, debug-logs fails, both silently.
  const RunResult withoutLog = run({"log"}), withoutConfig = run({"debug-logs", "yes"});
  EXPECT_EQ(withoutLog.out + withoutLog.err + withoutConfig.out + withoutConfig.err, "");
  EXPECT_EQ(withoutLog.exitStatus, 0);
  EXPECT_EQ(withoutConfig.exitStatus, 1);
  install(kLogTool, "exit 0");
  const Lines whole = {kLogTool, "show", "--debug", "--info", "--predicate", "subsystem = 'com.larkspan.quillhaven'",
                       "--style", "compact"};
  const auto last = [&whole](const char* value) {
    Lines arguments = whole;
    arguments.insert(arguments.begin() + 4, {"--last", value});
    return arguments;
  };
  const auto mode = [](const char* level) {
    return Lines{kLogTool, "config", "--subsystem", "com.larkspan.quillhaven", "--mode", level};
  };
  // The command, and the log tool's arguments.
  const std::pair<Lines, Lines> cases[] = {
      {{"log"}, whole},
      {{"log", "--last", "2h"}, last("2h")},
      {{"log", "--last", ""}, last("")},  // passed on unchecked
      {{"log", "2h", "--last"}, whole},
      {{"debug-logs", "yes", "ignored"}, mode("level:debug,persist:info")},
      {{"debug-logs", "off"}, mode("level:info,persist:default")},
  };
  for (const auto& [args, arguments] : cases) {
    const RunResult result = run(args);
    EXPECT_EQ(result.out, out(kLogTool)) << args.back();
    EXPECT_EQ(result.err, err(kLogTool)) << args.back();
    EXPECT_EQ(result.exitStatus, 0) << args.back();
    EXPECT_EQ(ToolStandIns::arguments(kLogTool), arguments) << args.back();
  }
  // debug-logs makes no root check of its own.
  EXPECT_EQ(runTool({"debug-logs", "no"}, asUser()).exitStatus, 0);
  EXPECT_EQ(ToolStandIns::arguments(kLogTool), mode("level:info,persist:default"));
  EXPECT_EQ(run({"debug-logs"}).out, "Missing yes/no argument.\n");

  // A failing log tool: log still succeeds, debug-logs fails without a word of its own.
  install(kLogTool, "exit 3");
  EXPECT_EQ(run({"log"}).exitStatus, 0);
  const RunResult failed = run({"debug-logs", "yes"});
  EXPECT_EQ(failed.out, out(kLogTool));
  EXPECT_EQ(failed.exitStatus, 1);
  EXPECT_EQ(logMessages(), Lines{}) << "no error was asked for, so none was logged";
}

TEST_F(SystemToolCommands, UpdateRunsTheInstallerUnderLocksAndAnnouncesIt) {
  if (::access("/usr/bin/dbus-daemon", X_OK) != 0 || ::access("/usr/bin/dbus-monitor", X_OK) != 0) {
    GTEST_SKIP() << "no message bus programs to watch the system bus with";
  }
  startBus();
  // A monitor gets, then loses, its own name once it watches.
  ASSERT_TRUE(waitFor([] { return timesSeen("member=NameLost") > 0; }));

  EXPECT_EQ(run({"_update"}).out, "Package path must be specified.\n");
  const std::string missing = std::string("Could not spawn '/usr/sbin/installer'. ") + std::strerror(ENOENT) + " (2).";
  const std::string exited = "/usr/sbin/installer exited with status 1.";
  const std::string killed = std::string("/usr/sbin/installer received signal 15 (") + ::strsignal(15) + ").";
  // The installer's behaviour ("" for no installer), the exit status and the records.
  const std::tuple<const char*, int, Lines> cases[] = {
      {"", 1, {missing, "Update failed. " + missing}},
      {"exit 0", 0, {"Quillhaven has been updated."}},
      {"exit 1", 1, {exited, "Update failed. " + exited}},
      {"kill -15 $$", 1, {killed, "Update failed. " + killed}},
  };
  for (const auto& [behaviour, status, records] : cases) {
    SCOPED_TRACE(std::string("an installer that does ") + behaviour);
    if (*behaviour) install(kInstaller, behaviour);
    std::ofstream(kPackage) << "package";
    const RunResult result = run({"_update", kPackage, "ignored"}, "for the installer\n");
    EXPECT_EQ(result.out, *behaviour ? out(kInstaller) : "") << "only the installer's own output";
    EXPECT_EQ(result.err, *behaviour ? err(kInstaller) : "");
    EXPECT_EQ(result.exitStatus, status);
    EXPECT_NE(::access(kPackage, F_OK), 0) << "the package is deleted whatever happened";
    EXPECT_EQ(logMessages(), records);
    if (!*behaviour) continue;
    EXPECT_EQ(ToolStandIns::arguments(kInstaller), (Lines{kInstaller, "-pkg", kPackage, "-target", "/"}));
    EXPECT_EQ(ToolStandIns::inputLine(kInstaller), "for the installer");
    EXPECT_EQ(ToolStandIns::parentLedItsSession(kInstaller), true);
  }
  // No login manager serves this bus: the locks are refused, and every update goes on and is announced.
  const auto lock = [](const std::string& what, const std::string& mode) {
    return "member=Inhibit\n   string \"" + what + "\"\n   string \"com.larkspan.quillhaven.update\"\n   string \"\"\n"
           "   string \"" + mode + "\"\n";
  };
  const std::string calls[] = {lock("idle", "block"), lock("sleep", "delay"),
                               "member=Notification\n   string \"com.larkspan.quillhaven.did-update\"\n"
                               "   string \"\"\n   uint32 3\n"};
  EXPECT_TRUE(waitFor([&] { return timesSeen(calls[2]) >= std::size(cases); }));
  for (const std::string& call : calls) EXPECT_EQ(timesSeen(call), std::size(cases)) << call;
}

}  // namespace
}  // namespace testing_support
