#include "cli/standard_output.h"

#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <cstring>

#include "platform/foundation/program_name.h"

namespace {

int lostOutput = 0;  // errno of the first raw write that failed

}  // namespace

void write_standard_output(std::span<const std::uint8_t> bytes) {
  std::fflush(stdout);
  while (!bytes.empty()) {
    const ssize_t written = ::write(STDOUT_FILENO, bytes.data(), bytes.size());
    if (written < 0) {
      if (errno == EINTR) continue;
      if (lostOutput == 0) lostOutput = errno;
      return;
    }
    bytes = bytes.subspan(static_cast<std::size_t>(written));
  }
}

int finish_standard_output(int status) {
  if ((std::fflush(stdout) != 0 || std::ferror(stdout)) && lostOutput == 0) {
    lostOutput = errno != 0 ? errno : EIO;
  }
  if (lostOutput == 0) return status;
  std::fprintf(stderr, "%s: write error: %s\n", platform::getprogname(), std::strerror(lostOutput));
  return 1;
}
