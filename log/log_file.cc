// The file sink: one line per entry, appended with one write call, rotated
// when the live file reaches the threshold.
//
// Every run of the tool appends to the same file with a count of its own, so
// several runs may reach the threshold together. The one that rotates does so
// under a lock file beside the live file (the live file itself moves away
// under whoever would hold a lock on it); the others, finding the live name on
// a newer file once they have the lock, go on in that file instead of rotating
// again. Below the threshold nothing but the count is looked at, so that an
// entry costs one write call: a run still writing to a file that another run
// rotated away adds its lines to that rotated file until its own count reaches
// the threshold and makes it look. A run lasts seconds and writes a few lines,
// far from the four rotations that would take the file away from under it.
#include <errno.h>
#include <fcntl.h>
#include <pthread.h>
#include <sys/stat.h>
#include <unistd.h>

#include <atomic>
#include <cstdio>
#include <filesystem>
#include <memory>
#include <mutex>
#include <optional>
#include <system_error>

#include "log/log.h"
#include "log/log_message.h"
#include "log/log_sinks.h"
#include "platform/foundation/clock.h"
#include "platform/foundation/file_lock.h"
#include "platform/foundation/log_date.h"
#include "platform/foundation/strings.h"

namespace {

constexpr std::uint64_t kRotationThreshold = 10'000'000;
// Rotated files kept: ".0.log" (newest) to ".3.log"; ".4.log" is never produced.
constexpr int kRotatedFiles = 4;

// Set by openLogFile before any other thread runs, then only read; never
// destroyed, since other threads may still log while the process exits.
const std::string* _category = nullptr;
// Made at the first entry rather than at set-up: reading the time zone is most
// of what set-up would cost, and most runs log nothing.
std::atomic<const platform::LogDateFormatter*> _formatter{nullptr};

// The process id that lines carry: read at set-up and again in every child that
// fork makes, which spares a system call per entry; 0 when no fork handler could
// be registered, and then read at each entry.
pid_t _processId = 0;

// Guards the two below.
constinit std::mutex _lock;
int _fd = -1;
std::uint64_t _length = 0;

std::string livePath(const std::string& directory) { return directory + "/" + *_category + ".log"; }

std::string rotatedPath(const std::string& directory, int generation) {
  return directory + "/" + *_category + "." + std::to_string(generation) + ".log";
}

pid_t processIdOfLines() { return _processId != 0 ? _processId : ::getpid(); }

const platform::LogDateFormatter& formatter() {
  const platform::LogDateFormatter* current = _formatter.load(std::memory_order_acquire);
  if (current) return *current;
  auto made = std::make_unique<const platform::LogDateFormatter>();
  if (_formatter.compare_exchange_strong(current, made.get(), std::memory_order_acq_rel)) return *made.release();
  return *current;  // another thread's, made meanwhile
}

void rememberProcessId() {
  static const bool readAgainInChildren =
      ::pthread_atfork(nullptr, nullptr, [] { _processId = ::getpid(); }) == 0;
  _processId = readAgainInChildren ? ::getpid() : 0;
}

int openLive(const std::string& directory) {
  return ::open(livePath(directory).c_str(), O_WRONLY | O_APPEND | O_CREAT | O_CLOEXEC, 0644);
}

// The size of the file open on `fd`; nullopt, with the failure reported, when it cannot be read.
std::optional<std::uint64_t> sizeOf(int fd) {
  struct stat status {};
  if (::fstat(fd, &status) != 0) {
    lks_log_internal::reportFailure("Failed to stat log file (%d).", errno);
    return std::nullopt;
  }
  return static_cast<std::uint64_t>(status.st_size);
}

// Whether the live name is on another file than _fd's: another process rotated
// since this one opened its file. A live name on nothing does not count, since
// a rotation makes the new live file before it lets go of the lock: the file
// was removed from outside, and is rotated as it would be with no other process.
bool liveNameMovedOn(const std::string& directory) {
  struct stat ours {}, named {};
  return ::fstat(_fd, &ours) == 0 && ::stat(livePath(directory).c_str(), &named) == 0 &&
         (ours.st_dev != named.st_dev || ours.st_ino != named.st_ino);
}

// Under _lock. Each file operation's failure is ignored; the next one runs regardless.
void rotate(const std::string& directory) {
  ::unlink(rotatedPath(directory, kRotatedFiles).c_str());
  ::unlink(rotatedPath(directory, kRotatedFiles - 1).c_str());
  for (int generation = kRotatedFiles - 2; generation >= 0; --generation) {
    ::rename(rotatedPath(directory, generation).c_str(), rotatedPath(directory, generation + 1).c_str());
  }
  ::rename(livePath(directory).c_str(), rotatedPath(directory, 0).c_str());
  ::close(_fd);
  _fd = openLive(directory);
  _length = 0;
}

// Under _lock, once _length has reached the threshold: rotates, unless another
// process already did, in which case the new live file is taken up, and rotated
// only if it has itself reached the threshold. A lock that cannot be had (no
// room for its file, a file system without locks) leaves only the look at the
// live name to keep repeated rotations away.
void rotateUnlessAnotherProcessDid() {
  const std::string directory = LKSLogGetParentPath();
  const platform::FileLock rotationLock(livePath(directory) + ".lock");
  if (liveNameMovedOn(directory)) {
    ::close(_fd);
    _fd = openLive(directory);
    _length = _fd == -1 ? 0 : sizeOf(_fd).value_or(0);
    if (_length < kRotationThreshold) return;
  }
  rotate(directory);
}

}  // namespace

