// Start-up cost of the tool: `qhvctl version` beside `/bin/true`, each a whole
// process from spawn to exit. As root, the runs happen inside a sandbox, so the
// log file they open is not the machine's; otherwise HOME points at a
// temporary directory.
#include <benchmark/benchmark.h>
#include <fcntl.h>
#include <spawn.h>
#include <stdlib.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cstdio>
#include <memory>
#include <string>

#include "sandbox/sandbox.h"

extern char** environ;

namespace {

void spawnAndWait(benchmark::State& state, const char* path, const char* argument) {
  char* argv[] = {const_cast<char*>(path), const_cast<char*>(argument), nullptr};
  posix_spawn_file_actions_t actions;
  posix_spawn_file_actions_init(&actions);
  posix_spawn_file_actions_addopen(&actions, STDOUT_FILENO, "/dev/null", O_WRONLY, 0);
  for (auto _ : state) {
    pid_t child = 0;
    if (posix_spawn(&child, path, &actions, nullptr, argv, environ) != 0) {
      state.SkipWithError("cannot spawn");
      break;
    }
    int status = 0;
    waitpid(child, &status, 0);
    if (!WIFEXITED(status) || WEXITSTATUS(status) != 0) {
      state.SkipWithError("the program failed");
      break;
    }
  }
  posix_spawn_file_actions_destroy(&actions);
}

void BM_BinTrue(benchmark::State& state) { spawnAndWait(state, "/bin/true", nullptr); }
BENCHMARK(BM_BinTrue)->Unit(benchmark::kMicrosecond)->UseRealTime();

void BM_QhvctlVersion(benchmark::State& state) { spawnAndWait(state, QHV_TOOL_PATH, "version"); }
BENCHMARK(BM_QhvctlVersion)->Unit(benchmark::kMicrosecond)->UseRealTime();

}  // namespace

int main(int argc, char** argv) {
  std::unique_ptr<qhv_sandbox::Sandbox> sandbox;
  char home[] = "/tmp/qhv-bench-XXXXXX";
  if (geteuid() == 0) {
    std::string whyNot;
    sandbox = qhv_sandbox::Sandbox::enter(&whyNot);
    if (!sandbox) {
      std::fprintf(stderr, "startup_bench: %s\n", whyNot.c_str());
      return 1;
    }
  } else if (mkdtemp(home)) {
    setenv("HOME", home, 1);
  }
  benchmark::Initialize(&argc, argv);
  benchmark::RunSpecifiedBenchmarks();
  benchmark::Shutdown();
  return 0;
}
