// `_update` through the built tool, with a recording stand-in at the
// installer's path: the installer's argument vector and streams, the package
// deleted whatever happened, the records in the log file, the exit status.
#include <sys/stat.h>
#include <unistd.h>

#include <cstring>
#include <fstream>
#include <sstream>

#include "harness/end_to_end.h"
#include "harness/tool_stand_in.h"

namespace testing_support {
namespace {

using Lines = std::vector<std::string>;

constexpr const char* kRootLog = "/Library/Logs/Quillhaven/ctl.log";
constexpr const char* kInstaller = "/usr/sbin/installer";
constexpr const char* kPackage = "/Library/Updates/Quillhaven 5.3.pkg";

bool exists(const char* path) { return ::access(path, F_OK) == 0; }

// The log file's messages, without date, category and process id.
Lines logMessages() {
  Lines messages;
  std::istringstream in(readFile(kRootLog).value_or(""));
  for (std::string line; std::getline(in, line);) {
    const std::size_t tag = line.find("] ");
    messages.push_back(tag == std::string::npos ? line : line.substr(tag + 2));
  }
  return messages;
}

class UpdateCommand : public EndToEndTest {
 protected:
  void SetUp() override {
    EndToEndTest::SetUp();
    if (IsSkipped()) return;
    ASSERT_EQ(::mkdir("/Library/Updates", 0755), 0);
    std::ofstream(kPackage) << "package";
  }

  void installInstaller(const char* behaviour) {
    std::string whyNot;
    ASSERT_TRUE(standIns_.install(kInstaller, behaviour, &whyNot, /*readsInput=*/true)) << whyNot;
  }

  static std::string out() { return ToolStandIns::outputLine(kInstaller) + "\n"; }
  static std::string err() { return ToolStandIns::errorLine(kInstaller) + "\n"; }

 private:
  ToolStandIns standIns_;
};

TEST_F(UpdateCommand, InstallsThePackageAndRecordsTheUpdate) {
  installInstaller("exit 0");
  RunOptions options;
  options.input = "for the installer\n";
  const RunResult run = runTool({"_update", kPackage, "ignored"}, options);
  EXPECT_EQ(run.out, out()) << "only the installer's own output";
  EXPECT_EQ(run.err, err());
  EXPECT_EQ(run.exitStatus, 0);
  EXPECT_EQ(ToolStandIns::arguments(kInstaller), (Lines{kInstaller, "-pkg", kPackage, "-target", "/"}));
  EXPECT_EQ(ToolStandIns::inputLine(kInstaller), "for the installer");
  EXPECT_FALSE(exists(kPackage));
  EXPECT_EQ(logMessages(), Lines{"Quillhaven has been updated."});
}

TEST_F(UpdateCommand, InstallerRunsInASessionOfTheTool) {
  installInstaller("exit 0");
  ASSERT_EQ(runTool({"_update", kPackage}).exitStatus, 0);
  const auto ids = ToolStandIns::sessionAndParent(kInstaller);
  ASSERT_TRUE(ids);
  EXPECT_EQ(ids->first, ids->second) << "the tool left its caller's session and leads its own";
}

TEST_F(UpdateCommand, RejectedPackageFailsAndIsStillDeleted) {
  installInstaller("exit 1");
  const RunResult run = runTool({"_update", kPackage});
  EXPECT_EQ(run.out, out());
  EXPECT_EQ(run.err, err());
  EXPECT_EQ(run.exitStatus, 1);
  EXPECT_FALSE(exists(kPackage));
  EXPECT_EQ(logMessages(), (Lines{"/usr/sbin/installer exited with status 1.",
                                  "Update failed. /usr/sbin/installer exited with status 1."}));
}

TEST_F(UpdateCommand, KilledInstallerFails) {
  installInstaller("kill -15 $$");
  const RunResult run = runTool({"_update", kPackage});
  EXPECT_EQ(run.exitStatus, 1);
  EXPECT_FALSE(exists(kPackage));
  const std::string description = std::string("/usr/sbin/installer received signal 15 (") + ::strsignal(15) + ").";
  EXPECT_EQ(logMessages(), (Lines{description, "Update failed. " + description}));
}

TEST_F(UpdateCommand, MissingInstallerFailsAndDeletesThePackage) {
  // As on this system: there is no /usr/sbin/installer.
  const RunResult run = runTool({"_update", kPackage});
  EXPECT_EQ(run.out, "");
  EXPECT_EQ(run.err, "");
  EXPECT_EQ(run.exitStatus, 1);
  EXPECT_FALSE(exists(kPackage));
  const std::string description =
      std::string("Could not spawn '/usr/sbin/installer'. ") + std::strerror(ENOENT) + " (2).";
  EXPECT_EQ(logMessages(), (Lines{description, "Update failed. " + description}));
}

TEST_F(UpdateCommand, MissingPackageIsTheInstallersConcern) {
  installInstaller("exit 1");
  const RunResult run = runTool({"_update", "/Library/Updates/absent.pkg"});
  EXPECT_EQ(run.exitStatus, 1);
  EXPECT_EQ(ToolStandIns::arguments(kInstaller),
            (Lines{kInstaller, "-pkg", "/Library/Updates/absent.pkg", "-target", "/"}));
  EXPECT_TRUE(exists(kPackage)) << "only the named package is deleted";
}

TEST_F(UpdateCommand, WithoutAPathNothingRuns) {
  installInstaller("exit 0");
  const RunResult run = runTool({"_update"});
  EXPECT_EQ(run.out, "Package path must be specified.\n");
  EXPECT_EQ(run.exitStatus, 1);
  EXPECT_FALSE(ToolStandIns::arguments(kInstaller));
  EXPECT_EQ(logMessages(), Lines{});
}

TEST_F(UpdateCommand, OrdinaryUsersAreRefusedBeforeAnythingHappens) {
  installInstaller("exit 0");
  const RunResult run = runTool({"_update", kPackage}, asUser());
  EXPECT_EQ(run.out, "This command requires root privileges.\n");
  EXPECT_EQ(run.exitStatus, 1);
  EXPECT_FALSE(ToolStandIns::arguments(kInstaller));
  EXPECT_TRUE(exists(kPackage));
}

}  // namespace
}  // namespace testing_support
