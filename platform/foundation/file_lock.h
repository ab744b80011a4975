// An exclusive advisory lock (flock) on a file of its own, which other
// processes that take the same lock wait for.
#pragma once

#include <string>

namespace platform {

// Holds an exclusive lock on the file at `path` (made, mode 0600, when missing;
// a symbolic link there is refused) while alive; waits as long as another
// process holds it. failure() is 0 when the lock was had, otherwise the errno
// value of the open or the lock that failed.
class FileLock {
 public:
  explicit FileLock(const std::string& path);
  ~FileLock();
  FileLock(const FileLock&) = delete;
  FileLock& operator=(const FileLock&) = delete;

  int failure() const { return failure_; }

 private:
  int fd_;
  int failure_ = 0;
};

}  // namespace platform
