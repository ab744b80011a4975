#include "platform/foundation/protected_file.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>

#include "platform/foundation/file_contents.h"

namespace platform {
namespace {

// Only root and the process's own user are trusted as writers: a file that
// anybody else could have written might grant rights its reader never gave.
bool hasTrustedOwner(const struct stat& st) {
  return (st.st_uid == 0 || st.st_uid == geteuid()) && (st.st_mode & (S_IWGRP | S_IWOTH)) == 0;
}

class FileDescriptor {
 public:
  explicit FileDescriptor(int fd) : fd_(fd) {}
  ~FileDescriptor() {
    if (fd_ >= 0) ::close(fd_);
  }
  FileDescriptor(const FileDescriptor&) = delete;
  FileDescriptor& operator=(const FileDescriptor&) = delete;
  int get() const { return fd_; }
  // Closes now, so that a failing close is reported; returns 0 or an errno value.
  int close() {
    int result = ::close(fd_);
    fd_ = -1;
    return result == 0 ? 0 : errno;
  }

 private:
  int fd_;
};

int writeAll(int fd, std::span<const std::uint8_t> bytes) {
  while (!bytes.empty()) {
    ssize_t written = ::write(fd, bytes.data(), bytes.size());
    if (written < 0) {
      if (errno == EINTR) continue;
      return errno;
    }
    bytes = bytes.subspan(static_cast<std::size_t>(written));
  }
  return 0;
}

}  // namespace

int readProtectedFile(const std::string& path, std::size_t maxSize, Bytes* contents) {
  FileDescriptor file(::open(path.c_str(), O_RDONLY | O_NOFOLLOW | O_CLOEXEC | O_NONBLOCK));
  if (file.get() < 0) return errno == ELOOP ? EPERM : errno;
  struct stat st {};
  if (::fstat(file.get(), &st) != 0) return errno;
  if (!S_ISREG(st.st_mode) || !hasTrustedOwner(st)) return EPERM;
  return readAll(file.get(), maxSize, contents);
}

int replaceFileAtomically(const std::string& path, std::span<const std::uint8_t> contents,
                          mode_t mode, Durability durability) {
  std::string temporary = path + ".XXXXXX";
  FileDescriptor file(::mkostemp(temporary.data(), O_CLOEXEC));
  if (file.get() < 0) return errno;
  int failure = ::fchmod(file.get(), mode) == 0 ? 0 : errno;
  if (failure == 0) failure = writeAll(file.get(), contents);
  if (failure == 0 && durability == Durability::SurvivesCrash && ::fsync(file.get()) != 0) {
    failure = errno;
  }
  int closed = file.close();
  if (failure == 0) failure = closed;
  if (failure == 0 && ::rename(temporary.c_str(), path.c_str()) != 0) failure = errno;
  if (failure != 0) ::unlink(temporary.c_str());
  return failure;
}

int checkPrivateDirectory(const std::string& path) {
  struct stat st {};
  if (::lstat(path.c_str(), &st) != 0) return errno;
  // The names inside are secrets too: anybody who could list them could use them.
  if (!S_ISDIR(st.st_mode) || !hasTrustedOwner(st) || (st.st_mode & (S_IRWXG | S_IRWXO)) != 0) {
    return EPERM;
  }
  return 0;
}

int ensurePrivateDirectory(const std::string& path) {
  if (::mkdir(path.c_str(), 0700) != 0 && errno != EEXIST) return errno;
  return checkPrivateDirectory(path);
}

}  // namespace platform
