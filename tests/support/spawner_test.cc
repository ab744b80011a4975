// The tool spawner against real children: how each way of ending becomes a
// result and an error, for the blocking and the asynchronous form.
#include "support/spawner.h"

#include <gtest/gtest.h>

#include <cerrno>
#include <csignal>
#include <future>
#include <thread>

#include "errors/lks_error.h"
#include "support/queue.h"

namespace {

// A way for a child to end and the error it must give; code -1 for none.
struct Ending {
  const char* why;
  const char* argv[4];
  std::int64_t code;
  const char* key;
  std::int64_t value;
};

const Ending kEndings[] = {
    {"exits with 0", {"/bin/sh", "-c", "exit 0", nullptr}, -1, nullptr, 0},
    {"ends at once, before anyone waits", {"/bin/true", nullptr}, -1, nullptr, 0},
    {"exits with 3", {"/bin/sh", "-c", "exit 3", nullptr}, LKSSpawnerErrorExitStatus, LKSErrorExitStatusKey, 3},
    {"kills itself", {"/bin/sh", "-c", "kill -9 $$", nullptr}, LKSSpawnerErrorSignal, LKSErrorSignalKey, SIGKILL},
    {"does not exist", {"/nonexistent/qhv-tool", nullptr}, LKSSpawnerErrorSpawn, LKSErrorErrnoKey, ENOENT},
    {"is never searched for", {"sh", "-c", "exit 0", nullptr}, LKSSpawnerErrorSpawn, LKSErrorErrnoKey, ENOENT},
};

void expectError(const platform::ErrorRef& error, const Ending& ending) {
  if (ending.code < 0 || !error) {
    EXPECT_EQ(ending.code < 0, !error) << ending.why;
    return;
  }
  EXPECT_EQ(error->domain + " " + std::to_string(error->code),
            std::string(LKSSpawnerErrorDomain) + " " + std::to_string(ending.code));
  EXPECT_EQ(error->userInfo, (platform::Dictionary{{LKSErrorToolKey, platform::Value::string(ending.argv[0])},
                                                   {ending.key, platform::Value::integer(ending.value)}}))
      << ending.why;
}

TEST(SpawnTool, EveryEndingGivesItsResultWithAndWithoutAnOutParameter) {
  for (const Ending& ending : kEndings) {
    platform::ErrorRef error;
    EXPECT_EQ(spawn_tool(ending.argv, &error), ending.code < 0) << ending.why;
    expectError(error, ending);
    EXPECT_EQ(spawn_tool(ending.argv, nullptr), ending.code < 0) << ending.why;
  }
}

// The queue is held by a first item until the call has returned: a completion
// that ran within the call, or on another queue, would show before it is let go.
TEST(SpawnToolAsync, EveryEndingIsReportedOnceOnTheQueueAndNeverWithinTheCall) {
  for (const Ending& ending : kEndings) {
    const platform::QueueRef queue = LKSQueueContextCreate("spawner-test");
    std::promise<void> gate;
    queue->async([&] { gate.get_future().wait(); });
    std::promise<platform::ErrorRef> reported;
    int calls = 0;
    spawn_tool_async(ending.argv, queue, [&](platform::ErrorRef error) {
      if (++calls == 1) reported.set_value(std::move(error));
    });
    std::future<platform::ErrorRef> outcome = reported.get_future();
    EXPECT_EQ(outcome.wait_for(std::chrono::milliseconds(50)), std::future_status::timeout) << ending.why;
    gate.set_value();
    expectError(outcome.get(), ending);
    // Whatever the child's source still had to deliver would be queued by now.
    std::this_thread::sleep_for(std::chrono::milliseconds(50));
    queue->sync([] {});
    EXPECT_EQ(calls, 1) << ending.why;
  }
}

}  // namespace
