#include "scheduler/scheduler_log.h"

#include <unistd.h>

#include <atomic>
#include <cstdarg>
#include <cstdio>
#include <string>

#include "platform/foundation/clock.h"
#include "platform/plist/codec_support.h"

namespace dev_scheduler {
namespace {

std::atomic<int> logDescriptor{STDERR_FILENO};

}  // namespace

void logLine(const char* format, ...) {
  char text[2048];
  va_list arguments;
  va_start(arguments, format);
  std::vsnprintf(text, sizeof text, format, arguments);
  va_end(arguments);
  const std::string line =
      platform::codec::formatIsoDate(platform::Clock::current().now()) + " " + text + "\n";
  // One write per line, so that lines of concurrent requests never mix.
  [[maybe_unused]] const ssize_t written = ::write(logDescriptor.load(), line.data(), line.size());
}

void setLogDescriptor(int fd) { logDescriptor.store(fd); }

}  // namespace dev_scheduler
