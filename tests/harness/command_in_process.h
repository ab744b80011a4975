// A command line of the tool run in the test's own process: through the
// dispatcher and the real command table, as root or as an ordinary user by the
// user-id seam, with standard input given and standard output and error
// captured. Each run starts, as a run of the tool would, with no connection to
// the service and no authorization held.
#pragma once

#include <string>
#include <vector>

#include "harness/tool_run.h"

namespace testing_support {

// Runs `args` (after the program name) with `options.asUser` and
// `options.input`; the program name and environment are the test program's.
// A run that the root stop ends reports what was printed until then and the
// status it ends with, as the tool's process would.
RunResult runCommandInProcess(const std::vector<std::string>& args, const RunOptions& options = {});

}  // namespace testing_support
