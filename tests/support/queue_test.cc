// Named serial queues and the process-wide queue.
#include "support/queue.h"

#include <gtest/gtest.h>

#include <atomic>
#include <future>
#include <thread>

namespace {

// Nothing in this program calls LKSQueueInit: the queue exists because the
// initializer ran when the program was loaded.
TEST(MainQueue, ExistsBeforeMainAndIsAlwaysTheSameOffTheCallingThread) {
  const platform::QueueRef queue = LKSQueueMain();
  ASSERT_NE(queue, nullptr);
  EXPECT_EQ(queue->label(), "com.larkspan.main");
  EXPECT_EQ(LKSQueueMain(), queue);
  std::promise<std::thread::id> ranOn;
  queue->async([&] { ranOn.set_value(std::this_thread::get_id()); });
  EXPECT_NE(ranOn.get_future().get(), std::this_thread::get_id());
}

// Items of a queue and of the queues that target it run one at a time, in the order submitted.
TEST(SerialQueue, ItemsOfAQueueAndOfItsTargetsRunOneAtATimeInOrder) {
  const platform::QueueRef target = LKSQueueContextCreate("target");
  const platform::QueueRef queues[] = {target, LKSQueueCreate("first", target), LKSQueueCreate("second", target)};
  EXPECT_EQ(queues[1]->label(), "first");
  std::atomic<int> running{0};
  std::atomic<bool> overlapped{false};
  std::vector<int> order;
  for (int i = 0; i < 600; ++i) {
    queues[i % 3]->async([&, i] {
      if (running++ != 0) overlapped = true;
      std::this_thread::yield();  // widen the window in which an overlap would show
      order.push_back(i);
      --running;
    });
  }
  queues[1]->sync([] {});
  EXPECT_FALSE(overlapped);
  for (int i = 0; i < 600; ++i) ASSERT_EQ(order.at(static_cast<std::size_t>(i)), i);
}

}  // namespace
