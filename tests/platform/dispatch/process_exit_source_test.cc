// The process-exit source: one report per exit, on its queue, also for an exit
// that happened before the source was armed; none before the exit or after
// cancellation.
#include "platform/dispatch/process_exit_source.h"

#include <gtest/gtest.h>
#include <signal.h>
#include <spawn.h>
#include <sys/wait.h>

#include <atomic>
#include <chrono>
#include <thread>

extern char** environ;

namespace {

using namespace std::chrono_literals;
using platform::ProcessExitSource;

// A child running `script` with /bin/sh, left unreaped for the source to watch.
pid_t startChild(const char* script) {
  const char* argv[] = {"/bin/sh", "-c", script, nullptr};
  pid_t child = 0;
  return posix_spawn(&child, argv[0], nullptr, nullptr, const_cast<char* const*>(argv), environ) == 0 ? child : -1;
}

// Blocks until `child` has ended, leaving it unreaped.
void waitUntilEnded(pid_t child) {
  siginfo_t info{};
  waitid(P_PID, static_cast<id_t>(child), &info, WEXITED | WNOWAIT);
}

// An armed source for `child` whose handler counts its reports in `calls`.
platform::ProcessExitSourceRef watch(pid_t child, const platform::QueueRef& queue, std::atomic<int>& calls) {
  platform::ProcessExitSourceRef source = ProcessExitSource::create(child, queue);
  source->setEventHandler([&calls] { ++calls; });
  source->resume();
  source->resume();  // a second arming changes nothing
  return source;
}

// Waits up to ten seconds for `calls` to reach 1, then a little longer for any second report.
int settled(const std::atomic<int>& calls, const platform::QueueRef& queue) {
  for (int i = 0; i < 1000 && calls == 0; ++i) std::this_thread::sleep_for(10ms);
  std::this_thread::sleep_for(50ms);
  queue->sync([] {});
  return calls;
}

TEST(ProcessExitSource, AnExitBeforeArmingIsReportedOnceWithOrWithoutAPidfd) {
  for (bool withoutPidfd : {false, true}) {
    // Without a descriptor the source waits for its own child, without reaping it.
    ProcessExitSource::refusePidfdsForTesting(withoutPidfd);
    const pid_t child = startChild("exit 7");
    ASSERT_GT(child, 0);
    waitUntilEnded(child);
    const platform::QueueRef queue = platform::SerialQueue::create("exit-source-test");
    std::atomic<int> calls{0};
    const platform::ProcessExitSourceRef source = watch(child, queue, calls);
    ProcessExitSource::refusePidfdsForTesting(false);
    EXPECT_EQ(settled(calls, queue), 1) << withoutPidfd;
    source->cancel();
    int status = 0;
    ASSERT_EQ(waitpid(child, &status, 0), child) << "the source leaves the child to be reaped";
    EXPECT_TRUE(WIFEXITED(status) && WEXITSTATUS(status) == 7) << withoutPidfd;
  }
}

TEST(ProcessExitSource, NothingIsReportedBeforeTheExitNorOnceCancelled) {
  const pid_t child = startChild("exec sleep 60");
  ASSERT_GT(child, 0);
  const platform::QueueRef queue = platform::SerialQueue::create("exit-source-test");
  std::atomic<int> calls{0}, callsAfterCancel{0};
  const platform::ProcessExitSourceRef source = watch(child, queue, calls);
  watch(child, queue, callsAfterCancel)->cancel();
  std::this_thread::sleep_for(50ms);
  EXPECT_EQ(calls, 0) << "reported while the process runs";
  kill(child, SIGTERM);
  EXPECT_EQ(settled(calls, queue), 1);
  EXPECT_EQ(callsAfterCancel, 0);
  source->cancel();
  waitpid(child, nullptr, 0);
}

}  // namespace
