// The log statement: which system log an entry reaches, at which level, beside
// the file; the barrier on the legacy log; and unified entries as journal datagrams.
#include <sys/socket.h>
#include <sys/un.h>

#include <atomic>
#include <cstring>
#include <future>
#include <thread>

#include "log/log_test_fixture.h"

namespace log_testing {
namespace {

class LogRoutingTest : public LogFacilityTest {
 protected:
  // Logs one entry of every level, default, info, debug and error, and checks the file holds them all.
  void logEveryLevel() {
    std::string lines;
    for (std::uint8_t level : {0, 1, 2, 16}) {
      LKSLog(level, "entry %@ at %d", std::string("x"), level);
      lines += expectedLine("entry x at " + std::to_string(level));
    }
    EXPECT_EQ(readLog("ctl.log"), lines);
  }
};

TEST_F(LogRoutingTest, UnifiedSystemTakesEveryLevelAsTheEntryTypeBesideTheFile) {
  init(/*unified=*/true);
  ASSERT_TRUE(LKSLOG_UNIFIED);
  EXPECT_EQ(lks_log->subsystem() + " " + lks_log->category(), "com.larkspan.quillhaven ctl");
  logEveryLevel();
  EXPECT_EQ(unified_.entries(), (Lines{"ctl 0 entry x at 0", "ctl 1 entry x at 1", "ctl 2 entry x at 2",
                                       "ctl 16 entry x at 16"}));
  EXPECT_TRUE(legacy_.entries().empty());
}

TEST_F(LogRoutingTest, OlderSystemSendsAllButDebugToTheLegacyLogBesideTheFile) {
  init(/*unified=*/false);
  EXPECT_FALSE(LKSLOG_UNIFIED);
  logEveryLevel();
  _LKSLogSync();
  EXPECT_EQ(legacy_.entries(), (Lines{"com.larkspan.quillhaven Warning entry x at 0",
                                      "com.larkspan.quillhaven Warning entry x at 1",
                                      "com.larkspan.quillhaven Error entry x at 16"}));
  EXPECT_TRUE(unified_.entries().empty());
}

// A legacy sink that takes its time over each entry.
struct SlowLegacySink : platform::LegacyLogSink {
  void send(const std::string&, const platform::Dictionary&) override {
    entered.set_value();
    std::this_thread::sleep_for(std::chrono::milliseconds(50));
    sent = true;
  }
  std::promise<void> entered;
  std::atomic<bool> sent{false};
};

TEST_F(LogRoutingTest, SyncReturnsOnlyAfterEarlierLegacyEntriesWereSent) {
  SlowLegacySink sink;
  const testing_support::Installed<platform::LegacyLogSink> installed(&sink);
  init(/*unified=*/false);
  std::thread sender([] { _LKSLog(LKSLogLevelError, "slow entry"); });
  sink.entered.get_future().wait();
  _LKSLogSync();
  EXPECT_TRUE(sink.sent);
  sender.join();
}

TEST(JournalSink, EntryIsOneDatagramOfMessagePrioritySenderSubsystemAndCategory) {
  testing_support::TempDir directory;
  const std::string path = directory.file("journal.socket");
  const int journal = ::socket(AF_UNIX, SOCK_DGRAM | SOCK_CLOEXEC, 0);
  sockaddr_un address{};
  address.sun_family = AF_UNIX;
  std::strncpy(address.sun_path, path.c_str(), sizeof address.sun_path - 1);
  ASSERT_EQ(::bind(journal, reinterpret_cast<sockaddr*>(&address), sizeof address), 0) << std::strerror(errno);
  auto receive = [journal] {
    std::string datagram(4096, '\0');
    const ssize_t n = ::recv(journal, datagram.data(), datagram.size(), MSG_DONTWAIT);
    datagram.resize(n > 0 ? static_cast<std::size_t>(n) : 0);
    return datagram;
  };

  platform::JournalSink sink(path);
  sink.send(platform::UnifiedLog("com.larkspan.quillhaven", "ctl"), platform::OS_LOG_TYPE_DEBUG,
            "Connection became invalid with server.");
  sink.send(*platform::UnifiedLog::defaultLog(), platform::OS_LOG_TYPE_ERROR, "Failed to open log file (2).");
  const std::string sender = std::string("SYSLOG_IDENTIFIER=") + program_invocation_short_name + "\n";
  EXPECT_EQ(receive(), "MESSAGE=Connection became invalid with server.\nPRIORITY=7\n" + sender +
                           "SUBSYSTEM=com.larkspan.quillhaven\nCATEGORY=ctl\n");
  EXPECT_EQ(receive(), "MESSAGE=Failed to open log file (2).\nPRIORITY=3\n" + sender) << "the default handle";
  EXPECT_EQ(receive(), "") << "one datagram per entry";
  ::close(journal);
}

}  // namespace
}  // namespace log_testing
