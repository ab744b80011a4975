#include "platform/foundation/file_contents.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstdint>
#include <cstring>

namespace platform {

int readAll(int fd, std::size_t maxSize, Bytes* contents) {
  contents->clear();
  struct stat st {};
  if (::fstat(fd, &st) == 0 && S_ISREG(st.st_mode)) {
    if (static_cast<std::uint64_t>(st.st_size) > maxSize) return EFBIG;
    contents->reserve(static_cast<std::size_t>(st.st_size));
  }
  // The file may grow while it is read: the cap holds for what is read, not for the size seen.
  std::uint8_t buffer[16384];
  for (;;) {
    const ssize_t got = ::read(fd, buffer, sizeof buffer);
    if (got < 0) {
      if (errno == EINTR) continue;
      return errno;
    }
    if (got == 0) return 0;
    if (contents->size() + static_cast<std::size_t>(got) > maxSize) return EFBIG;
    contents->insert(contents->end(), buffer, buffer + got);
  }
}

FileReadResult readFile(const std::string& path, Bytes* contents, ErrorRef* error) {
  // As the platform's existence test answers: any path stat cannot follow leads to no file.
  struct stat st {};
  if (::stat(path.c_str(), &st) != 0) return FileReadResult::Missing;
  int failure = 0;
  const int fd = ::open(path.c_str(), O_RDONLY | O_CLOEXEC);
  if (fd < 0) {
    failure = errno;
  } else {
    failure = readAll(fd, kMaxReadFileSize, contents);
    ::close(fd);
  }
  if (failure == 0) return FileReadResult::Read;
  if (error) {
    const std::string name = path.substr(path.rfind('/') + 1);
    *error = Error::make(NSPOSIXErrorDomain, failure,
                         {{NSLocalizedDescriptionKey, Value::string("The file \u201c" + name + "\u201d couldn\u2019t be read: " +
                                                                    std::strerror(failure) + ".")}});
  }
  return FileReadResult::Failed;
}

}  // namespace platform
