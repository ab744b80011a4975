#include "harness/captured_stdout.h"

#include <fcntl.h>
#include <unistd.h>

#include <cstdio>
#include <stdexcept>

#include "harness/files.h"

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
  return readDescriptor(file_);
}

}  // namespace testing_support
