// A log facility pointed at a private home directory, with fake user ids, clock,
// system version and system-log sinks, so that no test touches the machine's
// logs. Each test starts before LKSLogInit and ends with the facility reset.
#pragma once

#include <gtest/gtest.h>

#include <mutex>
#include <optional>

#include "harness/temp_dir.h"
#include "log/log.h"
#include "log/log_testing.h"
#include "platform/clock.h"
#include "platform/legacy_log.h"
#include "platform/process_info.h"
#include "platform/unified_log.h"
#include "platform/user_ids.h"

namespace log_testing {

struct UnifiedEntry {
  const platform::UnifiedLog* log;
  std::uint8_t type;
  std::string message;
};
struct LegacyEntry {
  std::string facility, level, message;
};

// The entries a sink was given, from any thread.
template <typename Entry>
struct Recorded {
  std::vector<Entry> entries() {
    std::lock_guard lock(mutex);
    return recorded;
  }
  void add(Entry entry) {
    std::lock_guard lock(mutex);
    recorded.push_back(std::move(entry));
  }
  std::mutex mutex;
  std::vector<Entry> recorded;
};

struct RecordingUnifiedSink : platform::UnifiedLogSink, Recorded<UnifiedEntry> {
  void send(const platform::UnifiedLog& log, std::uint8_t type, std::string_view message) override {
    add({&log, type, std::string(message)});
  }
};

struct RecordingLegacySink : platform::LegacyLogSink, Recorded<LegacyEntry> {
  void send(const std::string& facility, const platform::Dictionary& record) override {
    add({facility, *record.get(platform::ASL_KEY_LEVEL).asString(), *record.get(platform::ASL_KEY_MSG).asString()});
  }
};

class LogFacilityTest : public ::testing::Test {
 protected:
  LogFacilityTest() {
    for (const char* name : {"HOME", "TZ"}) {
      if (const char* value = std::getenv(name)) savedEnvironment_.emplace_back(name, value);
    }
    setenv("HOME", home_.path().c_str(), 1);
    setenv("TZ", "XYZ-1", 1);  // one hour east of UTC, without needing time-zone files
    platform::UserIds::setForTesting(&user_);
    platform::Clock::setForTesting(&clock_);
    platform::UnifiedLog::setSinkForTesting(&unified_);
    platform::LegacyLogClient::setSinkForTesting(&legacy_);
  }
  ~LogFacilityTest() override {
    LKSLogResetForTesting();
    platform::UserIds::setForTesting(nullptr);
    platform::Clock::setForTesting(nullptr);
    platform::ProcessInfo::setForTesting(nullptr);
    platform::UnifiedLog::setSinkForTesting(nullptr);
    platform::LegacyLogClient::setSinkForTesting(nullptr);
    unsetenv("HOME");
    unsetenv("TZ");
    for (const auto& [name, value] : savedEnvironment_) setenv(name.c_str(), value.c_str(), 1);
  }

  // Sets the facility up as the tool does, on the first system with the
  // unified log (10.12) or the last one without it (10.11).
  void init(bool unified = true) {
    system_.emplace(platform::OperatingSystemVersion{10, unified ? 12 : 11, 0});
    platform::ProcessInfo::setForTesting(&*system_);
    LKSLogInit("com.larkspan.quillhaven", "ctl");
  }

  std::string logFile(const std::string& name) const { return home_.file("Library/Logs/Quillhaven/" + name); }
  std::string readLog(const std::string& name) const { return home_.read("Library/Logs/Quillhaven/" + name); }

  // The line the facility writes for `message` at the fixed time, 2021-01-05 08:07:03 UTC.
  static std::string expectedLine(const std::string& message, const char* date = "5/Jan/21, 09:07:03+0100") {
    return std::string(date) + " ctl[" + std::to_string(getpid()) + "] " + message + "\n";
  }

  testing_support::TempDir home_;
  platform::FixedUserIds user_{501, 501};
  platform::FixedClock clock_{platform::Date::fromUnixTime(1609834023.0)};
  std::optional<platform::FixedProcessInfo> system_;
  RecordingUnifiedSink unified_;
  RecordingLegacySink legacy_;
  std::vector<std::pair<std::string, std::string>> savedEnvironment_;
};

}  // namespace log_testing
