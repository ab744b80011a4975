// Starting and stopping the development scheduler: a second start is refused
// while one serves, a stop leaves neither socket nor process nor pid file, and
// what a killed one left behind does not stop the next.
#include <poll.h>
#include <signal.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <cerrno>

#include "scheduler/state_files.h"
#include "scheduler_test_support.h"

namespace testing_support {
namespace {

const std::string kSocket = std::string("/var/run/xpc/") + QHVHelperServiceName;

// Whether every thread of `pid` has ended within five seconds (gone, or a
// zombie nobody has reaped yet). Its first thread may show as a zombie while the
// others still hold its files, and with them the pid file's lock.
bool processEnds(pid_t pid) {
  const int pidfd = static_cast<int>(::syscall(SYS_pidfd_open, pid, 0));
  if (pidfd < 0) return errno == ESRCH;
  pollfd ended{pidfd, POLLIN, 0};
  int ready = 0;
  while ((ready = ::poll(&ended, 1, 5000)) < 0 && errno == EINTR) {
  }
  ::close(pidfd);
  return ready > 0;
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
  ASSERT_TRUE(processEnds(killed));
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
  EXPECT_TRUE(processEnds(serving));
  EXPECT_EQ(command("status").exitStatus, 3);
  platform::ErrorRef error;
  reconnect();
  EXPECT_FALSE(send(QHVHelperMessageGetSettings, {}, &error));
  expectError(error, LKSMessagerErrorDomain, LKSMessagerErrorServiceUnavailable);
}

}  // namespace
}  // namespace testing_support
