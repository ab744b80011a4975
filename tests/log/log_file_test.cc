// The log file: where it lives, the form of its lines, and what happens to an
// entry when the file or the statement is faulty.
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cstring>
#include <filesystem>
#include <functional>

#include "log/log_test_fixture.h"

namespace log_testing {
namespace {

namespace fs = std::filesystem;

class LogFileTest : public LogFacilityTest {
 protected:
  // The messages the facility reported about itself.
  std::vector<std::string> reportedFailures() {
    std::vector<std::string> messages;
    for (const UnifiedEntry& entry : unified_.entries()) {
      EXPECT_EQ(entry.log, platform::UnifiedLog::defaultLog()) << entry.message;
      EXPECT_EQ(entry.type, LKSLogLevelError) << entry.message;
      messages.push_back(entry.message);
    }
    return messages;
  }
};

// ---- Where the file lives ----

struct DirectoryCase {
  const char* why;
  uid_t real, effective;
  const char* home;
  const char* expected;
};

TEST_F(LogFileTest, DirectoryDependsOnTheUserIdsAndTheHomeDirectory) {
  const DirectoryCase cases[] = {
      {"effective root, as under sudo", 501, 0, "/home/someone", "/Library/Logs/Quillhaven"},
      {"real root only", 0, 501, "/home/someone", "/Library/Logs/Quillhaven"},
      {"ordinary user", 501, 501, "/home/someone", "/home/someone/Library/Logs/Quillhaven"},
      {"home with a trailing separator", 501, 501, "/home/someone/", "/home/someone/Library/Logs/Quillhaven"},
      {"home is the root directory", 501, 501, "/", "/Library/Logs/Quillhaven"},
  };
  for (const DirectoryCase& c : cases) {
    const platform::FixedUserIds ids(c.real, c.effective);
    platform::UserIds::setForTesting(&ids);
    setenv("HOME", c.home, 1);
    EXPECT_EQ(LKSLogGetParentPath(), c.expected) << c.why;
  }
  platform::UserIds::setForTesting(&user_);
}

TEST_F(LogFileTest, InitCreatesTheMissingDirectoryAndAnEmptyLiveFile) {
  const mode_t savedMask = umask(022);
  init();
  umask(savedMask);
  struct stat status {};
  ASSERT_EQ(stat(logFile("ctl.log").c_str(), &status), 0);
  EXPECT_TRUE(S_ISREG(status.st_mode));
  EXPECT_EQ(status.st_mode & 0777, 0644u);
  EXPECT_EQ(status.st_size, 0);
  EXPECT_TRUE(reportedFailures().empty());
}

// ---- The form of a line ----

TEST_F(LogFileTest, LineIsDateCategoryProcessIdAndMessage) {
  init();
  LKSLogWithLevel2(LKSLogLevelDefault, "Connection became invalid with server.");
  EXPECT_EQ(readLog("ctl.log"), expectedLine("Connection became invalid with server."));
}

TEST_F(LogFileTest, ArgumentsAreFormattedWithObjectsAndPrintfConversions) {
  init();
  LKSLogWithLevel2(LKSLogLevelError, "Request %@ failed: %d (%s) %lu%%", std::string("status"), -2, "busy",
                   7UL);
  EXPECT_EQ(readLog("ctl.log"), expectedLine("Request status failed: -2 (busy) 7%"));
}

struct DateCase {
  double unixTime;
  const char* timeZone;  // POSIX TZ: the offset is west of UTC
  const char* expected;
};

TEST_F(LogFileTest, DateIsInTheTimeZoneCurrentAtInit) {
  const DateCase cases[] = {
      {1609834023.0, "UTC0", "5/Jan/21, 08:07:03+0000"},
      {1609834023.9, "UTC0", "5/Jan/21, 08:07:03+0000"},       // fractions are truncated
      {1640476799.0, "XYZ-1", "26/Dec/21, 00:59:59+0100"},     // the offset moves the day and month
      {1640476799.0, "ABC+5:30", "25/Dec/21, 18:29:59-0530"},  // half-hour offset, west
      {1236297600.0, "UTC0", "6/Mar/09, 00:00:00+0000"},       // two-digit year keeps its zero
  };
  for (const DateCase& c : cases) {
    setenv("TZ", c.timeZone, 1);
    const platform::FixedClock clock(platform::Date::fromUnixTime(c.unixTime));
    platform::Clock::setForTesting(&clock);
    init();
    LKSLogWithLevel2(LKSLogLevelDefault, "tick");
    EXPECT_EQ(readLog("ctl.log"), std::string(c.expected) + " ctl[" + std::to_string(getpid()) + "] tick\n")
        << c.timeZone << " " << c.unixTime;
    LKSLogResetForTesting();
    fs::remove(logFile("ctl.log"));
  }
  platform::Clock::setForTesting(&clock_);
}

// The write calls this thread has made so far; -1 when the kernel does not
// count them. Read with plain system calls, which add none of their own.
long long writeCallsOfThisThread() {
  const int fd = ::open("/proc/thread-self/io", O_RDONLY | O_CLOEXEC);
  if (fd < 0) return -1;
  char text[512] = {};
  const ssize_t n = ::read(fd, text, sizeof text - 1);
  ::close(fd);
  const char* field = n > 0 ? std::strstr(text, "syscw: ") : nullptr;
  return field ? std::atoll(field + std::strlen("syscw: ")) : -1;
}

// One entry is one write call: lines of concurrent writers cannot interleave.
TEST_F(LogFileTest, EachEntryIsOneWriteCall) {
  init();
  // One entry first, so that one-time work of the run-time (the checks of a
  // sanitizer build write to a pipe) is not counted.
  LKSLogWithLevel2(LKSLogLevelDefault, "first");
  const long long before = writeCallsOfThisThread();
  if (before < 0) GTEST_SKIP() << "no per-thread write accounting on this kernel";
  const std::string longMessage(20000, 'x');
  LKSLogWithLevel2(LKSLogLevelDefault, "short");
  LKSLogWithLevel2(LKSLogLevelDefault, "%@", longMessage);
  LKSLogWithLevel2(LKSLogLevelDefault, "third");
  EXPECT_EQ(writeCallsOfThisThread() - before, 3);
  EXPECT_EQ(readLog("ctl.log"),
            expectedLine("first") + expectedLine("short") + expectedLine(longMessage) + expectedLine("third"));
}

// ---- An existing file ----

TEST_F(LogFileTest, AppendsToTheExistingFile) {
  fs::create_directories(logDirectory());
  home_.write("Library/Logs/Quillhaven/ctl.log", "earlier run\n");
  init();
  LKSLogWithLevel2(LKSLogLevelInfo, "later run");
  EXPECT_EQ(readLog("ctl.log"), "earlier run\n" + expectedLine("later run"));
}

// ---- Entries that go nowhere ----

TEST_F(LogFileTest, EntryBeforeInitIsWrittenNowhere) {
  LKSLogWithLevel2(LKSLogLevelDefault, "too early");
  EXPECT_FALSE(fs::exists(logDirectory()));
  init();
  LKSLogWithLevel2(LKSLogLevelDefault, "in time");
  EXPECT_EQ(readLog("ctl.log"), expectedLine("in time"));
  EXPECT_TRUE(reportedFailures().empty());
}

struct UnopenableCase {
  const char* why;
  std::function<void()> arrange;
  int expectedErrno;
};

TEST_F(LogFileTest, UnopenableFileIsReportedAndLaterEntriesAreDropped) {
  const UnopenableCase cases[] = {
      {"the home directory holds a file named like the first directory, so none can be made",
       [this] { home_.write("Library", "not a directory"); }, ENOTDIR},
      {"the live file's name is taken by a directory", [this] { fs::create_directories(logFile("ctl.log")); },
       EISDIR},
  };
  for (const UnopenableCase& c : cases) {
    fs::remove_all(home_.file("Library"));
    c.arrange();
    const std::size_t reportsBefore = reportedFailures().size();
    init();
    LKSLogWithLevel2(LKSLogLevelError, "lost");
    LKSLogWithLevel2(LKSLogLevelDefault, "lost too");
    const std::vector<std::string> failures = reportedFailures();
    // Only the open is reported: dropped entries are silent.
    ASSERT_EQ(failures.size(), reportsBefore + 1) << c.why;
    EXPECT_EQ(failures.back(), "Failed to open log file (" + std::to_string(c.expectedErrno) + ").") << c.why;
    LKSLogResetForTesting();
  }
  // No file was made anywhere under the home directory.
  for (const auto& entry : fs::recursive_directory_iterator(home_.path())) {
    EXPECT_FALSE(entry.is_regular_file()) << entry.path();
  }
}

// ---- Faulty statements ----

struct FaultyStatementCase {
  const char* why;
  std::function<void()> log;
  std::string expectedReport;
};

TEST_F(LogFileTest, FaultyStatementsAreReportedAndNotWritten) {
  const FaultyStatementCase cases[] = {
      {"format not UTF-8", [] { LKSLogWithLevel2(LKSLogLevelDefault, "caf\xe9 %d", 1); },
       "Could not convert string 'caf\xe9 %d'."},
      {"format truncated in a sequence", [] { LKSLogWithLevel2(LKSLogLevelDefault, "end \xc3"); },
       "Could not convert string 'end \xc3'."},
      {"argument of the wrong kind", [] { LKSLogWithLevel2(LKSLogLevelDefault, "%s left", 3); },
       "Could not format string '%s left'."},
      {"argument missing", [] { LKSLogWithLevel2(LKSLogLevelInfo, "%d of %d", 1); },
       "Could not format string '%d of %d'."},
      {"argument text not UTF-8, so the line has no UTF-8 form",
       [] { LKSLogWithLevel2(LKSLogLevelDefault, "path %s", "/tmp/caf\xe9"); },
       "Could not get data for string '" + expectedLine("path /tmp/caf\xe9") + "'."},
  };
  init();
  for (const FaultyStatementCase& c : cases) c.log();
  LKSLogWithLevel2(LKSLogLevelDefault, "fine");
  EXPECT_EQ(readLog("ctl.log"), expectedLine("fine"));
  const std::vector<std::string> failures = reportedFailures();
  ASSERT_EQ(failures.size(), std::size(cases));
  for (std::size_t i = 0; i < std::size(cases); ++i)
    EXPECT_EQ(failures[i], cases[i].expectedReport) << cases[i].why;
}

}  // namespace
}  // namespace log_testing
