// What a run of the tool costs, each a whole process from spawn to exit:
// `qhvctl version` (start-up alone) and `qhvctl status` (one round trip to the
// development scheduler) beside `/bin/true`. As root, everything happens inside
// a sandbox, so the log files written and the service socket are not the
// machine's; otherwise HOME points at a temporary directory and the round trip
// is not measured.
#include <benchmark/benchmark.h>
#include <fcntl.h>
#include <sys/stat.h>
#include <spawn.h>
#include <stdlib.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cstdio>
#include <memory>
#include <string>
#include <vector>

#include "sandbox/sandbox.h"

extern char** environ;

namespace {

constexpr const char* kSchedulerState = "/run/qhv-bench-scheduler";

// Runs `argv` with standard output thrown away; its exit status.
int spawnAndWait(const std::vector<const char*>& arguments) {
  std::vector<char*> argv;
  for (const char* argument : arguments) argv.push_back(const_cast<char*>(argument));
  argv.push_back(nullptr);
  posix_spawn_file_actions_t actions;
  posix_spawn_file_actions_init(&actions);
  posix_spawn_file_actions_addopen(&actions, STDOUT_FILENO, "/dev/null", O_WRONLY, 0);
  pid_t child = 0;
  int status = -1;
  if (posix_spawn(&child, argv[0], &actions, nullptr, argv.data(), environ) == 0) waitpid(child, &status, 0);
  posix_spawn_file_actions_destroy(&actions);
  return WIFEXITED(status) ? WEXITSTATUS(status) : -1;
}

void measure(benchmark::State& state, std::vector<const char*> argv) {
  for (auto _ : state) {
    if (spawnAndWait(argv) != 0) {
      state.SkipWithError("the program failed");
      break;
    }
  }
}

void BM_BinTrue(benchmark::State& state) { measure(state, {"/bin/true"}); }
BENCHMARK(BM_BinTrue)->Unit(benchmark::kMicrosecond)->UseRealTime();

void BM_QhvctlVersion(benchmark::State& state) { measure(state, {QHV_TOOL_PATH, "version"}); }
BENCHMARK(BM_QhvctlVersion)->Unit(benchmark::kMicrosecond)->UseRealTime();

void BM_QhvctlStatus(benchmark::State& state) {
  if (geteuid() != 0) {
    state.SkipWithError("the round trip needs root (a sandbox with the development scheduler)");
    return;
  }
  measure(state, {QHV_TOOL_PATH, "status"});
}
BENCHMARK(BM_QhvctlStatus)->Unit(benchmark::kMicrosecond)->UseRealTime();

}  // namespace

int main(int argc, char** argv) {
  std::unique_ptr<qhv_sandbox::Sandbox> sandbox;
  char home[] = "/tmp/qhv-bench-XXXXXX";
  const bool root = geteuid() == 0;
  if (root) {
    std::string whyNot;
    sandbox = qhv_sandbox::Sandbox::enter(&whyNot);
    if (!sandbox) {
      std::fprintf(stderr, "startup_bench: %s\n", whyNot.c_str());
      return 1;
    }
    ::mkdir(kSchedulerState, 0755);
    if (spawnAndWait({QHV_SCHEDULER_PATH, "start", "--state", kSchedulerState}) != 0) {
      std::fprintf(stderr, "startup_bench: the development scheduler did not start\n");
      return 1;
    }
  } else if (mkdtemp(home)) {
    setenv("HOME", home, 1);
  }
  benchmark::Initialize(&argc, argv);
  benchmark::RunSpecifiedBenchmarks();
  benchmark::Shutdown();
  if (root) spawnAndWait({QHV_SCHEDULER_PATH, "stop", "--state", kSchedulerState});
  return 0;
}
