// The tool spawner against real children: how each way of ending becomes a
// result and an error, for the blocking and the asynchronous form.
#include "support/spawner.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cerrno>
#include <csignal>
#include <future>
#include <string>
#include <mutex>
#include <thread>
#include <vector>

#include "errors/lks_error.h"
#include "harness/temp_dir.h"
#include "support/queue.h"

namespace {

// A shell that runs `script`: /bin/sh -c script.
struct ShellTool {
  explicit ShellTool(const char* script) : argv{"/bin/sh", "-c", script, nullptr} {}
  const char* argv[4];
};

constexpr const char* kMissingTool = "/nonexistent/qhv-tool";

void expectSpawnerError(const platform::ErrorRef& error, std::int64_t code, const char* tool, const char* key,
                        std::int64_t value) {
  ASSERT_NE(error, nullptr);
  EXPECT_EQ(error->domain, LKSSpawnerErrorDomain);
  EXPECT_EQ(error->code, code);
  EXPECT_EQ(error->userInfo.get(LKSErrorToolKey), platform::Value::string(tool));
  EXPECT_EQ(error->userInfo.get(key), platform::Value::integer(value));
  EXPECT_EQ(error->userInfo.size(), 2u) << "only the tool and the one detail";
}

TEST(SpawnTool, ExitStatusZeroIsSuccessWithoutError) {
  ShellTool tool("exit 0");
  platform::ErrorRef error;
  EXPECT_TRUE(spawn_tool(tool.argv, &error));
  EXPECT_EQ(error, nullptr);
}

TEST(SpawnTool, NonZeroExitStatusNamesTheToolAndTheStatus) {
  for (int status : {1, 3, 255}) {
    const std::string script = "exit " + std::to_string(status);
    ShellTool tool(script.c_str());
    platform::ErrorRef error;
    EXPECT_FALSE(spawn_tool(tool.argv, &error));
    expectSpawnerError(error, LKSSpawnerErrorExitStatus, "/bin/sh", LKSErrorExitStatusKey, status);
  }
}

TEST(SpawnTool, DeathBySignalNamesTheSignal) {
  for (int signal : {SIGKILL, SIGTERM, SIGSEGV}) {
    const std::string script = "kill -" + std::to_string(signal) + " $$";
    ShellTool tool(script.c_str());
    platform::ErrorRef error;
    EXPECT_FALSE(spawn_tool(tool.argv, &error));
    expectSpawnerError(error, LKSSpawnerErrorSignal, "/bin/sh", LKSErrorSignalKey, signal);
  }
}

TEST(SpawnTool, ExecutablesThatCannotStartGiveTheSpawnErrorNumber) {
  testing_support::TempDir directory;
  directory.write("plain", "exit 0\n");
  const std::string plain = directory.file("plain");
  const struct {
    const char* path;
    int number;
  } cases[] = {
      {kMissingTool, ENOENT},
      {"sh", ENOENT},             // never searched for: a relative path that is not here
      {plain.c_str(), EACCES},    // a file without execute permission
      {"/", EACCES},              // a directory
  };
  for (const auto& c : cases) {
    const char* argv[] = {c.path, nullptr};
    platform::ErrorRef error;
    EXPECT_FALSE(spawn_tool(argv, &error)) << c.path;
    expectSpawnerError(error, LKSSpawnerErrorSpawn, c.path, LKSErrorErrnoKey, c.number);
  }
}

TEST(SpawnTool, WithoutAnOutParameterTheResultIsTheSame) {
  ShellTool success("exit 0");
  ShellTool failure("exit 3");
  ShellTool killed("kill -9 $$");
  const char* missing[] = {kMissingTool, nullptr};
  EXPECT_TRUE(spawn_tool(success.argv, nullptr));
  EXPECT_FALSE(spawn_tool(failure.argv, nullptr));
  EXPECT_FALSE(spawn_tool(killed.argv, nullptr));
  EXPECT_FALSE(spawn_tool(missing, nullptr));
}

TEST(SpawnTool, ArgumentsAndEnvironmentReachTheTool) {
  // Every entry reaches the child unchanged: after the script, the shell's $0 and $1.
  const char* argv[] = {"/bin/sh", "-c", R"(test "$0|$1" = "first second|two words" && test "$QHV_SPAWN" = here)",
                        "first second", "two words", nullptr};
  ::setenv("QHV_SPAWN", "here", 1);
  EXPECT_TRUE(spawn_tool(argv, nullptr));
  ::setenv("QHV_SPAWN", "changed", 1);
  EXPECT_FALSE(spawn_tool(argv, nullptr)) << "the environment at the time of the call";
  ::unsetenv("QHV_SPAWN");
}

TEST(SpawnTool, OnlyItsOwnChildIsReaped) {
  ShellTool sleeper("sleep 0.2");
  std::thread other([&] { EXPECT_TRUE(spawn_tool(sleeper.argv, nullptr)); });
  ShellTool quick("exit 4");
  platform::ErrorRef error;
  EXPECT_FALSE(spawn_tool(quick.argv, &error));
  expectSpawnerError(error, LKSSpawnerErrorExitStatus, "/bin/sh", LKSErrorExitStatusKey, 4);
  other.join();
}

// The asynchronous form. Each test holds the queue with a first item until the
// call has returned: a completion that ran within the call, or on another
// queue, would show up before the queue was let go.
class SpawnToolAsync : public ::testing::Test {
 protected:
  void SetUp() override {
    queue_ = LKSQueueContextCreate("spawner-test");
    queue_->async([this] { gate_.get_future().wait(); });
  }
  void TearDown() override { queue_->sync([] {}); }