namespace lks_log_internal {

void openLogFile(const char* category) {
  _category = new std::string(category ? category : "");
  rememberProcessId();
  const std::string directory = LKSLogGetParentPath();
  std::error_code ignored;
  std::filesystem::create_directories(directory, ignored);
  _fd = openLive(directory);
  if (_fd == -1) {
    reportFailure("Failed to open log file (%d).", errno);
    return;
  }
  if (const std::optional<std::uint64_t> size = sizeOf(_fd)) _length = *size;
}

void resetLogFileForTesting() {
  std::lock_guard lock(_lock);
  if (_fd != -1) ::close(_fd);
  _fd = -1;
  _length = 0;
  delete _category;
  _category = nullptr;
  delete _formatter.exchange(nullptr);
}

void appendToFile(std::uint8_t, const char* format, std::span<const platform::FormatArg> args) {
  const std::optional<std::string> message = formatMessage(format, args);
  if (!message || !_category) return;  // no category: LKSLogInit has not run, nothing is open
  // "%@ %@[%d] %@\n" laid out directly: the date and the process id are ASCII,
  // so only the category and the message can keep the line from being UTF-8.
  const std::string date = formatter().stringFromDate(platform::Clock::current().now());
  char processId[16];
  const int processIdLength = std::snprintf(processId, sizeof processId, "[%d] ", processIdOfLines());
  std::string line;
  line.reserve(date.size() + 1 + _category->size() + static_cast<std::size_t>(processIdLength) + message->size() + 1);
  line.append(date).append(1, ' ').append(*_category).append(processId, static_cast<std::size_t>(processIdLength));
  line.append(*message).append(1, '\n');
  if (!platform::isValidUtf8(*_category) || !platform::isValidUtf8(*message)) {
    reportFailure("Could not get data for string '%{public}@'.", line);
    return;
  }
  std::lock_guard lock(_lock);
  if (_fd == -1) return;
  if (_length >= kRotationThreshold) rotateUnlessAnotherProcessDid();
  if (::write(_fd, line.data(), line.size()) == -1) {
    reportFailure("Failed to write to log file (%d) '%{public}@'.", errno, line);
  } else {
    _length += line.size();  // the full length, even when fewer bytes were stored
  }
}

}  // namespace lks_log_internal
