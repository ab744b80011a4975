#include "scheduler/serve.h"

#include <pthread.h>
#include <signal.h>
#include <sys/resource.h>

#include <atomic>
#include <cerrno>

#include "errors/lks_error.h"
#include "messaging/helper_messager.h"
#include "platform/foundation/clock.h"
#include "platform/xpc/listener.h"
#include "platform/xpc/socket.h"
#include "scheduler/pid_file.h"
#include "scheduler/request_processor.h"
#include "scheduler/state_files.h"
#include "scheduler/state_store.h"

namespace dev_scheduler {
namespace {

// What the signal handler stops; a signal that comes before there is a
// listener is remembered and acted on once there is one.
std::atomic<platform::XPCListener*> servingListener{nullptr};
volatile sig_atomic_t stopRequested = 0;

void requestStop(int) {
  stopRequested = 1;
  if (platform::XPCListener* listener = servingListener.load()) listener->stop();
}

void installSignalHandlers() {
  struct sigaction action {};
  action.sa_handler = requestStop;
  sigemptyset(&action.sa_mask);
  ::sigaction(SIGINT, &action, nullptr);
  ::sigaction(SIGTERM, &action, nullptr);
  // A client that leaves while its reply is written must not end the service.
  ::signal(SIGPIPE, SIG_IGN);
}

platform::ErrorRef startError(const std::string& text, int code) {
  return platform::Error::make(platform::NSPOSIXErrorDomain, code,
                               {{platform::NSLocalizedDescriptionKey, platform::Value::string(text)}});
}

}  // namespace

bool serve(const SchedulerOptions& options, const std::function<void()>& ready, platform::ErrorRef* error) {
  if (!options.socketDirectory.empty()) platform::setXPCSocketDirectoryForTesting(options.socketDirectory);
  if (!StateStore::makeDirectory(options.stateDirectory, error)) return false;
  const StateStore state(options.stateDirectory);
  pid_t holder = 0;
  platform::ErrorRef cause;
  const std::unique_ptr<PidFile> pidFile = PidFile::lock(state.path(kPidFile), &holder, &cause);
  if (!pidFile) {
    if (error) {
      *error = holder != 0 ? startError("already running for " + options.stateDirectory + " (pid " +
                                            std::to_string(holder) + ")",
                                        EEXIST)
                           : cause;
    }
    return false;
  }
  if (!state.settings(error)) return false;
  if (options.maxOpenFiles) {
    rlimit limit{};
    ::getrlimit(RLIMIT_NOFILE, &limit);
    limit.rlim_cur = *options.maxOpenFiles;
    if (::setrlimit(RLIMIT_NOFILE, &limit) != 0) {
      if (error) *error = startError("cannot limit open files to " + std::to_string(*options.maxOpenFiles), errno);
      return false;
    }
  }

  installSignalHandlers();
  std::unique_ptr<platform::XPCListener> listener = platform::XPCListener::listen(QHVHelperServiceName, &cause);
  if (!listener) {
    if (error) {
      *error = startError("cannot serve " + std::string(QHVHelperServiceName) + ": " +
                              LKSError::localizedDescriptionForError(cause),
                          static_cast<int>(cause->code));
    }
    return false;
  }
  RequestProcessor processor(state, options.backupSeconds, platform::Clock::current().now());
  servingListener.store(listener.get());
  if (stopRequested) listener->stop();
  ready();
  const bool served = listener->run(
      [&processor](const std::shared_ptr<platform::XPCPeer>& peer, const platform::XPCFrame& request) {
        processor.process(*peer, request);
      },
      error, options.limits);
  // Signals that come from now on wait until the process ends: the listener is going.
  sigset_t stopping;
  sigemptyset(&stopping);
  sigaddset(&stopping, SIGINT);
  sigaddset(&stopping, SIGTERM);
  ::pthread_sigmask(SIG_BLOCK, &stopping, nullptr);
  servingListener.store(nullptr);
  return served;
}

}  // namespace dev_scheduler
