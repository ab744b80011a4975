// A log facility pointed at a private home directory, with fake user ids, clock,
// system version and system-log sinks, so that no test touches the machine's
// logs. Each test starts before LKSLogInit and ends with the facility reset.
#pragma once

#include <gtest/gtest.h>

#include <mutex>
#include <optional>

#include "harness/installed.h"
#include "harness/saved_environment.h"
#include "harness/temp_dir.h"
#include "log/log.h"
#include "log/log_testing.h"
#include "platform/foundation/clock.h"
#include "platform/foundation/process_info.h"
#include "platform/foundation/user_ids.h"
#include "platform/system_log/legacy_log.h"
#include "platform/system_log/unified_log.h"

namespace log_testing {

using Lines = std::vector<std::string>;

// What a sink was given, one line of text per entry, from any thread.
struct RecordedEntries {
  std::vector<std::string> entries() {
    std::lock_guard lock(mutex);
    return recorded;
  }
  void add(std::string entry) {
    std::lock_guard lock(mutex);
    recorded.push_back(std::move(entry));
  }
  std::mutex mutex;
  std::vector<std::string> recorded;
};

// "<category> <type> <message>", the category of the default handle read as "default".
struct RecordingUnifiedSink : platform::UnifiedLogSink, RecordedEntries {
  void send(const platform::UnifiedLog& log, std::uint8_t type, std::string_view message) override {
    add((log.category().empty() ? "default" : log.category()) + " " + std::to_string(type) + " " +
        std::string(message));
  }
};

// "<facility> <level> <message>".
struct RecordingLegacySink : platform::LegacyLogSink, RecordedEntries {
  void send(const std::string& facility, const platform::Dictionary& record) override {
    add(facility + " " + *record.get(platform::ASL_KEY_LEVEL).asString() + " " +
        *record.get(platform::ASL_KEY_MSG).asString());
  }
};

class LogFacilityTest : public ::testing::Test {
 protected:
  LogFacilityTest() {
    setenv("HOME", home_.path().c_str(), 1);
    setenv("TZ", "XYZ-1", 1);  // one hour east of UTC, without needing time-zone files
  }
  ~LogFacilityTest() override { LKSLogResetForTesting(); }

  // Sets the facility up as the tool does, on the first system with the
  // unified log (10.12) or the last one without it (10.11).
  void init(bool unified = true) {
    system_.emplace(platform::OperatingSystemVersion{10, unified ? 12 : 11, 0});
    installedSystem_.emplace(&*system_);
    LKSLogInit("com.larkspan.quillhaven", "ctl");
  }

  std::string logFile(const std::string& name) const { return home_.file("Library/Logs/Quillhaven/" + name); }
  std::string readLog(const std::string& name) const { return home_.read("Library/Logs/Quillhaven/" + name); }

  // The line that process `pid` writes for `message` at the fixed time, 2021-01-05 08:07:03 UTC.
  static std::string expectedLine(const std::string& message, const char* date = "5/Jan/21, 09:07:03+0100",
                                  pid_t pid = getpid()) {
    return std::string(date) + " ctl[" + std::to_string(pid) + "] " + message + "\n";
  }

  const testing_support::SavedEnvironment environment_{"HOME", "TZ"};
  testing_support::TempDir home_;
  platform::FixedUserIds user_{501, 501};
  const testing_support::Installed<platform::UserIds> installedUser_{&user_};
  platform::FixedClock clock_{platform::Date::fromUnixTime(1609834023.0)};
  const testing_support::Installed<platform::Clock> installedClock_{&clock_};
  std::optional<platform::FixedProcessInfo> system_;
  std::optional<testing_support::Installed<platform::ProcessInfo>> installedSystem_;
  RecordingUnifiedSink unified_;
  const testing_support::Installed<platform::UnifiedLogSink> installedUnified_{&unified_};
  RecordingLegacySink legacy_;
  const testing_support::Installed<platform::LegacyLogSink> installedLegacy_{&legacy_};
};

}  // namespace log_testing
