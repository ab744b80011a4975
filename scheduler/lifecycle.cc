#include "scheduler/lifecycle.h"

#include <fcntl.h>
#include <poll.h>
#include <signal.h>
#include <sys/syscall.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>
#include <cstdio>
#include <string>

#include "errors/lks_error.h"
#include "messaging/helper_messager.h"
#include "platform/xpc/socket.h"
#include "scheduler/pid_file.h"
#include "scheduler/scheduler_log.h"
#include "scheduler/serve.h"
#include "scheduler/state_files.h"
#include "scheduler/state_store.h"

namespace dev_scheduler {
namespace {

constexpr int kExitFailure = 1;
constexpr int kExitNotRunning = 3;
// How long a scheduler has to go after SIGTERM, and then after SIGKILL.
constexpr int kStopMilliseconds = 10'000;
constexpr int kKillMilliseconds = 5'000;
// What a scheduler started in the background writes to its starter once it serves.
constexpr char kReadyMark = '\n';

int fail(const std::string& text) {
  std::fprintf(stderr, "qhv-dev-scheduler: %s\n", text.c_str());
  return kExitFailure;
}

std::string describe(const platform::ErrorRef& error) { return LKSError::localizedDescriptionForError(error); }

std::string pidPath(const SchedulerOptions& options) { return options.stateDirectory + "/" + kPidFile; }

int runInForeground(const SchedulerOptions& options) {
  platform::ErrorRef error;
  const bool served = serve(
      options,
      [&options] {
        logLine("serving %s for %s", QHVHelperServiceName, options.stateDirectory.c_str());
      },
      &error);
  if (!served) return fail(describe(error));
  logLine("stopped");
  return 0;
}

// In the child of `start`: serves with standard output and error going to the
// log file of the state directory, and tells the starter through `toStarter`
// that it serves, or why it could not.
[[noreturn]] void serveInBackground(const SchedulerOptions& options, int toStarter) {
  const auto tell = [toStarter](const std::string& text) {
    [[maybe_unused]] const ssize_t written = ::write(toStarter, text.data(), text.size());
  };
  ::setsid();
  const std::string logPath = options.stateDirectory + "/" + kLogFile;
  const int log = ::open(logPath.c_str(), O_WRONLY | O_CREAT | O_APPEND | O_CLOEXEC, 0644);
  const int nothing = ::open("/dev/null", O_RDONLY | O_CLOEXEC);
  if (log < 0 || nothing < 0 || ::dup2(nothing, STDIN_FILENO) < 0 || ::dup2(log, STDOUT_FILENO) < 0 ||
      ::dup2(log, STDERR_FILENO) < 0 || ::chdir("/") != 0) {
    tell("cannot write " + logPath + ": " + std::strerror(errno));
    ::_exit(kExitFailure);
  }
  platform::ErrorRef error;
  bool serving = false;
  const bool served = serve(
      options,
      [&] {
        logLine("serving %s for %s", QHVHelperServiceName, options.stateDirectory.c_str());
        tell(std::string(1, kReadyMark));
        ::close(toStarter);
        serving = true;
      },
      &error);
  if (!served) {
    // Before serving, the starter reports it; the log may be another scheduler's.
    if (serving) {
      logLine("%s", describe(error).c_str());
    } else {
      tell(describe(error));
    }
    ::_exit(kExitFailure);
  }
  logLine("stopped");
  std::fflush(nullptr);
  ::_exit(0);
}

int startInBackground(const SchedulerOptions& options) {
  int channel[2];
  if (::pipe2(channel, O_CLOEXEC) != 0) return fail(std::string("pipe: ") + std::strerror(errno));
  // The log file lives in the state directory, which must be there before the child opens it.
  platform::ErrorRef error;
  if (!StateStore::makeDirectory(options.stateDirectory, &error)) return fail(describe(error));
  std::fflush(nullptr);
  const pid_t child = ::fork();
  if (child < 0) return fail(std::string("fork: ") + std::strerror(errno));
  if (child == 0) {
    ::close(channel[0]);
    serveInBackground(options, channel[1]);
  }
  ::close(channel[1]);
  std::string heard;
  char buffer[512];
  for (;;) {
    const ssize_t n = ::read(channel[0], buffer, sizeof buffer);
    if (n > 0) {
      heard.append(buffer, static_cast<std::size_t>(n));
    } else if (n == 0 || errno != EINTR) {
      break;
    }
  }
  ::close(channel[0]);
  if (heard.size() == 1 && heard[0] == kReadyMark) {
    std::printf("%d\n", static_cast<int>(child));
    return 0;
  }
  int status = 0;
  while (::waitpid(child, &status, 0) < 0 && errno == EINTR) {
  }
  return fail(heard.empty() ? "the scheduler ended before it served" : heard);
}

// A descriptor that refers to process `pid` for as long as it is open, so that
// signals reach that process even if its id is reused. Made through syscall():
// the C library's header of these calls cannot be included from C++ here.
int openProcess(pid_t pid) { return static_cast<int>(::syscall(SYS_pidfd_open, pid, 0)); }

bool signalProcess(int pidfd, int signal) { return ::syscall(SYS_pidfd_send_signal, pidfd, signal, nullptr, 0) == 0; }

// Waits up to `milliseconds` for the process of `pidfd` to end.
bool waitForExit(int pidfd, int milliseconds) {
  pollfd ended{pidfd, POLLIN, 0};
  int ready = 0;
  while ((ready = ::poll(&ended, 1, milliseconds)) < 0 && errno == EINTR) {
  }
  return ready > 0;
}

// Removes what a scheduler that had to be killed left behind: its socket,
// unless another one serves there now, and its pid file.
void removeLeftovers(const SchedulerOptions& options) {
  if (!options.socketDirectory.empty()) platform::setXPCSocketDirectoryForTesting(options.socketDirectory);
  if (!platform::XPCSocket::connectToService(QHVHelperServiceName, nullptr)) {
    if (const std::optional<std::string> socket = platform::xpcServiceSocketPath(QHVHelperServiceName, nullptr)) {
      ::unlink(socket->c_str());
    }
  }
  if (!pidFileHolder(pidPath(options))) ::unlink(pidPath(options).c_str());
}

int stopBackground(const SchedulerOptions& options) {
  const std::optional<pid_t> holder = pidFileHolder(pidPath(options));
  if (!holder) {
    std::fprintf(stderr, "qhv-dev-scheduler: not running for %s\n", options.stateDirectory.c_str());
    return 0;
  }
  const int pidfd = openProcess(*holder);
  if (pidfd < 0) return errno == ESRCH ? 0 : fail(std::string("pidfd_open: ") + std::strerror(errno));
  bool ended = !signalProcess(pidfd, SIGTERM) && errno == ESRCH;
  ended = ended || waitForExit(pidfd, kStopMilliseconds);
  if (!ended) {
    signalProcess(pidfd, SIGKILL);
    ended = waitForExit(pidfd, kKillMilliseconds);
    if (ended) removeLeftovers(options);
  }
  ::close(pidfd);
  if (!ended) return fail("pid " + std::to_string(*holder) + " did not end");
  return 0;
}

int showStatus(const SchedulerOptions& options) {
  const std::optional<pid_t> holder = pidFileHolder(pidPath(options));
  if (!holder) {
    std::puts("not running");
    return kExitNotRunning;
  }
  std::printf("running (pid %d)\n", static_cast<int>(*holder));
  return 0;
}

}  // namespace

int runSchedulerCommand(const SchedulerOptions& options) {
  switch (options.command) {
    case SchedulerCommand::Run:
      return runInForeground(options);
    case SchedulerCommand::Start:
      return startInBackground(options);
    case SchedulerCommand::Stop:
      return stopBackground(options);
    case SchedulerCommand::Status:
      return showStatus(options);
    case SchedulerCommand::Help:
      std::fputs(kSchedulerUsage, stdout);
      return 0;
  }
  return kExitFailure;
}

}  // namespace dev_scheduler
