// Recording stand-ins for the system tools that the tool runs, put at the
// tools' own paths inside the current sandbox and nowhere else. A directory
// bound from the machine (/usr/bin, /usr/sbin) is first covered by an overlay
// whose writable layer lives on the sandbox's fresh /run, so the machine's
// directory is never written and the stand-in vanishes with the sandbox;
// /Library, fresh in every sandbox, is written directly.
//
// When run, a stand-in records, in /run/qhv-tool-records: its arguments ($0,
// which is the path it was started by, then one argument a line), the command
// line of its process, its environment, its session and parent process ids,
// and, when asked, the first line of its standard input; it then writes one
// line to standard output and one to standard error and runs its behaviour.
#pragma once

#include <optional>
#include <string>
#include <vector>

namespace testing_support {

class ToolStandIns {
 public:
  // Refuses, with `whyNot`, anything outside a sandbox's mount namespace.
  bool install(const std::string& path, const std::string& behaviour, std::string* whyNot,
               bool readsInput = false);

  // What the stand-in at `path` recorded in its last run; nullopt when it never ran.
  static std::optional<std::vector<std::string>> arguments(const std::string& path);
  static std::optional<std::vector<std::string>> commandLine(const std::string& path);
  static std::optional<std::vector<std::string>> environment(const std::string& path);
  static std::optional<std::string> inputLine(const std::string& path);
  // The session id and the parent's process id, as the stand-in saw them.
  static std::optional<std::pair<long, long>> sessionAndParent(const std::string& path);

  // The line the stand-in at `path` writes to standard output, and to standard error.
  static std::string outputLine(const std::string& path);
  static std::string errorLine(const std::string& path);

 private:
  bool coverWithOverlay(const std::string& directory, std::string* whyNot);
  std::vector<std::string> overlaid_;
};

}  // namespace testing_support
