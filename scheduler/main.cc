// qhv-dev-scheduler: a scheduler service for development and tests. It serves
// the scheduler's side of the numbered-message protocol over the state in a
// directory; see command_line.cc for its usage and state_files.h for its files.
#include <cstdio>
#include <string>

#include "scheduler/command_line.h"
#include "scheduler/lifecycle.h"

int main(int argc, char** argv) {
  std::string problem;
  const std::optional<dev_scheduler::SchedulerOptions> options =
      dev_scheduler::parseCommandLine(argc - 1, argv + 1, &problem);
  if (!options) {
    std::fprintf(stderr, "qhv-dev-scheduler: %s\n%s", problem.c_str(), dev_scheduler::kSchedulerUsage);
    return 2;
  }
  return dev_scheduler::runSchedulerCommand(*options);
}
