#include "harness/captured_stdout.h"

#include <fcntl.h>
#include <unistd.h>

#include <cstdio>
#include <stdexcept>

namespace testing_support {

CapturedStdout::CapturedStdout() {
  std::fflush(stdout);
  saved_ = ::dup(STDOUT_FILENO);
  file_ = ::open("/tmp", O_TMPFILE | O_RDWR | O_CLOEXEC, 0600);
  if (saved_ < 0 || file_ < 0 || ::dup2(file_, STDOUT_FILENO) < 0) {
    throw std::runtime_error("cannot redirect standard output");
  }
}

CapturedStdout::~CapturedStdout() {
  std::fflush(stdout);
  ::dup2(saved_, STDOUT_FILENO);
  ::close(saved_);
  ::close(file_);
}

std::string CapturedStdout::text() const {
  std::fflush(stdout);
  std::string out;
  char buffer[4096];
  for (off_t offset = 0;;) {
    const ssize_t n = ::pread(file_, buffer, sizeof buffer, offset);
    if (n <= 0) break;
    out.append(buffer, static_cast<std::size_t>(n));
    offset += n;
  }
  return out;
}

}  // namespace testing_support
