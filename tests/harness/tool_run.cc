#include "harness/tool_run.h"

#include <grp.h>
#include <poll.h>
#include <signal.h>
#include <sys/mman.h>
#include <sys/syscall.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>
#include <stdexcept>

#include "harness/files.h"
#include "sandbox/sandbox.h"

namespace testing_support {
namespace {

using qhv_sandbox::Sandbox;

std::vector<std::string> environmentFor(const RunOptions& options) {
  std::vector<std::string> env = {"PATH=/usr/local/sbin:/usr/local/bin:/usr/sbin:/usr/bin:/sbin:/bin",
                                  std::string("HOME=") + (options.asUser ? Sandbox::kUserHome : "/root"), "LANG=C",
                                  "TZ=UTC"};
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

// A file in memory holding `contents`, read from its start: as a child's stream,
// nothing to pump while it runs, and its own children's output lands in order.
int memoryFile(const std::string& contents) {
  const int fd = ::memfd_create("qhv-test-stream", MFD_CLOEXEC);
  if (fd < 0 || ::write(fd, contents.data(), contents.size()) != static_cast<ssize_t>(contents.size()) ||
      ::lseek(fd, 0, SEEK_SET) != 0) {
    throw std::runtime_error("cannot make a stream for a child");
  }
  return fd;
}

[[noreturn]] void execChild(const std::string& path, std::vector<std::string> argv, std::vector<std::string> env,
                            bool asUser, const int (&streams)[3]) {
  for (int i = 0; i < 3; ++i) ::dup2(streams[i], i);
  const gid_t group = Sandbox::kGroupId;
  if (asUser && (::setgroups(1, &group) != 0 || ::setresgid(group, group, group) != 0 ||
                 ::setresuid(Sandbox::kUserId, Sandbox::kUserId, Sandbox::kUserId) != 0)) {
    ::_exit(126);
  }
  ::signal(SIGPIPE, SIG_DFL);
  ::execve(path.c_str(), pointers(argv).data(), pointers(env).data());
  ::_exit(127);
}

}  // namespace

RunResult runProgram(const std::string& path, const std::vector<std::string>& args, const RunOptions& options) {
  const int streams[3] = {memoryFile(options.input), memoryFile(""), memoryFile("")};
  std::vector<std::string> argv = {options.argv0.empty() ? path.substr(path.rfind('/') + 1) : options.argv0};
  argv.insert(argv.end(), args.begin(), args.end());
  const pid_t child = ::fork();
  if (child < 0) throw std::runtime_error("fork failed");
  if (child == 0) execChild(path, argv, environmentFor(options), options.asUser, streams);

  pollfd exited = {static_cast<int>(::syscall(SYS_pidfd_open, child, 0)), POLLIN, 0};
  if (exited.fd >= 0 && ::poll(&exited, 1, 60'000) == 0) ::kill(child, SIGKILL);
  if (exited.fd >= 0) ::close(exited.fd);
  int status = 0;
  while (::waitpid(child, &status, 0) < 0 && errno == EINTR) {
  }
  RunResult result;
  result.out = readDescriptor(streams[1]);
  result.err = readDescriptor(streams[2]);
  for (const int stream : streams) ::close(stream);
  if (WIFEXITED(status)) result.exitStatus = WEXITSTATUS(status);
  if (WIFSIGNALED(status)) result.signal = WTERMSIG(status);
  return result;
}

std::string toolPath() { return QHV_TOOL_PATH; }

RunResult runTool(const std::vector<std::string>& args, const RunOptions& options) {
  return runProgram(toolPath(), args, options);
}

}  // namespace testing_support
