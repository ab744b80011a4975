// The legacy system log, stood in for by syslog(3): a client names the facility
// (the identity of its entries); a record's "Level" chooses the priority
// ("Error" LOG_ERR, "Warning" LOG_WARNING, anything else LOG_NOTICE) and its
// "Message" is the text. syslog is opened on the first entry, not before.
#pragma once

#include <string>
#include <string_view>

#include "platform/plist/value.h"

namespace platform {

inline constexpr const char* ASL_KEY_LEVEL = "Level";
inline constexpr const char* ASL_KEY_MSG = "Message";

// Where records go: syslog, or a test's recorder.
class LegacyLogSink {
 public:
  virtual ~LegacyLogSink() = default;
  // Records one entry for `facility`; failures are not reported.
  virtual void send(const std::string& facility, const Dictionary& record) = 0;

  // The process-wide sink: syslog, or the one installed by setForTesting.
  static LegacyLogSink& current();
  // Makes current() return `sink` (owned by the caller), nullptr syslog; returns the one it replaces.
  static LegacyLogSink* setForTesting(LegacyLogSink* sink);
};

// syslog(3) with the facility string as its identity.
class SyslogSink : public LegacyLogSink {
 public:
  void send(const std::string& facility, const Dictionary& record) override;
};

// A connection to the legacy log, as asl_open makes it.
class LegacyLogClient {
 public:
  explicit LegacyLogClient(std::string facility) : facility_(std::move(facility)) {}

  const std::string& facility() const { return facility_; }

  // Sends a message record (string values under ASL_KEY_LEVEL and ASL_KEY_MSG)
  // to the process-wide sink.
  void send(const Dictionary& record) const;

 private:
  std::string facility_;
};

}  // namespace platform
