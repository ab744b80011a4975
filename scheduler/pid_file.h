// The pid file of a state directory. The serving process holds a write lock on
// it for as long as it serves, so the lock, not the file, says who serves: a
// pid file left behind by a process that died names nobody.
#pragma once

#include <sys/types.h>

#include <memory>
#include <optional>
#include <string>

#include "platform/plist/value.h"

namespace dev_scheduler {

class PidFile {
 public:
  // Locks the pid file at `path` (made when missing) for this process and
  // writes its id there. Null when another process holds it (*holder set to its
  // id) or, with an error (*holder 0), when the file cannot be made or written.
  static std::unique_ptr<PidFile> lock(const std::string& path, pid_t* holder, platform::ErrorRef* error);

  // Removes the file, then releases the lock.
  ~PidFile();
  PidFile(const PidFile&) = delete;
  PidFile& operator=(const PidFile&) = delete;

 private:
  PidFile(std::string path, int fd) : path_(std::move(path)), fd_(fd) {}

  std::string path_;
  int fd_;
};

// The id of the process that holds the pid file at `path`; nullopt when no
// process does (or there is no such file).
std::optional<pid_t> pidFileHolder(const std::string& path);

}  // namespace dev_scheduler
