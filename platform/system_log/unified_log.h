// platform/system_log stands in for the system's logs: the unified log (os_log)
// through the systemd journal, and the legacy system log (asl) through
// syslog(3) (legacy_log.h). Both only send entries: reading the logs back,
// activities, signposts and the redaction of private arguments are left out.
//
// The unified log, stood in for by the systemd journal's native protocol: one
// datagram per entry on /run/systemd/journal/socket with MESSAGE, PRIORITY,
// SYSLOG_IDENTIFIER, SUBSYSTEM and CATEGORY. Without a journal, entries are
// dropped silently. The socket is opened on the first entry, not at start-up.
#pragma once

#include <cstdint>
#include <memory>
#include <span>
#include <string>
#include <string_view>

#include "platform/foundation/format.h"

namespace platform {

// Entry types, as the unified log numbers them.
inline constexpr std::uint8_t OS_LOG_TYPE_DEFAULT = 0x00;
inline constexpr std::uint8_t OS_LOG_TYPE_INFO = 0x01;
inline constexpr std::uint8_t OS_LOG_TYPE_DEBUG = 0x02;
inline constexpr std::uint8_t OS_LOG_TYPE_ERROR = 0x10;
inline constexpr std::uint8_t OS_LOG_TYPE_FAULT = 0x11;

// syslog priority of an entry type: default 5, info 6, debug 7, error 3, fault 2;
// an unknown type counts as default.
int journalPriorityForType(std::uint8_t type);

class UnifiedLog;

// Where entries go: the journal, or a test's recorder.
class UnifiedLogSink {
 public:
  virtual ~UnifiedLogSink() = default;
  // Records one entry of `log`; failures are not reported.
  virtual void send(const UnifiedLog& log, std::uint8_t type, std::string_view message) = 0;

  // The process-wide sink: the journal, or the one installed by setForTesting.
  static UnifiedLogSink& current();
  // Makes current() return `sink` (owned by the caller), nullptr the journal; returns the one it replaces.
  static UnifiedLogSink* setForTesting(UnifiedLogSink* sink);
};

// The journal's native protocol on a datagram socket at `socketPath`.
class JournalSink : public UnifiedLogSink {
 public:
  static constexpr const char* kSystemSocketPath = "/run/systemd/journal/socket";
  explicit JournalSink(std::string socketPath = kSystemSocketPath);
  ~JournalSink() override;
  JournalSink(const JournalSink&) = delete;
  JournalSink& operator=(const JournalSink&) = delete;
  // Sends the entry; an entry too large for one datagram travels in a sealed
  // memory file. Drops it when there is no journal.
  void send(const UnifiedLog& log, std::uint8_t type, std::string_view message) override;

 private:
  struct Socket;
  std::string socketPath_;
  std::unique_ptr<Socket> socket_;
};

// A log handle: entries carry its subsystem and category.
class UnifiedLog {
 public:
  // A handle for (subsystem, category), as os_log_create makes it.
  UnifiedLog(std::string subsystem, std::string category);

  // The handle for entries of no subsystem (OS_LOG_DEFAULT); lives for the process.
  static UnifiedLog* defaultLog();

  const std::string& subsystem() const { return subsystem_; }
  const std::string& category() const { return category_; }

  // Sends an already formatted entry to the process-wide sink.
  void send(std::uint8_t type, std::string_view message) const;

 private:
  std::string subsystem_;
  std::string category_;
};

// Formats as os_log does: privacy markers such as "{public}" in "%{public}s" are
// dropped, the rest is a stringWithFormat format. A format that does not fit its
// arguments is recorded as its text without the markers. A null log is disabled
// and drops the entry.
void os_log_with_type_args(UnifiedLog* log, std::uint8_t type, const char* format,
                           std::span<const FormatArg> args);

template <typename... Args>
void os_log_with_type(UnifiedLog* log, std::uint8_t type, const char* format, const Args&... args) {
  const FormatArg packed[] = {FormatArg(args)..., FormatArg(0)};
  os_log_with_type_args(log, type, format, std::span<const FormatArg>(packed, sizeof...(Args)));
}

// The format with privacy markers removed: "%{public}s" reads "%s".
std::string formatWithoutPrivacyMarkers(const char* format);

}  // namespace platform
