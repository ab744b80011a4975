// Runs python3 as a child process, so that codecs can be checked against an
// independent implementation in Python's standard library.
#pragma once

#include <optional>
#include <string>
#include <vector>

namespace testing_support {

struct PythonRun {
  int status = -1;  // the exit status; -1 when python3 died of a signal
  std::string out;  // standard output
  std::string err;  // standard error
};

// Runs `python3 -c script args...`. Returns what it printed and its exit
// status, or nullopt when python3 could not be started.
std::optional<PythonRun> runPython(const std::string& script, const std::vector<std::string>& args = {});

// True when python3 runs and imports `module`.
bool pythonHasModule(const std::string& module);

}  // namespace testing_support
