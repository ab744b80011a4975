// Runs of commands that talk to the development scheduler, checked whole: what
// was printed on which stream, the exit status, and what reached the
// scheduler. The same rows serve runs of the built tool and runs of its
// command line in the test's own process.
#pragma once

#include <functional>
#include <string>
#include <vector>

#include "harness/scheduler_state.h"
#include "harness/tool_run.h"

namespace testing_support {

inline constexpr const char* kRefusal = "This command requires root privileges.\n";
inline constexpr bool kRoot = false;
inline constexpr bool kUser = true;

// One run of the tool and all it must come to.
struct ToolRun {
  std::vector<std::string> args;
  bool asUser;
  std::string out;
  std::string err;
  int exitStatus;
  std::vector<std::int64_t> messages;  // their numbers, as they reached the scheduler
  platform::Value payload = {};        // of the last of them; absent when it had none
  std::string input = {};
};

// How a run is made: runTool, or runCommandInProcess.
using RunMaker = std::function<RunResult(const std::vector<std::string>& args, const RunOptions& options)>;

inline platform::Value enabledPayload(bool on) {
  return platform::Value::dictionary({{"Enabled", platform::Value::boolean(on)}});
}

// Makes each of `runs` with `run`, after `beforeEach`, against `scheduler`, and
// checks everything it says. Every request must carry "auth" exactly when its
// message needs rights, and a valid one.
void expectRuns(SchedulerState& scheduler, const RunMaker& run, const std::vector<ToolRun>& runs,
                const std::function<void()>& beforeEach = {});

}  // namespace testing_support
