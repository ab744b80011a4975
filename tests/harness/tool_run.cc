#include "harness/tool_run.h"

#include <fcntl.h>
#include <grp.h>
#include <poll.h>
#include <signal.h>
#include <sys/wait.h>
#include <time.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <stdexcept>

#include "sandbox/sandbox.h"

namespace testing_support {

using qhv_sandbox::Sandbox;
namespace {

constexpr int kTimeoutMilliseconds = 60'000;

std::vector<std::string> environmentFor(const RunOptions& options) {
  std::vector<std::string> env = {
      "PATH=/usr/local/sbin:/usr/local/bin:/usr/sbin:/usr/bin:/sbin:/bin",
      std::string("HOME=") + (options.asUser ? Sandbox::kUserHome : "/root"),
      "LANG=C",
      "TZ=UTC",
  };
  for (const std::string& entry : options.environment) {
    const std::string name = entry.substr(0, entry.find('=') + 1);
    std::erase_if(env, [&](const std::string& e) { return e.starts_with(name); });
    env.push_back(entry);
  }
  return env;
}

std::vector<char*> pointers(std::vector<std::string>& strings) {
  std::vector<char*> out;
  for (std::string& s : strings) out.push_back(s.data());
  out.push_back(nullptr);
  return out;
}

long long monotonicMilliseconds() {
  timespec ts{};
  clock_gettime(CLOCK_MONOTONIC, &ts);
  return static_cast<long long>(ts.tv_sec) * 1000 + ts.tv_nsec / 1'000'000;
}

[[noreturn]] void execChild(const std::string& path, std::vector<std::string> argv,
                            std::vector<std::string> env, bool asUser, const std::array<int, 6>& pipes) {
  ::dup2(pipes[0], STDIN_FILENO);
  ::dup2(pipes[3], STDOUT_FILENO);
  ::dup2(pipes[5], STDERR_FILENO);
  if (asUser) {
    const gid_t group = Sandbox::kGroupId;
    if (::setgroups(1, &group) != 0 || ::setresgid(group, group, group) != 0 ||
        ::setresuid(Sandbox::kUserId, Sandbox::kUserId, Sandbox::kUserId) != 0) {
      ::_exit(126);
    }
  }
  ::signal(SIGPIPE, SIG_DFL);
  ::execve(path.c_str(), pointers(argv).data(), pointers(env).data());
  ::_exit(127);
}

}  // namespace

RunResult runProgram(const std::string& path, const std::vector<std::string>& args,
                     const RunOptions& options) {
  // in[0] in[1] out[0] out[1] err[0] err[1], all close-on-exec: dup2 clears it
  // on the three the child keeps.
  // A program that exits without reading its input must not end the test.
  ::signal(SIGPIPE, SIG_IGN);
  std::array<int, 6> pipes{};
  for (int i = 0; i < 3; ++i) {
    if (::pipe2(&pipes[2 * i], O_CLOEXEC) != 0) throw std::runtime_error("pipe2 failed");
  }
  std::vector<std::string> argv = {options.argv0.empty() ? path.substr(path.rfind('/') + 1) : options.argv0};
  argv.insert(argv.end(), args.begin(), args.end());
  const pid_t child = ::fork();
  if (child < 0) throw std::runtime_error("fork failed");
  if (child == 0) execChild(path, argv, environmentFor(options), options.asUser, pipes);
  ::close(pipes[0]);
  ::close(pipes[3]);
  ::close(pipes[5]);

  RunResult result;
  int input = pipes[1];
  std::size_t written = 0;
  if (options.input.empty()) {
    ::close(input);
    input = -1;
  } else {
    ::fcntl(input, F_SETFL, O_NONBLOCK);
  }
  std::array<std::pair<int, std::string*>, 2> outputs = {{{pipes[2], &result.out}, {pipes[4], &result.err}}};
  const long long deadline = monotonicMilliseconds() + kTimeoutMilliseconds;
  bool killed = false;
  while (outputs[0].first >= 0 || outputs[1].first >= 0) {
    std::array<pollfd, 3> fds = {{{outputs[0].first, POLLIN, 0},
                                  {outputs[1].first, POLLIN, 0},
                                  {input, POLLOUT, 0}}};
    const long long left = deadline - monotonicMilliseconds();
    if (left <= 0 && !killed) {
      ::kill(child, SIGKILL);
      killed = true;
    }
    // Something the program started may still hold its output open.
    if (killed && left < -5000) break;
    if (::poll(fds.data(), fds.size(), left > 0 ? static_cast<int>(left) : 1000) < 0 && errno != EINTR) break;
    for (std::size_t i = 0; i < outputs.size(); ++i) {
      if (fds[i].revents == 0) continue;
      char buffer[65536];
      const ssize_t n = ::read(outputs[i].first, buffer, sizeof buffer);
      if (n > 0) {
        outputs[i].second->append(buffer, static_cast<std::size_t>(n));
      } else if (n == 0 || errno != EINTR) {
        ::close(outputs[i].first);
        outputs[i].first = -1;
      }
    }
    if (input >= 0 && fds[2].revents != 0) {
      const ssize_t n = ::write(input, options.input.data() + written, options.input.size() - written);
      if (n > 0) written += static_cast<std::size_t>(n);
      if ((n < 0 && errno != EAGAIN && errno != EINTR) || written == options.input.size()) {
        ::close(input);
        input = -1;
      }
    }
  }
  if (input >= 0) ::close(input);
  for (const auto& [fd, text] : outputs) {
    if (fd >= 0) ::close(fd);
  }
  int status = 0;
  while (::waitpid(child, &status, 0) < 0 && errno == EINTR) {
  }
  if (WIFEXITED(status)) result.exitStatus = WEXITSTATUS(status);
  if (WIFSIGNALED(status)) result.signal = WTERMSIG(status);
  return result;
}

std::string toolPath() { return QHV_TOOL_PATH; }

RunResult runTool(const std::vector<std::string>& args, const RunOptions& options) {
  return runProgram(toolPath(), args, options);
}

}  // namespace testing_support
