// The entry point: one command per run, synchronously, its result the exit status.
#include "cli/command_table.h"
#include "cli/dispatcher.h"
#include "cli/standard_output.h"
#include "log/log.h"

int main(int argc, char** argv) {
  LKSLogInit("com.larkspan.quillhaven", "ctl");
  return finish_standard_output(dispatch_command(commands, argc, argv));
}
