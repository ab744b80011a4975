#include "harness/tool_stand_in.h"

#include <linux/magic.h>
#include <sys/mount.h>
#include <sys/stat.h>
#include <sys/vfs.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <sstream>

#include "harness/files.h"

namespace testing_support {
namespace {

constexpr const char* kRecords = "/run/qhv-tool-records";
constexpr const char* kLayers = "/run/qhv-tool-layers";

// A file name for records of the tool at `path`: its path with "/" turned to "_".
std::string recordBase(const std::string& path) {
  std::string key = path;
  std::replace(key.begin(), key.end(), '/', '_');
  return std::string(kRecords) + "/" + key;
}

std::string link(const char* path) {
  char target[256] = {};
  const ssize_t length = ::readlink(path, target, sizeof target - 1);
  return length > 0 ? std::string(target, static_cast<std::size_t>(length)) : std::string();
}

// The mount namespace the program started in: the machine's, unless the
// whole program runs in a sandbox already.
const std::string kStartingNamespace = link("/proc/self/ns/mnt");

bool onFileSystem(const std::string& path, long type) {
  struct statfs info {};
  return ::statfs(path.c_str(), &info) == 0 && static_cast<long>(info.f_type) == type;
}

// True only in a mount namespace other than the one the program started in,
// whose root is a sandbox's tmpfs.
bool inSandbox(std::string* whyNot) {
  const std::string own = link("/proc/self/ns/mnt");
  if (own.empty() || kStartingNamespace.empty() || own == kStartingNamespace || !onFileSystem("/", TMPFS_MAGIC)) {
    *whyNot = "tool stand-ins are put only inside a sandbox";
    return false;
  }
  return true;
}

std::optional<std::vector<std::string>> lines(const std::string& file, char separator = '\n') {
  const std::optional<std::string> text = readFile(file);
  if (!text) return std::nullopt;
  std::vector<std::string> out;
  std::istringstream in(*text);
  for (std::string line; std::getline(in, line, separator);) out.push_back(line);
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
  if (!onFileSystem("/run", TMPFS_MAGIC)) {
    *whyNot = "/run is not the sandbox's own";
    return false;
  }
  const std::string layer = std::string(kLayers) + "/" + std::to_string(overlaid_.size());
  std::error_code failed;
  std::filesystem::create_directories(layer + "/upper", failed);
  std::filesystem::create_directories(layer + "/work", failed);
  const std::string options =
      "lowerdir=" + directory + ",upperdir=" + layer + "/upper,workdir=" + layer + "/work";
  if (failed || ::mount("overlay", directory.c_str(), "overlay", 0, options.c_str()) != 0) {
    *whyNot = "cannot cover " + directory + " with an overlay: " + std::strerror(errno);
    return false;
  }
  overlaid_.push_back(directory);
  return true;
}

bool ToolStandIns::install(const std::string& path, const std::string& behaviour, std::string* whyNot,
                           bool readsInput) {
  if (!inSandbox(whyNot)) return false;
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
  } else if (!onFileSystem(directory, OVERLAYFS_SUPER_MAGIC)) {
    *whyNot = directory + " is not covered";
    return false;
  }
  // Open to all: stand-ins run by the sandbox's ordinary user record there too.
  std::filesystem::create_directories(kRecords, failed);
  ::chmod(kRecords, 01777);
  const std::string base = quoted(recordBase(path));
  std::ostringstream script;
  script << "#!/bin/sh\n"
         << "r=" << base << "\n"
         << "tr '\\0' '\\n' < /proc/$$/cmdline > \"$r.cmdline\"\n"
         << "printf '%s\\n' \"$0\" \"$@\" > \"$r.args\"\n"
         << "env > \"$r.env\"\n"
         << "echo $(cut -d' ' -f6 /proc/$$/stat) $PPID > \"$r.session\"\n";
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
  return lines(recordBase(path) + ".args");
}

std::optional<std::vector<std::string>> ToolStandIns::commandLine(const std::string& path) {
  return lines(recordBase(path) + ".cmdline");
}

std::optional<std::vector<std::string>> ToolStandIns::environment(const std::string& path) {
  return lines(recordBase(path) + ".env");
}

std::optional<std::string> ToolStandIns::inputLine(const std::string& path) {
  return readFile(recordBase(path) + ".input");
}

std::optional<std::pair<long, long>> ToolStandIns::sessionAndParent(const std::string& path) {
  const std::optional<std::string> text = readFile(recordBase(path) + ".session");
  if (!text) return std::nullopt;
  std::pair<long, long> ids{};
  std::istringstream(*text) >> ids.first >> ids.second;
  return ids;
}

std::string ToolStandIns::outputLine(const std::string& path) { return path + " writes to standard output"; }

std::string ToolStandIns::errorLine(const std::string& path) { return path + " writes to standard error"; }

}  // namespace testing_support