  // Starts `argv`, checks that nothing was reported yet, lets the queue go and
  // returns the one error reported.
  platform::ErrorRef run(const char* const* argv) {
    std::promise<platform::ErrorRef> reported;
    std::thread::id ranOn;
    int calls = 0;
    spawn_tool_async(argv, queue_, [&](platform::ErrorRef error) {
      ranOn = std::this_thread::get_id();
      if (++calls == 1) reported.set_value(std::move(error));
    });
    std::future<platform::ErrorRef> outcome = reported.get_future();
    EXPECT_EQ(outcome.wait_for(std::chrono::milliseconds(50)), std::future_status::timeout)
        << "reported before the queue was free";
    gate_.set_value();
    platform::ErrorRef error = outcome.get();
    // Whatever the source still had to deliver would be queued by now.
    std::this_thread::sleep_for(std::chrono::milliseconds(50));
    queue_->sync([] {});
    EXPECT_EQ(calls, 1);
    EXPECT_NE(ranOn, std::this_thread::get_id());
    return error;
  }

  platform::QueueRef queue_;
  std::promise<void> gate_;
};

TEST_F(SpawnToolAsync, ExitStatusZeroReportsNoError) {
  ShellTool tool("exit 0");
  EXPECT_EQ(run(tool.argv), nullptr);
}

TEST_F(SpawnToolAsync, NonZeroExitStatus) {
  ShellTool tool("exit 3");
  expectSpawnerError(run(tool.argv), LKSSpawnerErrorExitStatus, "/bin/sh", LKSErrorExitStatusKey, 3);
}

TEST_F(SpawnToolAsync, DeathBySignal) {
  ShellTool tool("kill -9 $$");
  expectSpawnerError(run(tool.argv), LKSSpawnerErrorSignal, "/bin/sh", LKSErrorSignalKey, SIGKILL);
}

TEST_F(SpawnToolAsync, MissingToolIsReportedOnTheQueueNotWithinTheCall) {
  const char* argv[] = {kMissingTool, nullptr};
  expectSpawnerError(run(argv), LKSSpawnerErrorSpawn, kMissingTool, LKSErrorErrnoKey, ENOENT);
}

TEST_F(SpawnToolAsync, ToolThatEndsAtOnceIsStillReported) {
  // /bin/true has ended long before the held queue lets its report through.
  const char* argv[] = {"/bin/true", nullptr};
  EXPECT_EQ(run(argv), nullptr);
}

TEST(SpawnToolAsyncVector, TheVectorNeedNotOutliveTheCall) {
  const platform::QueueRef queue = LKSQueueContextCreate("spawner-test");
  std::promise<platform::ErrorRef> reported;
  {
    std::vector<std::string> owned = {kMissingTool};
    const char* argv[] = {owned[0].c_str(), nullptr};
    spawn_tool_async(argv, queue, [&](platform::ErrorRef error) { reported.set_value(std::move(error)); });
    owned[0].assign(owned[0].size(), 'x');
  }
  expectSpawnerError(reported.get_future().get(), LKSSpawnerErrorSpawn, kMissingTool, LKSErrorErrnoKey, ENOENT);
}

TEST(SpawnToolAsyncVector, ManyToolsAtOnceEachReportOnce) {
  constexpr int kTools = 20;
  const platform::QueueRef queue = LKSQueueContextCreate("spawner-test");
  std::mutex mutex;
  std::vector<int> statuses;
  std::vector<std::string> scripts;
  for (int i = 0; i < kTools; ++i) scripts.push_back("exit " + std::to_string(i + 1));
  for (const std::string& script : scripts) {
    ShellTool tool(script.c_str());
    spawn_tool_async(tool.argv, queue, [&](platform::ErrorRef error) {
      std::lock_guard lock(mutex);
      statuses.push_back(static_cast<int>(error->userInfo.get(LKSErrorExitStatusKey).int64Value()));
    });
  }
  for (;;) {
    {
      std::lock_guard lock(mutex);
      if (statuses.size() >= kTools) break;
    }
    std::this_thread::sleep_for(std::chrono::milliseconds(5));
  }
  std::this_thread::sleep_for(std::chrono::milliseconds(50));
  queue->sync([] {});
  std::sort(statuses.begin(), statuses.end());
  std::vector<int> expected;
  for (int i = 1; i <= kTools; ++i) expected.push_back(i);
  EXPECT_EQ(statuses, expected);
}

}  // namespace
