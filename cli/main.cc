// The entry point: one command per run, synchronously, its result the exit status.
#include <cerrno>
#include <cstdio>
#include <cstring>

#include "cli/command_table.h"
#include "cli/dispatcher.h"
#include "log/log.h"
#include "platform/program_name.h"

namespace {

// Output goes to scripts: a write that failed (a full disk, a closed pipe
// reader) must not pass for success.
int check_standard_output(int status) {
  if (std::fflush(stdout) == 0 && !std::ferror(stdout)) return status;
  std::fprintf(stderr, "%s: write error: %s\n", platform::getprogname(), std::strerror(errno));
  return 1;
}

}  // namespace

int main(int argc, char** argv) {
  LKSLogInit("com.larkspan.quillhaven", "ctl");
  return check_standard_output(dispatch_command(commands, argc, argv));
}
