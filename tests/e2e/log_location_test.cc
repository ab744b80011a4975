// Where a run of the tool keeps its log file: the system's log directory for
// root, the user's own under the home directory otherwise, and a run that
// cannot log at all still does its work.
#include <sys/stat.h>

#include "harness/end_to_end.h"

namespace testing_support {

namespace {

constexpr const char* kRootLog = "/Library/Logs/Quillhaven/ctl.log";

std::string userLog() { return std::string(Sandbox::kUserHome) + "/Library/Logs/Quillhaven/ctl.log"; }

bool exists(const std::string& path) {
  struct stat st {};
  return ::lstat(path.c_str(), &st) == 0;
}

class LogLocation : public EndToEndTest {};

TEST_F(LogLocation, RootRunsLogInTheSystemDirectory) {
  ASSERT_EQ(runTool({"version"}).exitStatus, 0);
  struct stat st {};
  ASSERT_EQ(::stat(kRootLog, &st), 0);
  EXPECT_TRUE(S_ISREG(st.st_mode));
  EXPECT_EQ(st.st_mode & 07777, 0644u);
  EXPECT_EQ(st.st_uid, 0u);
  EXPECT_FALSE(exists("/root/Library"));
}

TEST_F(LogLocation, UserRunsLogUnderTheirHome) {
  ASSERT_EQ(runTool({"version"}, asUser()).exitStatus, 0);
  struct stat st {};
  ASSERT_EQ(::stat(userLog().c_str(), &st), 0);
  EXPECT_EQ(st.st_uid, Sandbox::kUserId);
  EXPECT_EQ(st.st_mode & 07777, 0644u);
  EXPECT_FALSE(exists("/Library/Logs"));
}

TEST_F(LogLocation, EffectiveRootCountsAsRoot) {
  // A real user of root with a home elsewhere still logs in the system directory.
  RunOptions options;
  options.environment = {std::string("HOME=") + Sandbox::kUserHome};
  ASSERT_EQ(runTool({"version"}, options).exitStatus, 0);
  EXPECT_TRUE(exists(kRootLog));
  EXPECT_FALSE(exists(userLog()));
}

TEST_F(LogLocation, ExistingLinesAreKept) {
  ASSERT_EQ(::mkdir("/Library/Logs", 0755), 0);
  ASSERT_EQ(::mkdir("/Library/Logs/Quillhaven", 0755), 0);
  FILE* file = std::fopen(kRootLog, "w");
  ASSERT_NE(file, nullptr);
  std::fputs("an earlier line\n", file);
  std::fclose(file);
  ASSERT_EQ(runTool({"version"}).exitStatus, 0);
  EXPECT_EQ(readFile(kRootLog), "an earlier line\n");
}

TEST_F(LogLocation, AnUnwritableHomeDoesNotStopTheTool) {
  for (const char* home : {"/nonexistent", "/", ""}) {
    RunOptions options = asUser();
    options.environment = {std::string("HOME=") + home};
    RunResult run = runTool({"version"}, options);
    EXPECT_EQ(run.out, "5.2.2 (219)\n") << home;
    EXPECT_EQ(run.err, "") << home;
    EXPECT_EQ(run.exitStatus, 0) << home;
  }
}

}  // namespace
}  // namespace testing_support
