// Starting and stopping the development scheduler: it serves once start
// returns, leaves neither socket nor process nor pid file once stopped, refuses
// a second start, and recovers from what a killed one left behind.
#include <fcntl.h>
#include <signal.h>
#include <spawn.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/un.h>
#include <sys/wait.h>
#include <unistd.h>

#include <chrono>
#include <cstring>
#include <fstream>
#include <thread>

#include <gtest/gtest-spi.h>

#include "scheduler/state_files.h"
#include "scheduler_test_support.h"

namespace testing_support {
namespace {

bool exists(const std::string& path) {
  struct stat st {};
  return ::lstat(path.c_str(), &st) == 0;
}

// Gone, or a zombie that nobody has reaped yet: it runs no more.
bool processEnded(pid_t pid) {
  std::ifstream stat("/proc/" + std::to_string(pid) + "/stat");
  std::string line;
  if (!std::getline(stat, line)) return true;
  const std::size_t state = line.rfind(')') + 2;
  return state < line.size() && line[state] == 'Z';
}

std::vector<std::string> withOptions(std::vector<std::string> args, const std::string& state,
                                     const std::string& sockets) {
  args.insert(args.end(), {"--state", state, "--socket-dir", sockets});
  return args;
}

class SchedulerLifecycle : public ::testing::Test {
 protected:
  void SetUp() override { platform::setXPCSocketDirectoryForTesting(sockets_.path()); }
  void TearDown() override {
    runScheduler(withOptions({"stop"}, state_.path(), sockets_.path()));
    platform::setXPCSocketDirectoryForTesting("");
  }

  RunResult scheduler(const std::string& command) {
    return runScheduler(withOptions({command}, state_.path(), sockets_.path()));
  }
  std::string socketPath() const { return sockets_.file(QHVHelperServiceName); }
  std::string pidPath() const { return state_.file(dev_scheduler::kPidFile); }

  // The process id that message 0 reports; 0 when nothing answers.
  std::int64_t servingPid() {
    SchedulerClient client;
    return client.send(0).asDictionary() ? client.send(0).asDictionary()->get("ProcessIdentifier").int64Value() : 0;
  }

