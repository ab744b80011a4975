// Rotation of the log file at 10,000,000 bytes, alone and under concurrent writers.
#include <fcntl.h>
#include <unistd.h>

#include <filesystem>
#include <latch>
#include <thread>

#include "log/log_test_fixture.h"

namespace log_testing {
namespace {

namespace fs = std::filesystem;

constexpr std::uintmax_t kThreshold = 10'000'000;

class LogRotationTest : public LogFacilityTest {
 protected:
  LogRotationTest() { fs::create_directories(logDirectory()); }

  // A file of `size` bytes that takes no room on disk.
  void makeSparseFile(const std::string& name, off_t size) const {
    const int fd = ::open(logFile(name).c_str(), O_WRONLY | O_CREAT | O_TRUNC, 0644);
    ASSERT_GE(fd, 0) << name;
    ASSERT_EQ(::ftruncate(fd, size), 0) << name;
    ::close(fd);
  }

  std::uintmax_t sizeOf(const std::string& name) const { return fs::file_size(logFile(name)); }
  bool exists(const std::string& name) const { return fs::exists(logFile(name)); }

  // The last `count` bytes of a log file.
  std::string tailOf(const std::string& name, std::size_t count) const {
    const int fd = ::open(logFile(name).c_str(), O_RDONLY);
    std::string tail(count, '\0');
    const ssize_t n = ::pread(fd, tail.data(), count, static_cast<off_t>(sizeOf(name) - count));
    ::close(fd);
    tail.resize(n > 0 ? static_cast<std::size_t>(n) : 0);
    return tail;
  }
};

TEST_F(LogRotationTest, LiveFileAtOrAboveTheThresholdIsRotatedBeforeTheFirstNewLine) {
  for (const off_t size : {static_cast<off_t>(kThreshold), static_cast<off_t>(12'345'678)}) {
    makeSparseFile("ctl.log", size);
    init();
    LKSLogWithLevel2(LKSLogLevelDefault, "first");
    EXPECT_EQ(sizeOf("ctl.0.log"), static_cast<std::uintmax_t>(size));
    EXPECT_EQ(readLog("ctl.log"), expectedLine("first")) << size;
    LKSLogResetForTesting();
    fs::remove(logFile("ctl.0.log"));
  }
}

TEST_F(LogRotationTest, LiveFileJustBelowTheThresholdTakesOneLineWholeAndRotatesAtTheNext) {
  makeSparseFile("ctl.log", kThreshold - 1);
  init();
  const std::string first = expectedLine("first");
  LKSLogWithLevel2(LKSLogLevelDefault, "first");
  EXPECT_FALSE(exists("ctl.0.log"));
  EXPECT_EQ(sizeOf("ctl.log"), kThreshold - 1 + first.size());
  EXPECT_EQ(tailOf("ctl.log", first.size()), first);

  LKSLogWithLevel2(LKSLogLevelDefault, "second");
  EXPECT_EQ(sizeOf("ctl.0.log"), kThreshold - 1 + first.size());
  EXPECT_EQ(tailOf("ctl.0.log", first.size()), first);
  EXPECT_EQ(readLog("ctl.log"), expectedLine("second"));
}

// Which rotated files exist before a rotation (by generation 0 to 4), and what
// each generation holds after it; "" for a file that must not exist.
struct ShiftCase {
  const char* why;
  bool present[5];
  const char* after[5];
};

TEST_F(LogRotationTest, RotationShiftsOlderFilesAndKeepsFourAtMost) {
  const ShiftCase cases[] = {
      {"full set plus a stray fifth",
       {true, true, true, true, true},
       {"live", "generation 0\n", "generation 1\n", "generation 2\n", ""}},
      {"full set",
       {true, true, true, true, false},
       {"live", "generation 0\n", "generation 1\n", "generation 2\n", ""}},
      {"a gap: the missing file's move fails and the others still move",
       {true, false, true, false, false},
       {"live", "generation 0\n", "", "generation 2\n", ""}},
      {"only a stray fifth", {false, false, false, false, true}, {"live", "", "", "", ""}},
      {"first rotation", {false, false, false, false, false}, {"live", "", "", "", ""}},
  };
  for (const ShiftCase& c : cases) {
    for (int generation = 0; generation < 5; ++generation) {
      const std::string name = "ctl." + std::to_string(generation) + ".log";
      fs::remove(logFile(name));
      if (c.present[generation])
        home_.write("Library/Logs/Quillhaven/" + name, "generation " + std::to_string(generation) + "\n");
    }
    makeSparseFile("ctl.log", kThreshold);
    init();
    LKSLogWithLevel2(LKSLogLevelInfo, "after rotation");
    EXPECT_EQ(readLog("ctl.log"), expectedLine("after rotation")) << c.why;
    for (int generation = 0; generation < 5; ++generation) {
      const std::string name = "ctl." + std::to_string(generation) + ".log";
      const std::string expected = c.after[generation];
      if (expected.empty()) {
        EXPECT_FALSE(exists(name)) << c.why << ": " << name;
      } else if (expected == "live") {
        EXPECT_EQ(sizeOf(name), kThreshold) << c.why << ": " << name;
      } else {
        EXPECT_EQ(readLog(name), expected) << c.why << ": " << name;
      }
    }
    LKSLogResetForTesting();
  }
}

TEST_F(LogRotationTest, FailedReopenReportsTheTriggeringEntryAndDropsTheRest) {
  makeSparseFile("ctl.log", kThreshold);
  init();
  // Rotation finds the directory anew; from here on it cannot be reached.
  home_.write("elsewhere", "a file, not a home directory");
  setenv("HOME", home_.file("elsewhere").c_str(), 1);
  LKSLogWithLevel2(LKSLogLevelDefault, "lost at rotation");
  LKSLogWithLevel2(LKSLogLevelDefault, "dropped silently");

  const std::vector<UnifiedEntry> reports = unified_.entries();
  ASSERT_EQ(reports.size(), 1u);
  EXPECT_EQ(reports[0].log, platform::UnifiedLog::defaultLog());
  EXPECT_EQ(reports[0].type, LKSLogLevelError);
  EXPECT_EQ(reports[0].message, "Failed to write to log file (" + std::to_string(EBADF) + ") '" +
                                    expectedLine("lost at rotation") + "'.");
  EXPECT_EQ(sizeOf("ctl.log"), kThreshold);  // its move failed with the others
  EXPECT_FALSE(exists("ctl.0.log"));
}

// Eight writers put about 35 MB through the file: three rotations, so every
// entry is still on disk afterwards, in ctl.2.log (oldest) to ctl.log.
TEST_F(LogRotationTest, ConcurrentWritersLoseNoLineAndSplitNone) {
  constexpr int kWriters = 8;
  constexpr int kEntriesPerWriter = 4000;
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

  EXPECT_FALSE(exists("ctl.3.log"));
  EXPECT_FALSE(exists("ctl.4.log"));
  const std::string prefix = expectedLine("writer ");
  const std::string linePrefix = prefix.substr(0, prefix.size() - 1);  // without the newline
  std::vector<int> nextEntry(kWriters, 0);
  std::size_t lines = 0;
  for (const char* name : {"ctl.2.log", "ctl.1.log", "ctl.0.log", "ctl.log"}) {
    const std::string contents = readLog(name);
    ASSERT_FALSE(contents.empty()) << name;
    ASSERT_EQ(contents.back(), '\n') << name;
    std::size_t lastLineStart = 0;
    for (std::size_t begin = 0; begin < contents.size();) {
      const std::size_t end = contents.find('\n', begin);
      const std::string line = contents.substr(begin, end - begin);
      lastLineStart = begin;
      begin = end + 1;
      int writer = -1, entry = -1, consumed = 0;
      ASSERT_EQ(line.compare(0, linePrefix.size(), linePrefix), 0) << name << ": " << line.substr(0, 80);
      ASSERT_EQ(std::sscanf(line.c_str() + linePrefix.size(), "%d entry %d %n", &writer, &entry, &consumed),
                2)
          << name << ": " << line.substr(0, 80);
      ASSERT_TRUE(writer >= 0 && writer < kWriters) << line.substr(0, 80);
      EXPECT_EQ(line.substr(linePrefix.size() + static_cast<std::size_t>(consumed)), padding) << name;
      // Each writer's entries appear once, in its own order, oldest file first.
      ASSERT_EQ(entry, nextEntry[writer]) << name << ": writer " << writer;
      ++nextEntry[writer];
      ++lines;
    }
    // A rotated file crossed the threshold with its last line and no earlier.
    if (std::string(name) != "ctl.log") {
      EXPECT_GE(contents.size(), kThreshold) << name;
      EXPECT_LT(lastLineStart, kThreshold) << name;
    }
  }
  EXPECT_EQ(lines, static_cast<std::size_t>(kWriters) * kEntriesPerWriter);
  EXPECT_TRUE(unified_.entries().empty());
}

}  // namespace
}  // namespace log_testing
