#include "platform/dispatch/process_exit_source.h"

#include <poll.h>
#include <sys/syscall.h>
#include <sys/wait.h>
#include <unistd.h>

#include <atomic>
#include <cerrno>
#include <mutex>
#include <thread>

namespace platform {

namespace {

std::atomic<bool> pidfdsRefused{false};

}  // namespace

struct ProcessExitSource::State {
  State(pid_t watched, QueueRef target) : pid(watched), queue(std::move(target)) {
    if (!pidfdsRefused.load()) pidfd = static_cast<int>(::syscall(SYS_pidfd_open, pid, 0));
  }
  ~State() {
    if (pidfd >= 0) ::close(pidfd);
  }

  const pid_t pid;
  const QueueRef queue;
  int pidfd = -1;

  std::mutex mutex;
  std::function<void()> handler;
  bool resumed = false;
  bool cancelled = false;

  // Blocks until the process has ended; it is left unreaped either way.
  void waitForExit() const {
    if (pidfd >= 0) {
      pollfd fd{pidfd, POLLIN, 0};
      while (::poll(&fd, 1, -1) < 0 && errno == EINTR) {
      }
      return;
    }
    siginfo_t info{};
    while (::waitid(P_PID, static_cast<id_t>(pid), &info, WEXITED | WNOWAIT) < 0 && errno == EINTR) {
    }
  }

  static void deliver(const std::shared_ptr<State>& self) {
    std::function<void()> work;
    {
      std::lock_guard lock(self->mutex);
      if (self->cancelled) return;
      // A copy, so that the handler may cancel the source, and so release the
      // stored handler, while it runs.
      work = self->handler;
    }
    if (work) work();
  }

  static void watch(std::shared_ptr<State> self) {
    self->waitForExit();
    std::lock_guard lock(self->mutex);
    if (self->cancelled) return;
    self->queue->async([self] { deliver(self); });
  }
};

std::shared_ptr<ProcessExitSource> ProcessExitSource::create(pid_t pid, QueueRef queue) {
  return std::shared_ptr<ProcessExitSource>(new ProcessExitSource(std::make_shared<State>(pid, std::move(queue))));
}

void ProcessExitSource::setEventHandler(std::function<void()> handler) {
  std::lock_guard lock(state_->mutex);
  state_->handler = std::move(handler);
}

void ProcessExitSource::refusePidfdsForTesting(bool refuse) { pidfdsRefused.store(refuse); }

void ProcessExitSource::resume() {
  {
    std::lock_guard lock(state_->mutex);
    if (state_->resumed || state_->cancelled) return;
    state_->resumed = true;
  }
  // Detached: it owns the state until the process has ended and never holds up exit.
  std::thread(&State::watch, state_).detach();
}

void ProcessExitSource::cancel() {
  std::function<void()> released;
  {
    std::lock_guard lock(state_->mutex);
    state_->cancelled = true;
    released = std::move(state_->handler);
    state_->handler = nullptr;
  }
  // `released` dies here, outside the lock: whatever it holds may cancel or
  // release sources of its own.
}

}  // namespace platform
