// A log facility pointed at a private home directory, with fake user ids, clock,
// system version and system-log sinks, so that no test touches the machine's
// logs. Each test starts before LKSLogInit and ends with the facility reset.
#pragma once

#include <gtest/gtest.h>

#include <cstdlib>
#include <mutex>
#include <optional>
#include <string>
#include <vector>

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

class RecordingUnifiedSink : public platform::UnifiedLogSink {
 public:
  void send(const platform::UnifiedLog& log, std::uint8_t type, std::string_view message) override {
    std::lock_guard lock(mutex_);
    entries_.push_back({&log, type, std::string(message)});
  }
  std::vector<UnifiedEntry> entries() {
    std::lock_guard lock(mutex_);
    return entries_;
  }

 private:
  std::mutex mutex_;
  std::vector<UnifiedEntry> entries_;
};

struct LegacyEntry {
  std::string facility, level, message;
};

class RecordingLegacySink : public platform::LegacyLogSink {
 public:
  void send(const std::string& facility, const platform::Dictionary& record) override {
    std::lock_guard lock(mutex_);
    entries_.push_back({facility, *record.get(platform::ASL_KEY_LEVEL).asString(),
                        *record.get(platform::ASL_KEY_MSG).asString()});
  }
  std::vector<LegacyEntry> entries() {
    std::lock_guard lock(mutex_);
    return entries_;
  }

 private:
  std::mutex mutex_;
  std::vector<LegacyEntry> entries_;
};

// 2021-01-05 08:07:03 UTC.
inline constexpr double kFixedUnixTime = 1609834023.0;

class LogFacilityTest : public ::testing::Test {
 protected:
  LogFacilityTest() {
    saveAndSet("HOME", home_.path());
    saveAndSet("TZ", "XYZ-1");  // one hour east of UTC, without needing time-zone files
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
    for (const auto& [name, value] : savedEnvironment_) {
      value ? setenv(name.c_str(), value->c_str(), 1) : unsetenv(name.c_str());
    }
  }

  // Sets the facility up as the tool does, on a system with (10.15) or without
  // (10.11) the unified log.
  void init(bool unified = true) {
    platform::ProcessInfo::setForTesting(unified ? &withUnifiedLog_ : &withoutUnifiedLog_);
    LKSLogInit("com.larkspan.quillhaven", "ctl");
  }

  std::string logDirectory() const { return home_.path() + "/Library/Logs/Quillhaven"; }
  std::string logFile(const std::string& name) const { return logDirectory() + "/" + name; }
  std::string readLog(const std::string& name) const { return home_.read("Library/Logs/Quillhaven/" + name); }

  // The line the facility writes for `message` at the fixed time.
  static std::string expectedLine(const std::string& message) {
    return "5/Jan/21, 09:07:03+0100 ctl[" + std::to_string(getpid()) + "] " + message + "\n";
  }

  void saveAndSet(const std::string& name, const std::string& value) {
    const char* old = std::getenv(name.c_str());
    savedEnvironment_.emplace_back(name, old ? std::optional<std::string>(old) : std::nullopt);
    setenv(name.c_str(), value.c_str(), 1);
  }

  testing_support::TempDir home_;
  platform::FixedUserIds user_{501, 501};
  platform::FixedClock clock_{platform::Date::fromUnixTime(kFixedUnixTime)};
  platform::FixedProcessInfo withUnifiedLog_{platform::OperatingSystemVersion{10, 15, 0}};
  platform::FixedProcessInfo withoutUnifiedLog_{platform::OperatingSystemVersion{10, 11, 6}};
  RecordingUnifiedSink unified_;
  RecordingLegacySink legacy_;
  std::vector<std::pair<std::string, std::optional<std::string>>> savedEnvironment_;
};

}  // namespace log_testing
