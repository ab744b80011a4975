// The process-exit source: one report per exit, on its queue, also for an
// exit that happened before the source was armed; none after cancellation.
#include "platform/process_exit_source.h"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <signal.h>
#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>

#include <atomic>
#include <chrono>
#include <future>
#include <thread>

extern char** environ;

namespace {

using namespace std::chrono_literals;

// A child running `script` with /bin/sh; left unreaped for the source to watch.
pid_t startChild(const char* script) {
  const char* argv[] = {"/bin/sh", "-c", script, nullptr};
  pid_t child = 0;
  if (::posix_spawn(&child, argv[0], nullptr, nullptr, const_cast<char* const*>(argv), environ) != 0) return -1;
  return child;
}

// Blocks until `child` has ended, leaving it unreaped.
void waitUntilEnded(pid_t child) {
  siginfo_t info{};
  ::waitid(P_PID, static_cast<id_t>(child), &info, WEXITED | WNOWAIT);
}

int reap(pid_t child) {
  int status = 0;
  ::waitpid(child, &status, 0);
  return status;
}

TEST(ProcessExitSource, ExitBeforeArmingIsReported) {
  const pid_t child = startChild("exit 7");
  ASSERT_GT(child, 0);
  waitUntilEnded(child);
  const platform::QueueRef queue = platform::SerialQueue::create("exit-source-test");
  const platform::ProcessExitSourceRef source = platform::ProcessExitSource::create(child, queue);
  std::promise<void> reported;
  source->setEventHandler([&] { reported.set_value(); });
  source->resume();
  ASSERT_EQ(reported.get_future().wait_for(10s), std::future_status::ready);
  source->cancel();
  const int status = reap(child);
  EXPECT_TRUE(WIFEXITED(status) && WEXITSTATUS(status) == 7) << "the source leaves the child to be reaped";
}

TEST(ProcessExitSource, NothingIsReportedBeforeTheExit) {
  int pipeFds[2];
  ASSERT_EQ(::pipe2(pipeFds, O_CLOEXEC), 0);
  ASSERT_EQ(::fcntl(pipeFds[0], F_SETFD, 0), 0);
  // The child ends when the write end of the pipe, which only this process holds, is closed.
  const std::string script = "read line <&" + std::to_string(pipeFds[0]);
  const pid_t child = startChild(script.c_str());
  ASSERT_GT(child, 0);
  ::close(pipeFds[0]);
  const platform::QueueRef queue = platform::SerialQueue::create("exit-source-test");
  const platform::ProcessExitSourceRef source = platform::ProcessExitSource::create(child, queue);
  std::promise<void> reported;
  source->setEventHandler([&] { reported.set_value(); });
  source->resume();
  std::future<void> outcome = reported.get_future();
  EXPECT_EQ(outcome.wait_for(100ms), std::future_status::timeout);
  ::close(pipeFds[1]);
  EXPECT_EQ(outcome.wait_for(10s), std::future_status::ready);
  source->cancel();
  reap(child);
}

TEST(ProcessExitSource, HandlerRunsOnceOnItsQueue) {
  const pid_t child = startChild("exit 0");
  ASSERT_GT(child, 0);
  const platform::QueueRef queue = platform::SerialQueue::create("exit-source-test");
  std::promise<void> gate;
  queue->async([&] { gate.get_future().wait(); });
  const platform::ProcessExitSourceRef source = platform::ProcessExitSource::create(child, queue);
  std::atomic<int> calls{0};
  source->setEventHandler([&] { ++calls; });
  source->resume();
  source->resume();  // a second arming changes nothing
  waitUntilEnded(child);
  std::this_thread::sleep_for(50ms);
  EXPECT_EQ(calls.load(), 0) << "ran while its queue was held";
  gate.set_value();
  std::this_thread::sleep_for(50ms);
  queue->sync([] {});
  EXPECT_EQ(calls.load(), 1);
  source->cancel();
  reap(child);
}

TEST(ProcessExitSource, CancelledSourceReportsNothing) {
  const pid_t child = startChild("sleep 0.1");
  ASSERT_GT(child, 0);
  const platform::QueueRef queue = platform::SerialQueue::create("exit-source-test");
  const platform::ProcessExitSourceRef source = platform::ProcessExitSource::create(child, queue);
  std::atomic<int> calls{0};
  source->setEventHandler([&] { ++calls; });
  source->resume();
  source->cancel();
  waitUntilEnded(child);
  std::this_thread::sleep_for(100ms);
  queue->sync([] {});
  EXPECT_EQ(calls.load(), 0);
  reap(child);
}

TEST(ProcessExitSource, HandlerMayCancelItsOwnSource) {
  const pid_t child = startChild("exit 0");
  ASSERT_GT(child, 0);
  const platform::QueueRef queue = platform::SerialQueue::create("exit-source-test");
  std::promise<void> reported;
  auto marker = std::make_shared<int>(0);
  std::weak_ptr<int> released = marker;
  {
    platform::ProcessExitSourceRef source = platform::ProcessExitSource::create(child, queue);
    // The handler holds its source and the marker; cancelling releases both.
    source->setEventHandler([source, marker, &reported] {
      source->cancel();
      reported.set_value();
    });
    source->resume();
  }
  marker.reset();
  ASSERT_EQ(reported.get_future().wait_for(10s), std::future_status::ready);
  queue->sync([] {});
  EXPECT_TRUE(released.expired());
  reap(child);
}

TEST(ProcessExitSource, ChildExitIsSeenWithoutAPidfd) {
  // Without a descriptor the source waits for its own child without reaping it.
  platform::ProcessExitSource::refusePidfdsForTesting(true);
  const pid_t child = startChild("exit 5");
  ASSERT_GT(child, 0);
  const platform::QueueRef queue = platform::SerialQueue::create("exit-source-test");
  const platform::ProcessExitSourceRef source = platform::ProcessExitSource::create(child, queue);
  platform::ProcessExitSource::refusePidfdsForTesting(false);
  std::promise<void> reported;
  source->setEventHandler([&] { reported.set_value(); });
  source->resume();
  ASSERT_EQ(reported.get_future().wait_for(10s), std::future_status::ready);
  const int status = reap(child);
  EXPECT_TRUE(WIFEXITED(status));
  EXPECT_EQ(WEXITSTATUS(status), 5) << "the child is left for its parent to reap";
}

}  // namespace
