// What `_update` says on the system bus, watched on a private bus started in
// the sandbox at the system bus's address: the two inhibitor-lock requests
// before the installer, the notification after it, whatever the installer did.
// Skipped where the message bus programs are not installed.
#include <fcntl.h>
#include <signal.h>
#include <spawn.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <chrono>
#include <fstream>
#include <sstream>
#include <thread>

#include "harness/end_to_end.h"
#include "harness/tool_stand_in.h"

extern char** environ;

namespace testing_support {
namespace {

using Lines = std::vector<std::string>;

constexpr const char* kBusDaemon = "/usr/bin/dbus-daemon";
constexpr const char* kBusMonitor = "/usr/bin/dbus-monitor";
constexpr const char* kBusAddress = "unix:path=/run/dbus/system_bus_socket";
constexpr const char* kMonitorOutput = "/run/qhv-bus-monitor.txt";
constexpr const char* kInstaller = "/usr/sbin/installer";
constexpr const char* kPackage = "/Library/Quillhaven.pkg";

// Starts `argv` with standard output to `output` (or inherited); its id, or -1.
pid_t start(std::vector<const char*> argv, const char* output) {
  argv.push_back(nullptr);
  posix_spawn_file_actions_t actions;
  posix_spawn_file_actions_init(&actions);
  if (output) posix_spawn_file_actions_addopen(&actions, STDOUT_FILENO, output, O_WRONLY | O_CREAT | O_TRUNC, 0644);
  pid_t child = -1;
  const int failed = ::posix_spawn(&child, argv[0], &actions, nullptr, const_cast<char* const*>(argv.data()), environ);
  posix_spawn_file_actions_destroy(&actions);
  return failed ? -1 : child;
}

void stop(pid_t child) {
  if (child <= 0) return;
  ::kill(child, SIGTERM);
  ::waitpid(child, nullptr, 0);
}

// Waits up to five seconds for `ready`.
template <typename Condition>
bool waitFor(Condition ready) {
  for (int i = 0; i < 500; ++i) {
    if (ready()) return true;
    std::this_thread::sleep_for(std::chrono::milliseconds(10));
  }
  return false;
}

std::string monitorOutput() { return readFile(kMonitorOutput).value_or(""); }

// The calls to Inhibit and the Notification signals seen on the bus, each as
// its member followed by its arguments, one line each.
Lines toolTraffic() {
  Lines traffic;
  std::istringstream in(monitorOutput());
  bool collecting = false;
  for (std::string line; std::getline(in, line);) {
    if (!line.starts_with("   ")) {
      collecting = line.find("member=Inhibit") != std::string::npos ||
                   line.find("interface=com.larkspan.DistributedNotificationCenter; member=Notification") !=
                       std::string::npos;
      if (collecting) traffic.push_back(line.find("member=Inhibit") != std::string::npos ? "Inhibit" : "Notification");
      continue;
    }
    if (collecting) traffic.back() += " " + line.substr(line.find_first_not_of(' '));
  }
  return traffic;
}

const Lines kExpectedTraffic = {
    R"(Inhibit string "idle" string "com.larkspan.quillhaven.update" string "" string "block")",
    R"(Inhibit string "sleep" string "com.larkspan.quillhaven.update" string "" string "delay")",
    R"(Notification string "com.larkspan.quillhaven.did-update" string "" uint32 3)",
};

class UpdateOnTheSystemBus : public EndToEndTest {
 protected:
  void SetUp() override {
    EndToEndTest::SetUp();
    if (IsSkipped()) return;
    if (::access(kBusDaemon, X_OK) != 0 || ::access(kBusMonitor, X_OK) != 0) {
      GTEST_SKIP() << "no message bus programs (" << kBusDaemon << ", " << kBusMonitor << ")";
    }
    ASSERT_EQ(::mkdir("/run/dbus", 0755), 0);
    const std::string address = std::string("--address=") + kBusAddress;
    daemon_ = start({kBusDaemon, "--session", address.c_str(), "--nofork", "--nopidfile"}, "/dev/null");
    ASSERT_GT(daemon_, 0);
    ASSERT_TRUE(waitFor([] { return ::access("/run/dbus/system_bus_socket", F_OK) == 0; }));
    monitor_ = start({kBusMonitor, "--address", kBusAddress}, kMonitorOutput);
    ASSERT_GT(monitor_, 0);
    // A monitor gets, then loses, its own name once it watches.
    ASSERT_TRUE(waitFor([] { return monitorOutput().find("member=NameLost") != std::string::npos; }));
    std::ofstream(kPackage) << "package";
  }
  void TearDown() override {
    stop(monitor_);
    stop(daemon_);
    EndToEndTest::TearDown();
  }

  void installInstaller(const char* behaviour) {
    std::string whyNot;
    ASSERT_TRUE(standIns_.install(kInstaller, behaviour, &whyNot)) << whyNot;
  }

  static bool notified() { return toolTraffic().size() >= kExpectedTraffic.size(); }

 private:
  ToolStandIns standIns_;
  pid_t daemon_ = -1;
  pid_t monitor_ = -1;
};

TEST_F(UpdateOnTheSystemBus, LocksAreAskedForAndTheUpdateAnnounced) {
  installInstaller("exit 0");
  // No login manager serves this bus: the locks are refused, and the update goes on.
  const RunResult run = runTool({"_update", kPackage});
  EXPECT_EQ(run.exitStatus, 0);
  EXPECT_TRUE(waitFor(notified));
  EXPECT_EQ(toolTraffic(), kExpectedTraffic);
}

TEST_F(UpdateOnTheSystemBus, FailedUpdateIsAnnouncedToo) {
  installInstaller("exit 1");
  const RunResult run = runTool({"_update", kPackage});
  EXPECT_EQ(run.exitStatus, 1);
  EXPECT_TRUE(waitFor(notified));
  EXPECT_EQ(toolTraffic(), kExpectedTraffic);
}

TEST_F(UpdateOnTheSystemBus, OtherCommandsStayOffTheBus) {
  installInstaller("exit 0");
  ASSERT_EQ(runTool({"_update"}).exitStatus, 1);
  ASSERT_EQ(runTool({"version"}).exitStatus, 0);
  std::this_thread::sleep_for(std::chrono::milliseconds(100));
  EXPECT_EQ(monitorOutput().find("member=Hello", monitorOutput().find("member=NameLost")), std::string::npos)
      << "no connection after the monitor's own";
}

}  // namespace
}  // namespace testing_support
