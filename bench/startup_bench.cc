// What a run of the tool costs, each a whole process from spawn to exit, each
// beside its anchor in the same run, the two spawned in turn: `qhvctl version`
// (start-up alone) beside `/bin/true` and beside a C program that prints the
// same line, and `qhvctl status` (one round trip to the development scheduler)
// beside `qhvctl version`. The tool is the stripped one, as installed. The
// counters give both medians and their ratio. As root, everything happens
// inside a sandbox, so the log files written and the service socket are not
// the machine's; otherwise HOME points at a temporary directory and the round
// trip is not measured.
#include <benchmark/benchmark.h>
#include <fcntl.h>
#include <sys/stat.h>
#include <spawn.h>
#include <stdlib.h>
#include <sys/wait.h>
#include <time.h>
#include <unistd.h>

#include <algorithm>
#include <cstdio>
#include <memory>
#include <string>
#include <utility>
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

double secondsNow() {
  timespec now{};
  clock_gettime(CLOCK_MONOTONIC, &now);
  return static_cast<double>(now.tv_sec) + static_cast<double>(now.tv_nsec) * 1e-9;
}

// The seconds a run of `argv` takes from spawn to exit; negative when it fails.
double timedRun(const std::vector<const char*>& argv) {
  const double start = secondsNow();
  const int status = spawnAndWait(argv);
  return status == 0 ? secondsNow() - start : -1;
}

double median(std::vector<double> values) {
  std::nth_element(values.begin(), values.begin() + values.size() / 2, values.end());
  return values[values.size() / 2];
}

// Spawns `subject` and `anchor` in turn, each first every other time so that
// neither always finds the caches the other left. The iteration time is the
// subject's; the counters are both medians in microseconds and their ratio.
void compare(benchmark::State& state, const std::vector<const char*>& subject,
             const std::vector<const char*>& anchor) {
  std::vector<double> subjectTimes, anchorTimes;
  for (auto _ : state) {
    const bool anchorFirst = subjectTimes.size() % 2 == 0;
    const double before = anchorFirst ? timedRun(anchor) : 0;
    const double subjectTime = timedRun(subject);
    const double anchorTime = anchorFirst ? before : timedRun(anchor);
    if (subjectTime < 0 || anchorTime < 0) {
      state.SkipWithError(subjectTime < 0 ? "the program measured failed" : "the anchor failed");
      break;
    }
    subjectTimes.push_back(subjectTime);
    anchorTimes.push_back(anchorTime);
    state.SetIterationTime(subjectTime);
  }
  if (state.error_occurred() || subjectTimes.empty()) return;
  const double subjectMedian = median(std::move(subjectTimes)), anchorMedian = median(std::move(anchorTimes));
  state.counters["median_us"] = subjectMedian * 1e6;
  state.counters["anchor_median_us"] = anchorMedian * 1e6;
  state.counters["ratio"] = subjectMedian / anchorMedian;
}

void BM_VersionBesideBinTrue(benchmark::State& state) {
  compare(state, {QHV_INSTALLED_TOOL_PATH, "version"}, {"/bin/true"});
}
BENCHMARK(BM_VersionBesideBinTrue)->Unit(benchmark::kMicrosecond)->UseManualTime();

void BM_VersionBesideCProgram(benchmark::State& state) {
  compare(state, {QHV_INSTALLED_TOOL_PATH, "version"}, {QHV_PRINT_VERSION_LINE_PATH});
}
BENCHMARK(BM_VersionBesideCProgram)->Unit(benchmark::kMicrosecond)->UseManualTime();

void BM_StatusBesideVersion(benchmark::State& state) {
  if (geteuid() != 0) {
    state.SkipWithError("the round trip needs root (a sandbox with the development scheduler)");
    return;
  }
  compare(state, {QHV_INSTALLED_TOOL_PATH, "status"}, {QHV_INSTALLED_TOOL_PATH, "version"});
}
BENCHMARK(BM_StatusBesideVersion)->Unit(benchmark::kMicrosecond)->UseManualTime();

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
