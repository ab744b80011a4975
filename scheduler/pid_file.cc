#include "scheduler/pid_file.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>

#include "scheduler/state_files.h"

namespace dev_scheduler {
namespace {

// How often a lock is taken again when the file it was taken on had just been
// removed by a scheduler that stopped.
constexpr int kLockAttempts = 5;

struct flock wholeFile(short type) {
  struct flock region {};
  region.l_type = type;
  region.l_whence = SEEK_SET;
  return region;
}

}  // namespace

std::unique_ptr<PidFile> PidFile::lock(const std::string& path, pid_t* holder, platform::ErrorRef* error) {
  *holder = 0;
  for (int attempt = 0; attempt < kLockAttempts; ++attempt) {
    const int fd = ::open(path.c_str(), O_RDWR | O_CREAT | O_CLOEXEC | O_NOFOLLOW, 0644);
    if (fd < 0) {
      if (error) *error = fileError("cannot open", path, errno);
      return nullptr;
    }
    struct flock region = wholeFile(F_WRLCK);
    if (::fcntl(fd, F_SETLK, &region) != 0) {
      const int failure = errno;
      ::close(fd);
      if (failure != EACCES && failure != EAGAIN) {
        if (error) *error = fileError("cannot lock", path, failure);
        return nullptr;
      }
      if (const std::optional<pid_t> other = pidFileHolder(path)) {
        *holder = *other;
        return nullptr;
      }
      continue;  // its holder has just let go
    }
    // A scheduler that stopped removes its file before letting go of the lock:
    // a lock taken on that removed file locks nothing that others can see.
    struct stat opened {}, named {};
    if (::fstat(fd, &opened) != 0 || ::stat(path.c_str(), &named) != 0 || opened.st_ino != named.st_ino) {
      ::close(fd);
      continue;
    }
    const std::string pid = std::to_string(::getpid()) + "\n";
    if (::ftruncate(fd, 0) != 0 || ::pwrite(fd, pid.data(), pid.size(), 0) != static_cast<ssize_t>(pid.size())) {
      if (error) *error = fileError("cannot write", path, errno);
      ::close(fd);
      return nullptr;
    }
    return std::unique_ptr<PidFile>(new PidFile(path, fd));
  }
  if (error) *error = fileError("cannot lock", path, EAGAIN);
  return nullptr;
}

PidFile::~PidFile() {
  ::unlink(path_.c_str());
  ::close(fd_);
}

std::optional<pid_t> pidFileHolder(const std::string& path) {
  const int fd = ::open(path.c_str(), O_RDONLY | O_CLOEXEC | O_NOFOLLOW);
  if (fd < 0) return std::nullopt;
  struct flock region = wholeFile(F_WRLCK);
  const bool asked = ::fcntl(fd, F_GETLK, &region) == 0;
  ::close(fd);
  if (!asked || region.l_type == F_UNLCK) return std::nullopt;
  return region.l_pid;
}

}  // namespace dev_scheduler
