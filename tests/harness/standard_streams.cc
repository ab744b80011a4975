#include "harness/standard_streams.h"

#include <fcntl.h>
#include <stdio_ext.h>
#include <unistd.h>

#include <cstdio>
#include <stdexcept>

#include "harness/files.h"

namespace testing_support {
namespace {

// The stream of the C library that writes to `fd`.
std::FILE* streamOf(int fd) { return fd == STDERR_FILENO ? stderr : stdout; }

// An unnamed file that goes with its last descriptor.
int unnamedFile() { return ::open("/tmp", O_TMPFILE | O_RDWR | O_CLOEXEC, 0600); }

}  // namespace

CapturedOutput::CapturedOutput(int fd) : fd_(fd) {
  std::fflush(streamOf(fd_));
  saved_ = ::dup(fd_);
  file_ = unnamedFile();
  if (saved_ < 0 || file_ < 0 || ::dup2(file_, fd_) < 0) throw std::runtime_error("cannot redirect an output stream");
}

CapturedOutput::~CapturedOutput() {
  std::fflush(streamOf(fd_));
  ::dup2(saved_, fd_);
  ::close(saved_);
  ::close(file_);
}

std::string CapturedOutput::text() const {
  std::fflush(streamOf(fd_));
  return readDescriptor(file_);
}

GivenInput::GivenInput(const std::string& text) {
  // A test program started without standard input gets an empty one, so that
  // descriptor 0 is never taken by the files below.
  if (::fcntl(STDIN_FILENO, F_GETFD) < 0) ::open("/dev/null", O_RDONLY);
  saved_ = ::dup(STDIN_FILENO);
  const int file = unnamedFile();
  // Written at offset 0, where reading starts.
  const bool written = file >= 0 && ::pwrite(file, text.data(), text.size(), 0) == static_cast<ssize_t>(text.size());
  const bool redirected = written && saved_ >= 0 && ::dup2(file, STDIN_FILENO) >= 0;
  if (file >= 0) ::close(file);
  if (!redirected) throw std::runtime_error("cannot redirect standard input");
  // Nothing that stdin kept buffered from before is read now.
  __fpurge(stdin);
  std::clearerr(stdin);
}

GivenInput::~GivenInput() {
  __fpurge(stdin);  // nor what was read ahead here and not taken, later
  ::dup2(saved_, STDIN_FILENO);
  ::close(saved_);
  std::clearerr(stdin);
}

}  // namespace testing_support
