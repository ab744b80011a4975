// The log statement: which system log an entry reaches, at which level, beside
// the file; and the barrier on the legacy log.
#include <atomic>
#include <chrono>
#include <future>
#include <thread>

#include "log/log_test_fixture.h"

namespace log_testing {
namespace {

constexpr std::uint8_t kAllLevels[] = {LKSLogLevelDefault, LKSLogLevelInfo, LKSLogLevelDebug,
                                       LKSLogLevelError};

class LogRoutingTest : public LogFacilityTest {
 protected:
  static void logEveryLevel() {
    for (std::uint8_t level : kAllLevels) LKSLog(level, "entry %@ at %d", std::string("x"), level);
  }

  static std::string everyLevelInTheFile() {
    std::string lines;
    for (std::uint8_t level : kAllLevels) lines += expectedLine("entry x at " + std::to_string(level));
    return lines;
  }
};

struct SystemCase {
  std::optional<platform::OperatingSystemVersion> version;
  bool unified;
};

TEST_F(LogRoutingTest, UnifiedLogIsUsedFromTenTwelveOn) {
  const SystemCase cases[] = {
      {platform::OperatingSystemVersion{10, 11, 6}, false},
      {platform::OperatingSystemVersion{10, 12, 0}, true},
      {platform::OperatingSystemVersion{11, 0, 0}, true},
      {platform::OperatingSystemVersion{12, 6, 1}, true},
      {std::nullopt, false},  // no version query at all: the oldest system
  };
  for (const SystemCase& c : cases) {
    const platform::FixedProcessInfo info(c.version);
    platform::ProcessInfo::setForTesting(&info);
    LKSLogInit("com.larkspan.quillhaven", "ctl");
    const std::string which =
        c.version ? std::to_string(c.version->majorVersion) + "." + std::to_string(c.version->minorVersion)
                  : "none";
    EXPECT_EQ(LKSLOG_UNIFIED, c.unified) << which;
    EXPECT_EQ(lks_log != nullptr, c.unified) << which;
    LKSLogResetForTesting();
    platform::ProcessInfo::setForTesting(nullptr);
  }
}

TEST_F(LogRoutingTest, UnifiedSystemTakesEveryLevelAsTheEntryTypeBesideTheFile) {
  init(/*unified=*/true);
  ASSERT_NE(lks_log, nullptr);
  EXPECT_EQ(lks_log->subsystem(), "com.larkspan.quillhaven");
  EXPECT_EQ(lks_log->category(), "ctl");
  logEveryLevel();
  _LKSLogSync();  // nothing was handed to the legacy log, so nothing to wait for

  const std::vector<UnifiedEntry> entries = unified_.entries();
  ASSERT_EQ(entries.size(), std::size(kAllLevels));
  for (std::size_t i = 0; i < entries.size(); ++i) {
    EXPECT_EQ(entries[i].log, lks_log);
    EXPECT_EQ(entries[i].type, kAllLevels[i]);
    EXPECT_EQ(entries[i].message, "entry x at " + std::to_string(kAllLevels[i]));
  }
  EXPECT_TRUE(legacy_.entries().empty());
  EXPECT_EQ(readLog("ctl.log"), everyLevelInTheFile());
}

TEST_F(LogRoutingTest, OlderSystemSendsAllButDebugToTheLegacyLogBesideTheFile) {
  init(/*unified=*/false);
  EXPECT_EQ(lks_log, nullptr);
  logEveryLevel();
  _LKSLog(17, "fault counts as a warning");
  _LKSLogSync();

  const std::vector<LegacyEntry> entries = legacy_.entries();
  ASSERT_EQ(entries.size(), 4u);
  const LegacyEntry expected[] = {
      {"com.larkspan.quillhaven", "Warning", "entry x at 0"},
      {"com.larkspan.quillhaven", "Warning", "entry x at 1"},
      {"com.larkspan.quillhaven", "Error", "entry x at 16"},
      {"com.larkspan.quillhaven", "Warning", "fault counts as a warning"},
  };
  for (std::size_t i = 0; i < entries.size(); ++i) {
    EXPECT_EQ(entries[i].facility, expected[i].facility);
    EXPECT_EQ(entries[i].level, expected[i].level) << expected[i].message;
    EXPECT_EQ(entries[i].message, expected[i].message);
  }
  EXPECT_TRUE(unified_.entries().empty());
  // The debug entry is in the file; _LKSLog alone is not.
  EXPECT_EQ(readLog("ctl.log"), everyLevelInTheFile());
}

TEST_F(LogRoutingTest, StatementBeforeInitReachesNoLogAtAll) {
  LKSLog(LKSLogLevelError, "too early");
  _LKSLog(LKSLogLevelError, "too early for the legacy log");
  EXPECT_TRUE(unified_.entries().empty());
  EXPECT_TRUE(legacy_.entries().empty());
  init(/*unified=*/false);
  EXPECT_EQ(readLog("ctl.log"), "");
}

// A legacy sink that holds the first entry until released.
class GatedLegacySink : public platform::LegacyLogSink {
 public:
  void send(const std::string&, const platform::Dictionary& record) override {
    entered_.set_value();
    release_.get_future().wait();
    sent_ = *record.get(platform::ASL_KEY_MSG).asString();
  }
  void waitUntilEntered() { entered_.get_future().wait(); }
  void release() { release_.set_value(); }
  const std::string& sent() const { return sent_; }

 private:
  std::promise<void> entered_, release_;
  std::string sent_;
};

TEST_F(LogRoutingTest, SyncReturnsOnlyAfterEarlierLegacyEntriesWereSent) {
  GatedLegacySink gate;
  platform::LegacyLogClient::setSinkForTesting(&gate);
  init(/*unified=*/false);

  std::thread sender([] { _LKSLog(LKSLogLevelError, "slow entry"); });
  gate.waitUntilEntered();
  std::atomic<bool> syncReturned{false};
  std::thread syncer([&] {
    _LKSLogSync();
    syncReturned = true;
  });
  // Room for the barrier to line up behind the held entry; it must not pass it.
  std::this_thread::sleep_for(std::chrono::milliseconds(50));
  EXPECT_FALSE(syncReturned);
  gate.release();
  syncer.join();
  sender.join();
  EXPECT_TRUE(syncReturned);
  EXPECT_EQ(gate.sent(), "slow entry");
}

}  // namespace
}  // namespace log_testing