  TempDir state_;
  TempDir sockets_;
};

TEST_F(SchedulerLifecycle, StartServesAtOnceAndStopLeavesNothing) {
  const RunResult started = scheduler("start");
  ASSERT_EQ(started.exitStatus, 0) << started.err;
  const pid_t pid = static_cast<pid_t>(std::stol(started.out));
  EXPECT_EQ(servingPid(), pid);
  EXPECT_EQ(readFile(pidPath()), std::to_string(pid) + "\n");
  EXPECT_TRUE(exists(state_.file(dev_scheduler::kSettingsFile)));
  const RunResult status = scheduler("status");
  EXPECT_EQ(status.exitStatus, 0);
  EXPECT_EQ(status.out, "running (pid " + std::to_string(pid) + ")\n");

  const RunResult stopped = scheduler("stop");
  ASSERT_EQ(stopped.exitStatus, 0) << stopped.err;
  EXPECT_FALSE(exists(socketPath()));
  EXPECT_FALSE(exists(pidPath()));
  EXPECT_TRUE(processEnded(pid));
  EXPECT_EQ(scheduler("status").exitStatus, 3);
  EXPECT_NE(scheduler("status").out.find("not running"), std::string::npos);
}

TEST_F(SchedulerLifecycle, SecondStartIsRefusedWhileOneServes) {
  const RunResult first = scheduler("start");
  ASSERT_EQ(first.exitStatus, 0) << first.err;
  const RunResult second = scheduler("start");
  EXPECT_EQ(second.exitStatus, 1);
  EXPECT_EQ(second.out, "");
  EXPECT_NE(second.err.find("already running"), std::string::npos) << second.err;
  EXPECT_NE(second.err.find("pid " + std::to_string(std::stol(first.out))), std::string::npos) << second.err;
  EXPECT_EQ(servingPid(), std::stol(first.out));

  // Another state directory cannot take the same service either.
  TempDir other;
  const RunResult elsewhere = runScheduler(withOptions({"start"}, other.path(), sockets_.path()));
  EXPECT_EQ(elsewhere.exitStatus, 1);
  EXPECT_NE(elsewhere.err.find("already served"), std::string::npos) << elsewhere.err;
  EXPECT_EQ(servingPid(), std::stol(first.out));
}

TEST_F(SchedulerLifecycle, SocketLeftByADeadServiceIsReplaced) {
  const int fd = ::socket(AF_UNIX, SOCK_STREAM, 0);
  sockaddr_un address{};
  address.sun_family = AF_UNIX;
  std::strcpy(address.sun_path, socketPath().c_str());
  ASSERT_EQ(::bind(fd, reinterpret_cast<const sockaddr*>(&address), sizeof address), 0);
  ::close(fd);  // nobody listens there any more
  ASSERT_EQ(scheduler("start").exitStatus, 0);
  EXPECT_NE(servingPid(), 0);
}

TEST_F(SchedulerLifecycle, KilledSchedulerLeavesNothingThatStopsTheNextOne) {
  const RunResult first = scheduler("start");
  ASSERT_EQ(first.exitStatus, 0) << first.err;
  const pid_t pid = static_cast<pid_t>(std::stol(first.out));
  ASSERT_EQ(::kill(pid, SIGKILL), 0);
  for (int i = 0; i < 500 && !processEnded(pid); ++i) std::this_thread::sleep_for(std::chrono::milliseconds(10));
  ASSERT_TRUE(exists(socketPath()));  // what the crash left behind
  EXPECT_EQ(scheduler("status").exitStatus, 3);

  const RunResult second = scheduler("start");
  ASSERT_EQ(second.exitStatus, 0) << second.err;
  EXPECT_EQ(servingPid(), std::stol(second.out));
  ASSERT_EQ(scheduler("stop").exitStatus, 0);
  EXPECT_FALSE(exists(socketPath()));
  EXPECT_FALSE(exists(pidPath()));
}

TEST_F(SchedulerLifecycle, StopAndStatusWithoutAScheduler) {
  const RunResult stopped = scheduler("stop");
  EXPECT_EQ(stopped.exitStatus, 0);
  EXPECT_NE(stopped.err.find("not running"), std::string::npos);
  const RunResult status = scheduler("status");
  EXPECT_EQ(status.exitStatus, 3);
  EXPECT_EQ(status.out, "not running\n");
}

TEST_F(SchedulerLifecycle, ForegroundSchedulerEndsOnSigintAndSigterm) {
  const std::string path = schedulerPath();
  for (const int signal : {SIGINT, SIGTERM}) {
    std::vector<std::string> args = withOptions({path, "run"}, state_.path(), sockets_.path());
    std::vector<char*> argv;
    for (std::string& arg : args) argv.push_back(arg.data());
    argv.push_back(nullptr);
    posix_spawn_file_actions_t actions;
    posix_spawn_file_actions_init(&actions);
    posix_spawn_file_actions_addopen(&actions, STDERR_FILENO, state_.file("foreground.log").c_str(),
                                     O_WRONLY | O_CREAT | O_APPEND, 0644);
    pid_t child = 0;
    ASSERT_EQ(::posix_spawn(&child, path.c_str(), &actions, nullptr, argv.data(), environ), 0);
    posix_spawn_file_actions_destroy(&actions);
    for (int i = 0; i < 500 && servingPid() != child; ++i) std::this_thread::sleep_for(std::chrono::milliseconds(10));
    ASSERT_EQ(servingPid(), child) << strsignal(signal);
    ASSERT_EQ(::kill(child, signal), 0);
    int status = 0;
    ASSERT_EQ(::waitpid(child, &status, 0), child);
    EXPECT_TRUE(WIFEXITED(status) && WEXITSTATUS(status) == 0) << strsignal(signal);
    EXPECT_FALSE(exists(socketPath())) << strsignal(signal);
    EXPECT_FALSE(exists(pidPath())) << strsignal(signal);
  }
  EXPECT_NE(readFile(state_.file("foreground.log")).value_or("").find("serving"), std::string::npos);
}

TEST_F(SchedulerLifecycle, CommandLineMistakesPrintTheUsage) {
  // Each makes the scheduler print the usage and end with status 2.
  const std::vector<std::vector<std::string>> mistakes = {
      {},                                                          // no command
      {"serve", "--state", state_.path()},                          // unknown command
      {"start"},                                                   // no state directory
      {"start", "--state"},                                        // an option without its value
      {"start", "--state", state_.path(), "--verbose", "1"},       // unknown option
      {"start", "--state", state_.path(), "--backup-seconds", "soon"},  // not a number
      {"start", "--state", state_.path(), "--backup-seconds", "-1"},    // negative
  };
  for (const std::vector<std::string>& args : mistakes) {
    const RunResult result = runScheduler(args);
    EXPECT_EQ(result.exitStatus, 2) << ::testing::PrintToString(args);
    EXPECT_NE(result.err.find("Usage: qhv-dev-scheduler"), std::string::npos) << ::testing::PrintToString(args);
  }
  EXPECT_FALSE(exists(pidPath()));
  const RunResult help = runScheduler({"--help"});
  EXPECT_EQ(help.exitStatus, 0);
  EXPECT_EQ(help.out.rfind("Usage: qhv-dev-scheduler", 0), 0u);
}

TEST(DevSchedulerHarness, RefusesToServeTheMachinesServiceDirectory) {
  // Outside a sandbox, only a scheduler with a socket directory of its own starts.
  EXPECT_NONFATAL_FAILURE({ DevScheduler scheduler; }, "only inside a sandbox");
}

TEST_F(SchedulerLifecycle, UserWithoutPermissionGetsAClearError) {
  if (::geteuid() != 0) GTEST_SKIP() << "needs root to run the scheduler as another user";
  // The socket directory belongs to root (0755): another user cannot serve there.
  ASSERT_EQ(::chmod(sockets_.path().c_str(), 0755), 0);
  ASSERT_EQ(::chown(state_.path().c_str(), Sandbox::kUserId, Sandbox::kGroupId), 0);
  RunOptions asUser;
  asUser.asUser = true;
  const RunResult result = runScheduler(withOptions({"start"}, state_.path(), sockets_.path()), asUser);
  EXPECT_EQ(result.exitStatus, 1);
  EXPECT_NE(result.err.find("cannot serve com.larkspan.quillhaven.scheduler"), std::string::npos) << result.err;
  EXPECT_NE(result.err.find("Permission denied"), std::string::npos) << result.err;
  EXPECT_FALSE(exists(pidPath()));

  // Nor can it keep its state where it may not write.
  ASSERT_EQ(::chown(state_.path().c_str(), 0, 0), 0);
  ASSERT_EQ(::chmod(state_.path().c_str(), 0755), 0);
  ASSERT_EQ(::chmod(sockets_.path().c_str(), 0777), 0);
  const RunResult unwritable = runScheduler(withOptions({"start"}, state_.path(), sockets_.path()), asUser);
  EXPECT_EQ(unwritable.exitStatus, 1);
  EXPECT_NE(unwritable.err.find("Permission denied"), std::string::npos) << unwritable.err;
}

}  // namespace
}  // namespace testing_support
