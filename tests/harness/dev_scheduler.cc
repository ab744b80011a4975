#include "harness/dev_scheduler.h"

namespace testing_support {

DevScheduler::~DevScheduler() {
  if (serving_) stop();
}

bool DevScheduler::command(const char* command) const {
  const RunResult run = runScheduler({command, "--state", stateDirectory()});
  if (run.exitStatus != 0) ADD_FAILURE() << "the development scheduler's " << command << " failed: " << run.err;
  return run.exitStatus == 0;
}

bool DevScheduler::start() {
  // It serves the system's service directory: only ever that of a sandbox.
  if (!inSandbox()) ADD_FAILURE() << "the development scheduler serves only inside a sandbox";
  serving_ = inSandbox() && command("start");
  return serving_;
}

bool DevScheduler::stop() {
  if (!command("stop")) return false;
  serving_ = false;
  return true;
}

RunResult runScheduler(const std::vector<std::string>& args, const RunOptions& options) {
  return runProgram(QHV_SCHEDULER_PATH, args, options);
}

}  // namespace testing_support
