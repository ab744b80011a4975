#include "platform/system_log/unified_log.h"

#include <errno.h>
#include <fcntl.h>
#include <sys/mman.h>
#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>

#include <cstring>
#include <mutex>

#include "platform/foundation/machine_seam.h"

namespace platform {
namespace {

struct TypePriority {
  std::uint8_t type;
  int priority;
};
constexpr TypePriority kPriorities[] = {
    {OS_LOG_TYPE_DEFAULT, 5},  // notice
    {OS_LOG_TYPE_INFO, 6},     // info
    {OS_LOG_TYPE_DEBUG, 7},    // debug
    {OS_LOG_TYPE_ERROR, 3},    // err
    {OS_LOG_TYPE_FAULT, 2},    // crit
};

// One field of the native protocol: "KEY=value\n", or, when the value holds a
// newline, "KEY\n", its length as 64-bit little endian, the value and "\n".
void appendField(std::string& out, std::string_view key, std::string_view value) {
  out.append(key);
  if (value.find('\n') == std::string_view::npos) {
    out.push_back('=');
  } else {
    out.push_back('\n');
    std::uint64_t length = value.size();
    for (int i = 0; i < 8; ++i) out.push_back(static_cast<char>((length >> (8 * i)) & 0xff));
  }
  out.append(value);
  out.push_back('\n');
}

std::string journalEntry(const UnifiedLog& log, std::uint8_t type, std::string_view message) {
  std::string entry;
  appendField(entry, "MESSAGE", message);
  appendField(entry, "PRIORITY", std::to_string(journalPriorityForType(type)));
  appendField(entry, "SYSLOG_IDENTIFIER", program_invocation_short_name);
  if (!log.subsystem().empty()) appendField(entry, "SUBSYSTEM", log.subsystem());
  if (!log.category().empty()) appendField(entry, "CATEGORY", log.category());
  return entry;
}

MachineSeam<UnifiedLogSink>& seam() {
  static MachineSeam<UnifiedLogSink> instance(*new JournalSink());  // never destroyed: other threads may log at exit
  return instance;
}

}  // namespace

int journalPriorityForType(std::uint8_t type) {
  for (const TypePriority& row : kPriorities) {
    if (row.type == type) return row.priority;
  }
  return kPriorities[0].priority;
}

struct JournalSink::Socket {
  std::once_flag opened;
  int fd = -1;
  sockaddr_un address{};
  socklen_t addressLength = 0;

  bool open(const std::string& path) {
    std::call_once(opened, [&] {
      if (path.size() >= sizeof address.sun_path) return;
      address.sun_family = AF_UNIX;
      std::memcpy(address.sun_path, path.c_str(), path.size() + 1);
      addressLength = static_cast<socklen_t>(offsetof(sockaddr_un, sun_path) + path.size() + 1);
      fd = ::socket(AF_UNIX, SOCK_DGRAM | SOCK_CLOEXEC, 0);
    });
    return fd >= 0;
  }

  // Sends `payload` as the datagram, with `passedFd` attached when not -1.
  bool sendDatagram(std::string_view payload, int passedFd) {
    iovec iov{const_cast<char*>(payload.data()), payload.size()};
    msghdr msg{};
    msg.msg_name = &address;
    msg.msg_namelen = addressLength;
    msg.msg_iov = &iov;
    msg.msg_iovlen = 1;
    alignas(cmsghdr) char control[CMSG_SPACE(sizeof(int))] = {};
    if (passedFd >= 0) {
      msg.msg_control = control;
      msg.msg_controllen = sizeof control;
      cmsghdr* header = CMSG_FIRSTHDR(&msg);
      header->cmsg_level = SOL_SOCKET;
      header->cmsg_type = SCM_RIGHTS;
      header->cmsg_len = CMSG_LEN(sizeof(int));
      std::memcpy(CMSG_DATA(header), &passedFd, sizeof(int));
    }
    ssize_t sent;
    do {
      sent = ::sendmsg(fd, &msg, MSG_NOSIGNAL);
    } while (sent < 0 && errno == EINTR);
    return sent >= 0;
  }

  // An entry too large for a datagram travels as a sealed memory file whose
  // descriptor is the only content of an empty datagram.
  void sendInMemoryFile(std::string_view entry) {
    int memory = memfd_create("journal-entry", MFD_CLOEXEC | MFD_ALLOW_SEALING);
    if (memory < 0) return;
    std::size_t written = 0;
    while (written < entry.size()) {
      ssize_t n = ::write(memory, entry.data() + written, entry.size() - written);
      if (n < 0 && errno == EINTR) continue;
      if (n <= 0) break;
      written += static_cast<std::size_t>(n);
    }
    if (written == entry.size() &&
        fcntl(memory, F_ADD_SEALS, F_SEAL_SHRINK | F_SEAL_GROW | F_SEAL_WRITE | F_SEAL_SEAL) == 0) {
      sendDatagram({}, memory);
    }
    ::close(memory);
  }
};

JournalSink::JournalSink(std::string socketPath)
    : socketPath_(std::move(socketPath)), socket_(std::make_unique<Socket>()) {}

JournalSink::~JournalSink() {
  if (socket_->fd >= 0) ::close(socket_->fd);
}

void JournalSink::send(const UnifiedLog& log, std::uint8_t type, std::string_view message) {
  if (!socket_->open(socketPath_)) return;
  const std::string entry = journalEntry(log, type, message);
  if (socket_->sendDatagram(entry, -1)) return;
  if (errno == EMSGSIZE || errno == ENOBUFS) socket_->sendInMemoryFile(entry);
}

UnifiedLog::UnifiedLog(std::string subsystem, std::string category)
    : subsystem_(std::move(subsystem)), category_(std::move(category)) {}

UnifiedLog* UnifiedLog::defaultLog() {
  static auto* log = new UnifiedLog("", "");  // never destroyed: other threads may log at exit
  return log;
}

UnifiedLogSink& UnifiedLogSink::current() { return seam().get(); }

UnifiedLogSink* UnifiedLogSink::setForTesting(UnifiedLogSink* sink) { return seam().install(sink); }

void UnifiedLog::send(std::uint8_t type, std::string_view message) const {
  UnifiedLogSink::current().send(*this, type, message);
}

std::string formatWithoutPrivacyMarkers(const char* format) {
  std::string out;
  for (const char* p = format; *p; ++p) {
    out.push_back(*p);
    if (*p != '%') continue;
    if (p[1] == '%') {
      out.push_back(*++p);
    } else if (p[1] == '{') {
      const char* close = std::strchr(p + 1, '}');
      if (close) p = close;
    }
  }
  return out;
}

void os_log_with_type_args(UnifiedLog* log, std::uint8_t type, const char* format,
                           std::span<const FormatArg> args) {
  if (!log || !format) return;
  const std::string plainFormat = formatWithoutPrivacyMarkers(format);
  std::optional<std::string> message = stringWithFormat(plainFormat.c_str(), args);
  log->send(type, message ? *message : plainFormat);
}

}  // namespace platform
