#include "platform/dispatch/serial_queue.h"

#include <condition_variable>
#include <deque>
#include <mutex>
#include <thread>
#include <variant>

namespace platform {

// Runs the items of one queue without target. At most one item runs at a time:
// `running` says someone (the worker or a sync caller) holds the queue. Sync
// callers wait in line as tickets, so they keep their place among async items,
// and run their work on their own thread once the queue is handed to them.
struct SerialQueue::Executor {
  struct Ticket {
    bool granted = false;
  };
  using Item = std::variant<std::function<void()>, Ticket*>;

  std::mutex mutex;
  std::condition_variable changed;
  std::deque<Item> items;
  bool running = false;
  bool workerStarted = false;
  bool released = false;  // the queue object is gone; the worker ends once drained

  // Under `mutex`, after the holder let go: gives the queue to the next ticket,
  // or wakes the worker for the next async item.
  void handOff() {
    running = false;
    if (items.empty()) return;
    if (auto* ticket = std::get_if<Ticket*>(&items.front())) {
      (*ticket)->granted = true;
      items.pop_front();
      running = true;
    }
    changed.notify_all();
  }

  bool asyncItemReady() const {
    return !running && !items.empty() && std::holds_alternative<std::function<void()>>(items.front());
  }

  static void work(std::shared_ptr<Executor> self) {
    std::unique_lock lock(self->mutex);
    for (;;) {
      self->changed.wait(lock, [&] { return self->asyncItemReady() || (self->released && self->items.empty()); });
      if (!self->asyncItemReady()) return;
      auto item = std::move(std::get<std::function<void()>>(self->items.front()));
      self->items.pop_front();
      self->running = true;
      lock.unlock();
      item();
      item = nullptr;  // the item's captures die outside the lock too
      lock.lock();
      self->handOff();
    }
  }
};

std::shared_ptr<SerialQueue> SerialQueue::create(std::string label, std::shared_ptr<SerialQueue> target) {
  return std::shared_ptr<SerialQueue>(new SerialQueue(std::move(label), std::move(target)));
}

SerialQueue::SerialQueue(std::string label, std::shared_ptr<SerialQueue> target)
    : label_(std::move(label)), target_(std::move(target)) {
  if (!target_) executor_ = std::make_shared<Executor>();
}

SerialQueue::~SerialQueue() {
  if (!executor_) return;
  std::lock_guard lock(executor_->mutex);
  executor_->released = true;
  executor_->changed.notify_all();
}

void SerialQueue::sync(const std::function<void()>& work) {
  if (target_) {
    target_->sync(work);
    return;
  }
  Executor& e = *executor_;
  std::unique_lock lock(e.mutex);
  if (e.running || !e.items.empty()) {
    Executor::Ticket ticket;
    e.items.emplace_back(&ticket);
    e.changed.wait(lock, [&] { return ticket.granted; });
  } else {
    e.running = true;
  }
  lock.unlock();
  work();
  lock.lock();
  e.handOff();
}

void SerialQueue::async(std::function<void()> work) {
  if (target_) {
    target_->async(std::move(work));
    return;
  }
  std::lock_guard lock(executor_->mutex);
  executor_->items.emplace_back(std::move(work));
  if (!executor_->workerStarted) {
    executor_->workerStarted = true;
    // Detached: the thread keeps the executor alive and must not hold up exit.
    std::thread(&Executor::work, executor_).detach();
  }
  executor_->changed.notify_all();
}

}  // namespace platform
