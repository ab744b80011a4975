#include "harness/python_runner.h"

#include <fcntl.h>
#include <spawn.h>
#include <sys/wait.h>

#include <cerrno>
#include <map>
#include <mutex>

#include "harness/temp_dir.h"

extern char** environ;

namespace testing_support {

std::optional<PythonRun> runPython(const std::string& script, const std::vector<std::string>& args) {
  // Output goes to files rather than pipes, so that a chatty child never blocks.
  TempDir dir;
  posix_spawn_file_actions_t actions;
  posix_spawn_file_actions_init(&actions);
  posix_spawn_file_actions_addopen(&actions, 1, dir.file("out").c_str(), O_WRONLY | O_CREAT | O_TRUNC, 0600);
  posix_spawn_file_actions_addopen(&actions, 2, dir.file("err").c_str(), O_WRONLY | O_CREAT | O_TRUNC, 0600);
  std::vector<std::string> words = {"python3", "-c", script};
  words.insert(words.end(), args.begin(), args.end());
  std::vector<char*> argv;
  for (std::string& word : words) argv.push_back(word.data());
  argv.push_back(nullptr);
  pid_t pid;
  const int spawned = posix_spawnp(&pid, "python3", &actions, nullptr, argv.data(), environ);
  posix_spawn_file_actions_destroy(&actions);
  if (spawned != 0) return std::nullopt;
  int status = 0;
  while (waitpid(pid, &status, 0) < 0) {
    if (errno != EINTR) return std::nullopt;
  }
  return PythonRun{WIFEXITED(status) ? WEXITSTATUS(status) : -1, dir.read("out"), dir.read("err")};
}

bool pythonHasModule(const std::string& module) {
  // Asked once per module and process: starting python3 is slow.
  static std::mutex lock;
  static std::map<std::string, bool> known;
  const std::lock_guard<std::mutex> guard(lock);
  const auto found = known.find(module);
  if (found != known.end()) return found->second;
  const auto run = runPython("import " + module);
  return known[module] = run && run->status == 0;
}

}  // namespace testing_support
