// Named serial queues and the process-wide queue.
#include "support/queue.h"

#include <gtest/gtest.h>

#include <atomic>
#include <chrono>
#include <functional>
#include <future>
#include <memory>
#include <mutex>
#include <thread>
#include <vector>

namespace {

// Records the order in which items ran and whether two ever ran at once.
class RunLog {
 public:
  std::function<void()> item(int id) {
    return [this, id] {
      if (running_.fetch_add(1) != 0) overlapped_ = true;
      std::this_thread::yield();  // widen the window in which an overlap would show
      {
        std::lock_guard lock(mutex_);
        order_.push_back(id);
      }
      running_.fetch_sub(1);
    };
  }
  std::vector<int> order() {
    std::lock_guard lock(mutex_);
    return order_;
  }
  bool overlapped() const { return overlapped_; }

 private:
  std::atomic<int> running_{0};
  std::atomic<bool> overlapped_{false};
  std::mutex mutex_;
  std::vector<int> order_;
};

std::vector<int> upTo(int count) {
  std::vector<int> ids(static_cast<std::size_t>(count));
  for (int i = 0; i < count; ++i) ids[static_cast<std::size_t>(i)] = i;
  return ids;
}

// Nothing in this program calls LKSQueueInit: the queue exists because the
// initializer ran when the program was loaded.
TEST(MainQueue, ExistsBeforeMainAndIsAlwaysTheSame) {
  const platform::QueueRef first = LKSQueueMain();
  ASSERT_NE(first, nullptr);
  EXPECT_EQ(first->label(), "com.larkspan.main");
  EXPECT_EQ(LKSQueueMain(), first);
  std::promise<platform::QueueRef> fromOtherThread;
  std::thread([&] { fromOtherThread.set_value(LKSQueueMain()); }).join();
  EXPECT_EQ(fromOtherThread.get_future().get(), first);
}

TEST(MainQueue, RunsAsynchronousItemsOffTheCallingThread) {
  std::promise<std::thread::id> ranOn;
  LKSQueueMain()->async([&] { ranOn.set_value(std::this_thread::get_id()); });
  EXPECT_NE(ranOn.get_future().get(), std::this_thread::get_id());
}

TEST(QueueCreation, QueuesCarryTheirLabels) {
  const platform::QueueRef context = LKSQueueContextCreate("com.larkspan.lkslog.asl");
  const platform::QueueRef targeted = LKSQueueCreate("com.larkspan.quillhaven.scheduler", context);
  EXPECT_EQ(context->label(), "com.larkspan.lkslog.asl");
  EXPECT_EQ(targeted->label(), "com.larkspan.quillhaven.scheduler");
  EXPECT_NE(LKSQueueContextCreate("com.larkspan.lkslog.asl"), context);  // a new queue every time
  EXPECT_EQ(LKSQueueContextCreate(nullptr)->label(), "");
}

TEST(SerialQueue, AsynchronousItemsRunOneAtATimeInSubmissionOrder) {
  constexpr int kItems = 500;
  const platform::QueueRef queue = LKSQueueContextCreate("order");
  RunLog log;
  for (int i = 0; i < kItems; ++i) queue->async(log.item(i));
  queue->sync([] {});
  EXPECT_EQ(log.order(), upTo(kItems));
  EXPECT_FALSE(log.overlapped());
}

TEST(SerialQueue, SyncWaitsForEveryItemSubmittedBeforeIt) {
  const platform::QueueRef queue = LKSQueueContextCreate("sync after async");
  std::promise<void> release;
  std::shared_future<void> released = release.get_future().share();
  std::atomic<int> done{0};
  queue->async([released, &done] {
    released.wait();
    ++done;
  });
  for (int i = 0; i < 10; ++i) queue->async([&done] { ++done; });
  std::thread releaser([&] { release.set_value(); });
  int seenBySync = -1;
  queue->sync([&] { seenBySync = done.load(); });
  releaser.join();
  EXPECT_EQ(seenBySync, 11);
}

TEST(SerialQueue, SyncFromManyThreadsNeverOverlapsTheQueuesItems) {
  constexpr int kThreads = 4;
  constexpr int kPerThread = 200;
  const platform::QueueRef queue = LKSQueueContextCreate("mixed");
  RunLog log;
  std::vector<std::thread> threads;
  for (int t = 0; t < kThreads; ++t) {
    threads.emplace_back([&, t] {
      for (int i = 0; i < kPerThread; ++i) {
        const int id = t * kPerThread + i;
        i % 2 ? queue->sync(log.item(id)) : queue->async(log.item(id));
      }
    });
  }
  for (std::thread& t : threads) t.join();
  queue->sync([] {});
  EXPECT_EQ(log.order().size(), static_cast<std::size_t>(kThreads * kPerThread));
  EXPECT_FALSE(log.overlapped());
}

// Items of queues that share a target run serialized with the target's own.
TEST(SerialQueue, QueuesWithATargetRunSerializedWithIt) {
  constexpr int kItems = 300;
  const platform::QueueRef target = LKSQueueContextCreate("target");
  const platform::QueueRef first = LKSQueueCreate("first", target);
  const platform::QueueRef second = LKSQueueCreate("second", target);
  const platform::QueueRef queues[] = {target, first, second};
  RunLog log;
  for (int i = 0; i < kItems; ++i) queues[i % 3]->async(log.item(i));
  first->sync([] {});
  EXPECT_EQ(log.order(), upTo(kItems));
  EXPECT_FALSE(log.overlapped());
}

TEST(SerialQueue, AsyncNeverRunsOnTheCallersStack) {
  const platform::QueueRef queue = LKSQueueContextCreate("idle");
  std::promise<std::thread::id> ranOn;
  queue->async([&] { ranOn.set_value(std::this_thread::get_id()); });
  EXPECT_NE(ranOn.get_future().get(), std::this_thread::get_id());

  // Submitted from an item of the same queue, it waits for that item to end.
  RunLog log;
  queue->sync([&] {
    queue->async(log.item(2));
    log.item(1)();
  });
  queue->sync([] {});
  EXPECT_EQ(log.order(), (std::vector<int>{1, 2}));
}

TEST(SerialQueue, ItemsQueuedWhenTheQueueIsReleasedStillRun) {
  platform::QueueRef queue = LKSQueueContextCreate("released");
  std::promise<void> release;
  std::shared_future<void> released = release.get_future().share();
  auto lastRan = std::make_shared<std::promise<void>>();
  std::future<void> lastRanFuture = lastRan->get_future();
  queue->async([released] { released.wait(); });
  queue->async([lastRan] { lastRan->set_value(); });
  queue.reset();
  release.set_value();
  // Generous: only a lost item makes this wait run out.
  EXPECT_EQ(lastRanFuture.wait_for(std::chrono::seconds(30)), std::future_status::ready);
}

}  // namespace
