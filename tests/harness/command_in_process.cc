#include "harness/command_in_process.h"

#include <optional>

#include "authorization/authorization_manager.h"
#include "cli/command_table.h"
#include "cli/dispatcher.h"
#include "cli/request.h"
#include "harness/installed.h"
#include "harness/standard_streams.h"
#include "messaging/helper_messager.h"
#include "platform/foundation/user_ids.h"
#include "sandbox/sandbox.h"

namespace testing_support {
namespace {

// The run in progress, for the process end to read: its streams, and how it
// ended when the root stop ended it.
struct RunInProgress {
  const CapturedOutput& out;
  const CapturedOutput& err;
  std::optional<RunResult> ended;
};
RunInProgress* running = nullptr;

// Where the process would end, the run's outcome is taken; what the handler
// does after the stop returns is no part of it.
void endRun(int status) {
  if (running->ended) return;
  running->ended = RunResult{running->out.text(), running->err.text(), status};
}

}  // namespace

RunResult runCommandInProcess(const std::vector<std::string>& args, const RunOptions& options) {
  using qhv_sandbox::Sandbox;
  const platform::FixedUserIds ids = options.asUser ? platform::FixedUserIds(Sandbox::kUserId, Sandbox::kUserId)
                                                    : platform::FixedUserIds(0, 0);
  const Installed<platform::UserIds> acting(&ids);
  std::vector<std::string> words = {"qhvctl"};
  words.insert(words.end(), args.begin(), args.end());
  std::vector<char*> argv;
  for (std::string& word : words) argv.push_back(word.data());
  argv.push_back(nullptr);

  RunResult result;
  {
    const GivenInput input(options.input);
    const CapturedOutput out(STDOUT_FILENO), err(STDERR_FILENO);
    RunInProgress run{out, err, std::nullopt};
    running = &run;
    set_process_end_for_testing(endRun);
    const int status = dispatch_command(commands, static_cast<int>(words.size()), argv.data());
    set_process_end_for_testing(nullptr);
    running = nullptr;
    result = run.ended.value_or(RunResult{out.text(), err.text(), status});
  }
  QHVHelperMessager::sharedMessager().cancel();
  LKSAuthorizationManager::sharedManager().invalidate();
  return result;
}

}  // namespace testing_support
