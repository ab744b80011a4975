// Threads taking turns at a loop: the loop goes on while jobs run long, no more
// jobs run at once than there are handlers, and stopping waits for the jobs that run.
#include "platform/xpc/worker_pool.h"

#include <gtest/gtest.h>

#include <atomic>
#include <chrono>
#include <future>
#include <thread>

namespace platform {
namespace {

using std::chrono::milliseconds;

// A turn as a loop's would be: it waits a little for events that do not come.
void idleTurn() { std::this_thread::sleep_for(milliseconds(1)); }

TEST(WorkerPool, TurnsGoOnWhileEveryHandlerRunsAJobThatWaitsForThem) {
  constexpr int kHandlers = 3;
  WorkerPool pool(kHandlers);
  std::atomic<int> turns = 0, running = 0, mostAtOnce = 0, finished = 0;
  std::promise<void> release;
  const std::shared_future<void> released = release.get_future().share();
  std::atomic<bool> stop = false, turnsWentOn = false;
  std::thread stopper([&] {
    // The jobs end once turns went on without them (or after ten seconds); then the loop stops.
    const auto deadline = std::chrono::steady_clock::now() + std::chrono::seconds(10);
    while (turns < 50 && std::chrono::steady_clock::now() < deadline) std::this_thread::yield();
    turnsWentOn = turns >= 50;
    release.set_value();
    while (finished < 2 * kHandlers) std::this_thread::yield();
    stop = true;
  });
  pool.run([&] {
    // A few turns first, so that the other threads wait already when the jobs come.
    if (++turns == 5) {
      for (int i = 0; i < 2 * kHandlers; ++i) {
        pool.submit([&] {
          const int now = ++running;
          for (int most = mostAtOnce; now > most && !mostAtOnce.compare_exchange_weak(most, now);) {
          }
          released.wait();
          --running;
          ++finished;
        });
      }
    }
    idleTurn();
    return !stop;
  });
  stopper.join();
  EXPECT_TRUE(turnsWentOn);
  EXPECT_EQ(mostAtOnce, kHandlers);
  EXPECT_EQ(finished, 2 * kHandlers);
}

TEST(WorkerPool, StoppingWaitsForTheJobThatRuns) {
  WorkerPool pool(1);
  std::atomic<int> turns = 0;
  std::atomic<bool> finished = false;
  std::promise<void> release;
  const std::shared_future<void> released = release.get_future().share();
  std::thread releaser([&] {
    while (turns < 2) std::this_thread::yield();
    std::this_thread::sleep_for(milliseconds(20));
    release.set_value();
  });
  pool.run([&] {
    if (++turns == 1) {
      pool.submit([&] {
        released.wait();
        finished = true;
      });
    }
    idleTurn();
    return turns < 2;
  });
  EXPECT_TRUE(finished);
  releaser.join();
}

}  // namespace
}  // namespace platform
