// Recording stand-ins for the system tools that the tool runs, put at their own
// paths inside the current sandbox only: /usr/bin and /usr/sbin are first
// covered by an overlay whose writable layer is on the sandbox's fresh /run;
// /Library, fresh in every sandbox, is written directly. When run, a stand-in
// records what the accessors below return, writes one line to standard output
// and one to standard error, then runs its behaviour (shell commands).
#pragma once

#include <optional>
#include <string>
#include <vector>

namespace testing_support {

class ToolStandIns {
 public:
  // Refuses, with `whyNot`, anything outside a sandbox. With `readsInput` the
  // stand-in reads a line of its standard input first.
  bool install(const std::string& path, const std::string& behaviour, std::string* whyNot,
               bool readsInput = false);

  // What the stand-in at `path` recorded in its last run; nullopt when it never ran.
  // $0 (the path it was started by), then its arguments.
  static std::optional<std::vector<std::string>> arguments(const std::string& path);
  // The command line of its process (the shell's, with the stand-in's path).
  static std::optional<std::vector<std::string>> commandLine(const std::string& path);
  // The line it read, without its line end.
  static std::optional<std::string> inputLine(const std::string& path);
  // Whether its parent, the tool, led its session.
  static std::optional<bool> parentLedItsSession(const std::string& path);

  // The line the stand-in at `path` writes to standard output, and to standard error.
  static std::string outputLine(const std::string& path) { return path + " writes to standard output"; }
  static std::string errorLine(const std::string& path) { return path + " writes to standard error"; }

 private:
  bool coverWithOverlay(const std::string& directory, std::string* whyNot);
  std::vector<std::string> overlaid_;
};

}  // namespace testing_support
