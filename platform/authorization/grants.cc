#include "platform/authorization/grants.h"

#include <dirent.h>
#include <fcntl.h>
#include <unistd.h>

#include <cerrno>
#include <charconv>
#include <cstdio>
#include <string_view>

#include "platform/foundation/protected_file.h"

namespace platform {
namespace {

// A record is text, one field a line, in this order:
//   form <64 lower-case hex digits>
//   boot <the kernel's boot id when the maker ran>
//   pid <decimal>
//   start <decimal: the maker's start time in clock ticks after boot>
//   right <name>          (once per granted right, none or more)
constexpr std::string_view kFormField = "form ";
constexpr std::string_view kBootField = "boot ";
constexpr std::string_view kPidField = "pid ";
constexpr std::string_view kStartField = "start ";
constexpr std::string_view kRightField = "right ";
constexpr std::size_t kMaxRecordSize = 64 * 1024;
constexpr std::size_t kFormHexLength = 2 * kAuthorizationExternalFormLength;

std::string hexOf(const AuthorizationExternalForm& form) {
  static constexpr char kDigits[] = "0123456789abcdef";
  std::string hex;
  hex.reserve(kFormHexLength);
  for (std::uint8_t byte : form.bytes) {
    hex.push_back(kDigits[byte >> 4]);
    hex.push_back(kDigits[byte & 0xf]);
  }
  return hex;
}

bool isRecordName(std::string_view name) {
  return name.size() == kFormHexLength &&
         name.find_first_not_of("0123456789abcdef") == std::string_view::npos;
}

template <typename Number>
std::optional<Number> parseDecimal(std::string_view text) {
  Number number{};
  auto [end, failure] = std::from_chars(text.data(), text.data() + text.size(), number);
  if (failure != std::errc() || end != text.data() + text.size() || text.empty()) {
    return std::nullopt;
  }
  return number;
}

// The start time of process `pid` (field 22 of /proc/<pid>/stat), which tells a
// living maker from a later process that was given the same pid; nullopt when
// there is no such process.
std::optional<unsigned long long> processStartTime(pid_t pid) {
  char path[32];
  std::snprintf(path, sizeof path, "/proc/%d/stat", static_cast<int>(pid));
  int fd = ::open(path, O_RDONLY | O_CLOEXEC);
  if (fd < 0) return std::nullopt;
  char buffer[1024];
  ssize_t got;
  do {
    got = ::read(fd, buffer, sizeof buffer - 1);
  } while (got < 0 && errno == EINTR);
  ::close(fd);
  if (got <= 0) return std::nullopt;
  std::string_view stat(buffer, static_cast<std::size_t>(got));
  // The command name (field 2) is in parentheses and may hold spaces and ')'.
  std::size_t afterName = stat.rfind(')');
  if (afterName == std::string_view::npos) return std::nullopt;
  std::string_view rest = stat.substr(afterName + 1);
  // Field 3 (the state) follows the name; the start time is 19 fields later.
  for (int field = 3; field < 22; ++field) {
    std::size_t next = rest.find(' ', 1);
    if (next == std::string_view::npos) return std::nullopt;
    rest = rest.substr(next);
  }
  rest.remove_prefix(1);
  return parseDecimal<unsigned long long>(rest.substr(0, rest.find(' ')));
}

// The id of the running boot. Start times count from boot, so only with it does
// a pid and start time name one process even where records outlive a restart.
const std::optional<std::string>& currentBootId() {
  static const std::optional<std::string> bootId = []() -> std::optional<std::string> {
    int fd = ::open("/proc/sys/kernel/random/boot_id", O_RDONLY | O_CLOEXEC);
    if (fd < 0) return std::nullopt;
    char buffer[64];
    ssize_t got;
    do {
      got = ::read(fd, buffer, sizeof buffer);
    } while (got < 0 && errno == EINTR);
    ::close(fd);
    std::string_view id(buffer, got > 0 ? static_cast<std::size_t>(got) : 0);
    id = id.substr(0, id.find('\n'));
    if (id.empty()) return std::nullopt;
    return std::string(id);
  }();
  return bootId;
}

struct Record {
  std::string formHex;
  std::string bootId;
  pid_t pid = 0;
  unsigned long long startTime = 0;
  std::vector<std::string> rights;
};

std::string encode(const Record& record) {
  std::string text;
  text.append(kFormField).append(record.formHex).push_back('\n');
  text.append(kBootField).append(record.bootId).push_back('\n');
  text.append(kPidField).append(std::to_string(record.pid)).push_back('\n');
  text.append(kStartField).append(std::to_string(record.startTime)).push_back('\n');
  for (const std::string& right : record.rights) text.append(kRightField).append(right).push_back('\n');
  return text;
}

// Splits off the next line, which must start with `field`; its value or nullopt.
std::optional<std::string_view> takeField(std::string_view& text, std::string_view field) {
  std::size_t end = text.find('\n');
  if (end == std::string_view::npos || !text.starts_with(field)) return std::nullopt;
  std::string_view value = text.substr(field.size(), end - field.size());
  text.remove_prefix(end + 1);
  return value;
}

// The record in `text`, or nullopt when any line is out of place or malformed.
std::optional<Record> decode(std::string_view text) {
  Record record;
  std::optional<std::string_view> form = takeField(text, kFormField);
  std::optional<std::string_view> boot = takeField(text, kBootField);
  std::optional<std::string_view> pid = takeField(text, kPidField);
  std::optional<std::string_view> start = takeField(text, kStartField);
  if (!form || !boot || !pid || !start || !isRecordName(*form)) return std::nullopt;
  std::optional<pid_t> pidNumber = parseDecimal<pid_t>(*pid);
  std::optional<unsigned long long> startNumber = parseDecimal<unsigned long long>(*start);
  if (!pidNumber || *pidNumber <= 0 || !startNumber) return std::nullopt;
  record.formHex = *form;
  record.bootId = *boot;
  record.pid = *pidNumber;
  record.startTime = *startNumber;
  while (!text.empty()) {
    std::optional<std::string_view> right = takeField(text, kRightField);
    if (!right || right->empty()) return std::nullopt;
    record.rights.emplace_back(*right);
  }
  return record;
}

bool makerIsAlive(const Record& record) {
  if (!currentBootId() || record.bootId != *currentBootId()) return false;
  std::optional<unsigned long long> startTime = processStartTime(record.pid);
  return startTime && *startTime == record.startTime;
}

// The trustworthy record at `path` for the form spelled `formHex`, or nullopt.
std::optional<Record> readRecord(const std::string& path, std::string_view formHex) {
  Bytes contents;
  if (readProtectedFile(path, kMaxRecordSize, &contents) != 0) return std::nullopt;
  std::optional<Record> record =
      decode(std::string_view(reinterpret_cast<const char*>(contents.data()), contents.size()));
  // A record renamed to another form's name proves nothing about that form.
  if (!record || record->formHex != formHex) return std::nullopt;
  return record;
}

OSStatus statusOfWriteFailure(int failure) {
  return failure == EACCES || failure == EPERM || failure == EROFS ? errAuthorizationDenied
                                                                     : errAuthorizationInternal;
}

}  // namespace

OSStatus AuthorizationGrants::record(const AuthorizationExternalForm& form,
                                     const std::vector<std::string>& rights) {
  for (const std::string& right : rights) {
    // A line break would let a right name add lines, and so rights, to the record.
    if (right.empty() || right.find_first_of(std::string_view("\n\0", 2)) != std::string::npos) {
      return errAuthorizationInvalidSet;
    }
  }
  std::optional<unsigned long long> startTime = processStartTime(::getpid());
  if (!startTime || !currentBootId()) return errAuthorizationInternal;
  int failure = ensurePrivateDirectory(directory_);
  if (failure != 0) return statusOfWriteFailure(failure);
  removeStaleRecords();
  std::string text = encode({hexOf(form), *currentBootId(), ::getpid(), *startTime, rights});
  // A record outlives no restart: its maker is gone then, so it need not reach the disk.
  failure = replaceFileAtomically(pathOf(form),
                                  {reinterpret_cast<const std::uint8_t*>(text.data()), text.size()},
                                  0600, Durability::RunTimeOnly);
  return failure == 0 ? errAuthorizationSuccess : statusOfWriteFailure(failure);
}

std::optional<std::vector<std::string>> AuthorizationGrants::lookup(
    const AuthorizationExternalForm& form) {
  if (checkPrivateDirectory(directory_) != 0) return std::nullopt;
  const std::string path = pathOf(form);
  std::optional<Record> record = readRecord(path, hexOf(form));
  if (!record) return std::nullopt;
  if (!makerIsAlive(*record)) {
    ::unlink(path.c_str());
    return std::nullopt;
  }
  return std::move(record->rights);
}

void AuthorizationGrants::revoke(const AuthorizationExternalForm& form) {
  ::unlink(pathOf(form).c_str());
}

void AuthorizationGrants::removeStaleRecords() {
  DIR* directory = ::opendir(directory_.c_str());
  if (!directory) return;
  while (const dirent* entry = ::readdir(directory)) {
    if (!isRecordName(entry->d_name)) continue;
    const std::string path = directory_ + "/" + entry->d_name;
    std::optional<Record> record = readRecord(path, entry->d_name);
    if (!record || !makerIsAlive(*record)) ::unlink(path.c_str());
  }
  ::closedir(directory);
}

std::string AuthorizationGrants::pathOf(const AuthorizationExternalForm& form) const {
  return directory_ + "/" + hexOf(form);
}

}  // namespace platform
