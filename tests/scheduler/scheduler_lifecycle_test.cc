// Starting and stopping the development scheduler: a second start is refused
// while one serves, a stop leaves neither socket nor process nor pid file, and
// what a killed one left behind does not stop the next.
#include <signal.h>

#include <chrono>
#include <fstream>
#include <thread>

#include "scheduler/state_files.h"
#include "scheduler_test_support.h"

namespace testing_support {
namespace {

const std::string kSocket = std::string("/var/run/xpc/") + QHVHelperServiceName;

// Gone, or a zombie that nobody has reaped yet: it runs no more.
bool processEnded(pid_t pid) {
  std::string stat;
  std::getline(std::ifstream("/proc/" + std::to_string(pid) + "/stat"), stat);
  return stat.empty() || stat[stat.rfind(')') + 2] == 'Z';
}

class SchedulerLifecycle : public SchedulerClientTest {
 protected:
  std::string pidFile() { return scheduler().statePath(dev_scheduler::kPidFile); }
  pid_t servingPid() { return static_cast<pid_t>(std::stol(readFile(pidFile()).value_or("0"))); }
  RunResult command(const char* command) { return runScheduler({command, "--state", scheduler().stateDirectory()}); }
};

TEST_F(SchedulerLifecycle, SecondStartIsRefusedWhileOneServes) {
  const RunResult again = command("start");
  EXPECT_EQ(again.exitStatus, 1);
  EXPECT_NE(again.err.find("already running"), std::string::npos) << again.err;
  EXPECT_NE(again.err.find("(pid " + std::to_string(servingPid()) + ")"), std::string::npos) << again.err;
  TempDir other;  // the service is taken, whatever the state directory
  const RunResult elsewhere = runScheduler({"start", "--state", other.path()});
  EXPECT_EQ(elsewhere.exitStatus, 1);
  EXPECT_NE(elsewhere.err.find("already served"), std::string::npos) << elsewhere.err;
  EXPECT_TRUE(send(QHVHelperMessageGetSettings));
}

TEST_F(SchedulerLifecycle, StopLeavesNothingAndAKilledOneIsReplaced) {
  const pid_t killed = servingPid();
  ASSERT_EQ(::kill(killed, SIGKILL), 0);
  for (int i = 0; i < 500 && !processEnded(killed); ++i) std::this_thread::sleep_for(std::chrono::milliseconds(10));
  ASSERT_EQ(::access(kSocket.c_str(), F_OK), 0) << "what the crash left behind";
  EXPECT_EQ(command("status").exitStatus, 3);
  ASSERT_TRUE(scheduler().start());
  const pid_t serving = servingPid();
  EXPECT_EQ(command("status").out, "running (pid " + std::to_string(serving) + ")\n");
  reconnect();
  EXPECT_TRUE(send(QHVHelperMessageGetSettings));

  ASSERT_TRUE(scheduler().stop());
  EXPECT_NE(::access(kSocket.c_str(), F_OK), 0);
  EXPECT_NE(::access(pidFile().c_str(), F_OK), 0);
  EXPECT_TRUE(processEnded(serving));
  EXPECT_EQ(command("status").exitStatus, 3);
  platform::ErrorRef error;
  reconnect();
  EXPECT_FALSE(send(QHVHelperMessageGetSettings, {}, &error));
  expectError(error, LKSMessagerErrorDomain, LKSMessagerErrorServiceUnavailable);
}

}  // namespace
}  // namespace testing_support
