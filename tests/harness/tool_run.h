// Running a program as the end-to-end tests do: arguments, standard input and
// environment given, standard output and error captured whole, as root or as
// the sandbox's unprivileged user.
#pragma once

#include <string>
#include <vector>

namespace testing_support {

struct RunOptions {
  // As the sandbox's unprivileged user with HOME at its home; otherwise as root with HOME=/root.
  bool asUser = false;
  // All that standard input holds.
  std::string input;
  // argv[0]; the path's base name when empty.
  std::string argv0;
  // More "NAME=value" entries; a later entry of the same name wins.
  std::vector<std::string> environment;
};

struct RunResult {
  std::string out;
  std::string err;
  int exitStatus = -1;  // 0-255 when the program exited
  int signal = 0;       // the signal that ended it, otherwise 0
};

// Runs `path` with `args` (after argv[0]) in a small fixed environment (PATH, HOME,
// LANG=C, TZ=UTC) and waits for it, killing it after 60 seconds; 127 when it cannot start.
RunResult runProgram(const std::string& path, const std::vector<std::string>& args,
                     const RunOptions& options = {});

// runProgram with the built qhvctl.
RunResult runTool(const std::vector<std::string>& args, const RunOptions& options = {});

// The path of the built qhvctl.
std::string toolPath();

}  // namespace testing_support
