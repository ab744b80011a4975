#include "platform/foundation/file_lock.h"

#include <fcntl.h>
#include <sys/file.h>
#include <unistd.h>

#include <cerrno>

namespace platform {

FileLock::FileLock(const std::string& path)
    : fd_(::open(path.c_str(), O_RDWR | O_CREAT | O_NOFOLLOW | O_CLOEXEC, 0600)) {
  if (fd_ < 0) {
    failure_ = errno;
    return;
  }
  while (::flock(fd_, LOCK_EX) != 0) {
    if (errno != EINTR) {
      failure_ = errno;
      return;
    }
  }
}

FileLock::~FileLock() {
  if (fd_ >= 0) ::close(fd_);
}

}  // namespace platform
