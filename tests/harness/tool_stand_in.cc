#include "harness/tool_stand_in.h"

#include <linux/magic.h>
#include <sys/mount.h>
#include <sys/stat.h>
#include <sys/vfs.h>

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <sstream>

#include "harness/end_to_end.h"

namespace testing_support {
namespace {

constexpr const char* kRecords = "/run/qhv-tool-records";
constexpr const char* kLayers = "/run/qhv-tool-layers";

// Where the stand-in at `path` records, followed by a suffix per record: its path with "/" turned to "_".
std::string records(std::string path) {
  std::replace(path.begin(), path.end(), '/', '_');
  return std::string(kRecords) + "/" + path;
}

bool onFileSystem(const std::string& path, long type) {
  struct statfs info {};
  return ::statfs(path.c_str(), &info) == 0 && static_cast<long>(info.f_type) == type;
}

std::optional<std::vector<std::string>> lines(const std::string& file) {
  const std::optional<std::string> text = readFile(file);
  if (!text) return std::nullopt;
  std::vector<std::string> out;
  std::istringstream in(*text);
  for (std::string line; std::getline(in, line);) out.push_back(line);
  return out;
}

std::string quoted(const std::string& text) {
  std::string out = "'";
  for (char c : text) out += c == '\'' ? std::string("'\\''") : std::string(1, c);
  return out + "'";
}

}  // namespace

bool ToolStandIns::coverWithOverlay(const std::string& directory, std::string* whyNot) {
  if (std::find(overlaid_.begin(), overlaid_.end(), directory) != overlaid_.end()) return true;
  const std::string layer = std::string(kLayers) + "/" + std::to_string(overlaid_.size());
  std::error_code failed;
  std::filesystem::create_directories(layer + "/upper", failed);
  std::filesystem::create_directories(layer + "/work", failed);
  const std::string options = "lowerdir=" + directory + ",upperdir=" + layer + "/upper,workdir=" + layer + "/work";
  if (!onFileSystem("/run", TMPFS_MAGIC) || failed ||
      ::mount("overlay", directory.c_str(), "overlay", 0, options.c_str()) != 0) {
    *whyNot = "cannot cover " + directory + " with an overlay on the sandbox's /run: " + std::strerror(errno);
    return false;
  }
  overlaid_.push_back(directory);
  return true;
}

bool ToolStandIns::install(const std::string& path, const std::string& behaviour, std::string* whyNot,
                           bool readsInput) {
  if (!inSandbox() || !onFileSystem("/", TMPFS_MAGIC)) {
    *whyNot = "tool stand-ins are put only inside a sandbox";
    return false;
  }
  const std::string directory = std::filesystem::path(path).parent_path();
  std::error_code failed;
  if (path.starts_with("/Library/")) {
    std::filesystem::create_directories(directory, failed);
    if (failed || !onFileSystem(directory, TMPFS_MAGIC)) {
      *whyNot = directory + " is not on the sandbox's fresh /Library";
      return false;
    }
  } else if (!coverWithOverlay(directory, whyNot)) {
    return false;
  }
  // Open to all: stand-ins run by the sandbox's ordinary user record there too.
  std::filesystem::create_directories(kRecords, failed);
  ::chmod(kRecords, 01777);
  std::ostringstream script;
  script << "#!/bin/sh\n"
         << "r=" << quoted(records(path)) << "\n"
         << "tr '\\0' '\\n' < /proc/$$/cmdline > \"$r.cmdline\"\n"
         << "printf '%s\\n' \"$0\" \"$@\" > \"$r.args\"\n"
         << "[ \"$(cut -d' ' -f6 /proc/$$/stat)\" = $PPID ] && echo yes > \"$r.led\" || echo no > \"$r.led\"\n";
  if (readsInput) script << "IFS= read -r line; printf '%s' \"$line\" > \"$r.input\"\n";
  script << "echo " << quoted(outputLine(path)) << "\n"
         << "echo " << quoted(errorLine(path)) << " >&2\n"
         << behaviour << "\n";
  std::ofstream(path, std::ios::trunc) << script.str();
  if (::chmod(path.c_str(), 0755) != 0) {
    *whyNot = "cannot make " + path + " executable";
    return false;
  }
  return true;
}

std::optional<std::vector<std::string>> ToolStandIns::arguments(const std::string& path) {
  return lines(records(path) + ".args");
}

std::optional<std::vector<std::string>> ToolStandIns::commandLine(const std::string& path) {
  return lines(records(path) + ".cmdline");
}

std::optional<std::string> ToolStandIns::inputLine(const std::string& path) { return readFile(records(path) + ".input"); }

std::optional<bool> ToolStandIns::parentLedItsSession(const std::string& path) {
  const std::optional<std::string> led = readFile(records(path) + ".led");
  return led ? std::optional<bool>(*led == "yes\n") : std::nullopt;
}

}  // namespace testing_support
