// The log file: where it lives, the form of its lines, what happens when it
// cannot be opened, and rotation at 10,000,000 bytes, alone, under concurrent
// threads and across processes that share the file.
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <filesystem>
#include <fstream>
#include <latch>
#include <sstream>
#include <thread>

#include "log/log_test_fixture.h"

namespace log_testing {
namespace {

namespace fs = std::filesystem;

constexpr std::uintmax_t kThreshold = 10'000'000;

class LogFileTest : public LogFacilityTest {
 protected:
  // A file of `size` bytes ending in `tail`, taking almost no room on disk.
  void makeFile(const std::string& name, std::uintmax_t size, const std::string& tail = "") const {
    fs::create_directories(logFile(""));
    std::ofstream{logFile(name)};
    fs::resize_file(logFile(name), size - tail.size());
    std::ofstream(logFile(name), std::ios::app) << tail;
  }

  // What the file holds after the run of zero bytes that makeFile starts it
  // with; nullopt when there is no such file.
  std::optional<std::string> afterPadding(const std::string& name) const {
    if (!fs::exists(logFile(name))) return std::nullopt;
    std::string contents = readLog(name);
    return contents.substr(std::min(contents.find_first_not_of('\0'), contents.size()));
  }
};

TEST_F(LogFileTest, DirectoryDependsOnTheUserIdsAndTheHomeDirectory) {
  const struct {
    uid_t real, effective;
    const char *home, *expected;
  } cases[] = {
      {501, 0, "/home/someone", "/Library/Logs/Quillhaven"},  // effective root, as under sudo
      {0, 501, "/home/someone", "/Library/Logs/Quillhaven"},  // real root only
      {501, 501, "/home/someone/", "/home/someone/Library/Logs/Quillhaven"},  // no doubled separator
  };
  for (const auto& c : cases) {
    const platform::FixedUserIds ids(c.real, c.effective);
    const testing_support::Installed<platform::UserIds> acting(&ids);
    setenv("HOME", c.home, 1);
    EXPECT_EQ(LKSLogGetParentPath(), c.expected) << c.real << "/" << c.effective;
  }
}

TEST_F(LogFileTest, LineIsTheDateInTheCurrentTimeZoneCategoryProcessIdAndMessage) {
  const struct {
    double unixTime;
    const char *timeZone, *date;  // POSIX TZ: the offset is west of UTC
  } cases[] = {
      {1609834023.9, "UTC0", "5/Jan/21, 08:07:03+0000"},       // fractions are truncated
      {1640476799.0, "ABC+5:30", "25/Dec/21, 18:29:59-0530"},  // half-hour offset, west
      {1236297600.0, "UTC0", "6/Mar/09, 00:00:00+0000"},       // two-digit year keeps its zero
  };
  for (const auto& c : cases) {
    setenv("TZ", c.timeZone, 1);
    const platform::FixedClock clock(platform::Date::fromUnixTime(c.unixTime));
    const testing_support::Installed<platform::Clock> installedClock(&clock);
    init();
    LKSLogWithLevel2(LKSLogLevelError, "Request %@ failed: %d (%s) %lu%%", std::string("status"), -2, "busy", 7UL);
    EXPECT_EQ(readLog("ctl.log"), expectedLine("Request status failed: -2 (busy) 7%", c.date)) << c.timeZone;
    LKSLogResetForTesting();
    fs::remove(logFile("ctl.log"));
  }
}

// Lines written many to a second share their date text, and a line of another
// second, later or earlier, gets its own.
TEST_F(LogFileTest, EachLineCarriesTheDateOfItsOwnSecond) {
  setenv("TZ", "UTC0", 1);
  init();
  const struct {
    double unixTime;
    const char* date;
  } entries[] = {
      {1609834023.1, "5/Jan/21, 08:07:03+0000"}, {1609834023.9, "5/Jan/21, 08:07:03+0000"},
      {1609834024.0, "5/Jan/21, 08:07:04+0000"}, {1609747623.5, "4/Jan/21, 08:07:03+0000"},
  };
  std::string expected;
  for (const auto& entry : entries) {
    const platform::FixedClock clock(platform::Date::fromUnixTime(entry.unixTime));
    const testing_support::Installed<platform::Clock> installedClock(&clock);
    LKSLogWithLevel2(LKSLogLevelDefault, "entry");
    expected += expectedLine("entry", entry.date);
  }
  EXPECT_EQ(readLog("ctl.log"), expected);
}

// A child forked after set-up, and its own child, log under their own process
// ids without setting the facility up again.
TEST_F(LogFileTest, ForkedChildrenWriteTheirOwnProcessIds) {
  init();
  int ids[2];
  ASSERT_EQ(pipe(ids), 0);
  const pid_t child = fork();
  if (child == 0) {
    LKSLogWithLevel2(LKSLogLevelDefault, "from the child");
    const pid_t grandchild = fork();
    if (grandchild == 0) {
      LKSLogWithLevel2(LKSLogLevelDefault, "from the grandchild");
      _exit(0);
    }
    const bool written = ::write(ids[1], &grandchild, sizeof grandchild) == sizeof grandchild;
    _exit(written && waitpid(grandchild, nullptr, 0) == grandchild ? 0 : 1);
  }
  ASSERT_GT(child, 0);
  int status = 0;
  ASSERT_EQ(waitpid(child, &status, 0), child);
  ASSERT_TRUE(WIFEXITED(status) && WEXITSTATUS(status) == 0) << status;
  pid_t grandchild = 0;
  ASSERT_EQ(::read(ids[0], &grandchild, sizeof grandchild), static_cast<ssize_t>(sizeof grandchild));
  ::close(ids[0]);
  ::close(ids[1]);
  LKSLogWithLevel2(LKSLogLevelDefault, "from the parent");
  const char* date = "5/Jan/21, 09:07:03+0100";
  EXPECT_EQ(readLog("ctl.log"), expectedLine("from the child", date, child) +
                                    expectedLine("from the grandchild", date, grandchild) +
                                    expectedLine("from the parent"));
}

TEST_F(LogFileTest, StatementBeforeInitReachesNoLogAtAll) {
  LKSLog(LKSLogLevelError, "too early");
  _LKSLog(LKSLogLevelError, "too early for the legacy log");
  EXPECT_FALSE(fs::exists(home_.file("Library")));
  init(/*unified=*/false);
  EXPECT_EQ(readLog("ctl.log"), "");
  EXPECT_TRUE(unified_.entries().empty());
  EXPECT_TRUE(legacy_.entries().empty());
}

TEST_F(LogFileTest, UnopenableFileIsReportedOnceAndLaterEntriesAreDropped) {
  fs::create_directories(logFile("ctl.log"));  // the live file's name is taken by a directory
  init();
  LKSLogWithLevel2(LKSLogLevelError, "lost");
  LKSLogWithLevel2(LKSLogLevelDefault, "lost too");
  // Reported once, to the default handle at error; the entries after it are dropped silently.
  EXPECT_EQ(unified_.entries(), Lines{"default 16 Failed to open log file (" + std::to_string(EISDIR) + ")."});
  for (const auto& entry : fs::recursive_directory_iterator(home_.path())) {
    EXPECT_FALSE(entry.is_regular_file()) << entry.path();
  }
}

TEST_F(LogFileTest, LiveFileJustBelowTheThresholdTakesOneLineWholeAndRotatesAtTheNext) {
  makeFile("ctl.log", kThreshold - 1, "earlier\n");
  init();
  LKSLogWithLevel2(LKSLogLevelDefault, "first");
  EXPECT_FALSE(fs::exists(logFile("ctl.0.log")));
  LKSLogWithLevel2(LKSLogLevelDefault, "second");
  const std::string rotated = readLog("ctl.0.log");
  EXPECT_EQ(rotated.size(), kThreshold - 1 + expectedLine("first").size());
  EXPECT_TRUE(rotated.ends_with("earlier\n" + expectedLine("first")));
  EXPECT_EQ(readLog("ctl.log"), expectedLine("second"));
}

// A live file at the threshold when the run starts, and rotated files with a
// gap (no ctl.2.log, whose move fails without stopping the others) and a
// stray ctl.4.log. The lock that rotations take cannot be had (a directory
// holds its name), which does not stop a process alone.
TEST_F(LogFileTest, RotationBeforeTheFirstLineShiftsOlderFilesAndKeepsFourAtMost) {
  for (const char* generation : {"0", "1", "3", "4"}) makeFile("ctl." + std::string(generation) + ".log", 1, generation);
  makeFile("ctl.log", kThreshold, "live");
  fs::create_directory(logFile("ctl.log.lock"));
  init();
  LKSLogWithLevel2(LKSLogLevelInfo, "after rotation");
  EXPECT_EQ(readLog("ctl.log"), expectedLine("after rotation"));
  EXPECT_TRUE(readLog("ctl.0.log").ends_with("live"));
  EXPECT_EQ(fs::file_size(logFile("ctl.0.log")), kThreshold);
  EXPECT_EQ(readLog("ctl.1.log"), "0");
  EXPECT_EQ(readLog("ctl.2.log"), "1");
  EXPECT_FALSE(fs::exists(logFile("ctl.3.log")));
  EXPECT_FALSE(fs::exists(logFile("ctl.4.log")));
}

// Another run rotated the file that this process still writes to: its lines go
// on into that file (now ctl.0.log) until its own count reaches the threshold;
// then it takes up the live file that the other run left instead of rotating
// again, unless that file has itself reached the threshold. A live file
// removed from outside is rotated as with no other run.
TEST_F(LogFileTest, FileRotatedByAnotherProcessIsTakenUpOnceTheThresholdIsReached) {
  const std::string first = expectedLine("first"), second = expectedLine("second");
  const struct {
    const char* scenario;
    std::uintmax_t newLiveSize;  // 0: the other run left no live file
    std::optional<std::string> live, rotated0, rotated1;
  } cases[] = {
      {"taken up", 6, "other\n" + second, "earlier\n" + first, std::nullopt},
      {"taken up and rotated", kThreshold, second, "other\n", "earlier\n" + first},
      {"removed from outside", 0, second, std::nullopt, "earlier\n" + first},
  };
  for (const auto& c : cases) {
    makeFile("ctl.log", kThreshold - 1, "earlier\n");
    init();
    fs::rename(logFile("ctl.log"), logFile("ctl.0.log"));
    if (c.newLiveSize != 0) makeFile("ctl.log", c.newLiveSize, "other\n");
    LKSLogWithLevel2(LKSLogLevelDefault, "first");
    LKSLogWithLevel2(LKSLogLevelDefault, "second");
    EXPECT_EQ(afterPadding("ctl.log"), c.live) << c.scenario;
    EXPECT_EQ(afterPadding("ctl.0.log"), c.rotated0) << c.scenario;
    EXPECT_EQ(afterPadding("ctl.1.log"), c.rotated1) << c.scenario;
    EXPECT_FALSE(fs::exists(logFile("ctl.2.log"))) << c.scenario;
    LKSLogResetForTesting();
    fs::remove_all(logFile(""));
  }
}

// Twenty-four runs that start together, as from a script, each set up and
// logging one long line. From a live file 300 bytes below the threshold, every
// run that starts after the first line was written finds it crossed: one of
// them rotates, the others follow. Which runs those are changes from trial to
// trial, hence several.
TEST_F(LogFileTest, ProcessesStartedTogetherLoseNoLineAndRotateOncePerCrossing) {
  constexpr int kProcesses = 24;
  const std::string padding(1000, 'p');
  const struct {
    std::uintmax_t liveSize;
    int rotations, trials;
  } cases[] = {
      {5, 0, 1},
      {kThreshold - 300, 1, 4},
  };
  for (const auto& c : cases) {
    for (int trial = 0; trial < c.trials; ++trial) {
      SCOPED_TRACE("live file of " + std::to_string(c.liveSize) + " bytes, trial " + std::to_string(trial));
      for (int generation = 0; generation < 4; ++generation) {
        makeFile("ctl." + std::to_string(generation) + ".log", 2, std::to_string(generation) + "\n");
      }
      makeFile("ctl.log", c.liveSize, "live\n");

      int start[2];
      ASSERT_EQ(pipe(start), 0);
      Lines expected;
      std::vector<pid_t> children;
      for (int process = 0; process < kProcesses; ++process) {
        const pid_t child = fork();
        if (child == 0) {
          ::close(start[1]);
          char none;
          // End of file once the parent, with every child started, closes its end.
          if (::read(start[0], &none, 1) != 0) _exit(2);
          init();
          LKSLogWithLevel2(LKSLogLevelDefault, "process %d %@", process, padding);
          _exit(unified_.entries().empty() ? 0 : 1);  // a failure of the facility's own was reported
        }
        if (child < 0) break;  // those started still run and are waited for; the count below fails
        children.push_back(child);
        expected.push_back(expectedLine("process " + std::to_string(process) + " " + padding,
                                        "5/Jan/21, 09:07:03+0100", child));
      }
      ::close(start[1]);
      ::close(start[0]);
      for (const pid_t child : children) {
        int status = 0;
        ASSERT_EQ(waitpid(child, &status, 0), child);
        EXPECT_TRUE(WIFEXITED(status) && WEXITSTATUS(status) == 0) << "process " << child << " status " << status;
      }
      ASSERT_EQ(children.size(), std::size_t{kProcesses});

      // The former live file whole, then every line once and whole: in it
      // (written before the rotation, or after it by a run still on it) or in
      // the new live file.
      const std::string formerLive = readLog(c.rotations ? "ctl.0.log" : "ctl.log");
      ASSERT_GE(formerLive.size(), c.liveSize);
      EXPECT_EQ(formerLive.substr(c.liveSize - 5, 5), "live\n");
      std::istringstream written(formerLive.substr(c.liveSize) + (c.rotations ? readLog("ctl.log") : ""));
      Lines lines;
      for (std::string line; std::getline(written, line);) lines.push_back(line + (written.eof() ? "" : "\n"));
      std::sort(lines.begin(), lines.end());
      std::sort(expected.begin(), expected.end());
      EXPECT_EQ(lines, expected);
      // The older files moved by exactly as many places as there were rotations.
      for (int generation = 0; generation + c.rotations < 4; ++generation) {
        EXPECT_EQ(readLog("ctl." + std::to_string(generation + c.rotations) + ".log"), std::to_string(generation) + "\n");
      }
      EXPECT_FALSE(fs::exists(logFile("ctl.4.log")));
      fs::remove_all(logFile(""));
    }
  }
}

// Eight writers put about 35 MB through the file: three rotations, after
// which every entry is still on disk, in ctl.2.log (oldest) to ctl.log.
TEST_F(LogFileTest, ConcurrentWritersThroughRotationsLoseNoLineAndSplitNone) {
  constexpr int kWriters = 8, kEntriesPerWriter = 4000;
  const std::string padding(1024, 'p');
  init();
  std::latch start(kWriters);
  std::vector<std::thread> writers;
  for (int writer = 0; writer < kWriters; ++writer) {
    writers.emplace_back([&, writer] {
      start.arrive_and_wait();
      for (int entry = 0; entry < kEntriesPerWriter; ++entry) {
        LKSLogWithLevel2(LKSLogLevelDefault, "writer %d entry %d %@", writer, entry, padding);
      }
    });
  }
  for (std::thread& t : writers) t.join();

  EXPECT_FALSE(fs::exists(logFile("ctl.3.log")));
  std::vector<int> nextEntry(kWriters, 0);
  for (const std::string name : {"ctl.2.log", "ctl.1.log", "ctl.0.log", "ctl.log"}) {
    const std::string contents = readLog(name);
    ASSERT_TRUE(contents.ends_with('\n')) << name << ": the last line is cut";
    std::istringstream lines(contents);
    std::size_t lastLength = 0;
    for (std::string line; std::getline(lines, line); lastLength = line.size() + 1) {
      int writer = -1, entry = -1;
      ASSERT_EQ(std::sscanf(line.c_str(), "%*s %*s ctl[%*d] writer %d entry %d", &writer, &entry), 2) << line;
      // Each writer's entries appear once, whole and in its own order, oldest file first.
      ASSERT_TRUE(writer >= 0 && writer < kWriters && entry == nextEntry[writer]++) << name << ": " << line.substr(0, 80);
      ASSERT_EQ(line + "\n", expectedLine("writer " + std::to_string(writer) + " entry " + std::to_string(entry) + " " + padding));
    }
    // A rotated file crossed the threshold with its last line and no earlier.
    EXPECT_TRUE(name == "ctl.log" || (contents.size() >= kThreshold && contents.size() - lastLength < kThreshold)) << name;
  }
  EXPECT_EQ(nextEntry, std::vector<int>(kWriters, kEntriesPerWriter));
  EXPECT_TRUE(unified_.entries().empty());
}

}  // namespace
}  // namespace log_testing
