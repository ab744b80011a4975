// The Debian package of this build, made with CPack as a packager would
// (cpack -G DEB): its control fields, its contents, and the packaged tool
// running from an unpacked copy as an ordinary user.
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <filesystem>
#include <optional>
#include <sstream>
#include <string>
#include <vector>

#include "harness/files.h"
#include "harness/temp_dir.h"
#include "harness/tool_run.h"
#include "sandbox/sandbox.h"
#include "ship/installed_files.h"
#include "ship/shipping.h"

namespace {

using testing_support::RunResult;
using testing_support::runProgram;
using testing_support::TempDir;

class DebianPackage : public ::testing::Test {
 protected:
  void SetUp() override {
    dpkgDeb_ = shipping::findProgram("dpkg-deb");
    if (dpkgDeb_.empty()) GTEST_SKIP() << "dpkg-deb is not installed: the Debian package is not built";
    if (shipping::findProgram("dpkg-shlibdeps").empty()) {
      GTEST_SKIP() << "dpkg-shlibdeps (dpkg-dev) is not installed: the package's dependencies cannot be found";
    }
    const RunResult run = runProgram(QHV_CPACK_COMMAND, {"-G", "DEB", "--config",
                                                         shipping::buildDirectory() + "/CPackConfig.cmake", "-B",
                                                         output_.path()});
    ASSERT_EQ(run.exitStatus, 0) << shipping::describe(run);
    for (const auto& entry : std::filesystem::directory_iterator(output_.path())) {
      if (entry.path().extension() == ".deb") packages_.push_back(entry.path().string());
    }
    ASSERT_EQ(packages_.size(), 1U) << "cpack made no package or more than one";
  }

  const std::string& package() const { return packages_.front(); }

  // A control field of the package, without its line end.
  std::string field(const std::string& name) const {
    const RunResult run = runProgram(dpkgDeb_, {"-f", package(), name});
    EXPECT_EQ(run.exitStatus, 0) << name << ": " << shipping::describe(run);
    std::string value = run.out;
    while (!value.empty() && value.back() == '\n') value.pop_back();
    return value;
  }

  std::string dpkgDeb_;
  TempDir output_;
  std::vector<std::string> packages_;
};

TEST_F(DebianPackage, ControlFieldsNameTheToolItsVersionArchitectureAndLibraries) {
  const std::string version = shipping::infoPlistString("CFBundleShortVersionString");
  ASSERT_FALSE(version.empty()) << "cli/Info.plist has no CFBundleShortVersionString";
  const RunResult dpkg = runProgram(shipping::findProgram("dpkg"), {"--print-architecture"});
  ASSERT_EQ(dpkg.exitStatus, 0) << shipping::describe(dpkg);
  const std::string architecture = dpkg.out.substr(0, dpkg.out.find('\n'));

  EXPECT_EQ(field("Package"), "qhvctl");
  EXPECT_EQ(field("Version"), version) << "the project's version is not the information property list's";
  EXPECT_EQ(field("Architecture"), architecture);
  EXPECT_NE(field("Depends").find("libc6"), std::string::npos) << field("Depends");
  EXPECT_NE(field("Maintainer").find('<'), std::string::npos) << "a maintainer is a name and an address";
  EXPECT_FALSE(field("Description").empty());
  EXPECT_EQ(std::filesystem::path(package()).filename(), "qhvctl_" + version + "_" + architecture + ".deb");
}

TEST_F(DebianPackage, ContentsAreTheToolItsManualPageAndItsCompletionOwnedByRoot) {
  const RunResult listing = runProgram(dpkgDeb_, {"-c", package()});
  ASSERT_EQ(listing.exitStatus, 0) << shipping::describe(listing);
  std::vector<std::string> files;
  std::istringstream lines(listing.out);
  for (std::string line; std::getline(lines, line);) {
    // "-rwxr-xr-x root/root 123 2024-01-01 00:00 ./usr/bin/qhvctl"
    std::istringstream fields(line);
    std::string mode, owner, size, date, time, path;
    fields >> mode >> owner >> size >> date >> time >> path;
    EXPECT_EQ(owner, "root/root") << line;
    if (mode.starts_with("d")) continue;
    files.push_back(path);
    EXPECT_EQ(mode, path.ends_with("/bin/qhvctl") ? "-rwxr-xr-x" : "-rw-r--r--") << line;
  }
  EXPECT_EQ(files, shipping::installedFiles("./usr/"));

  TempDir root;
  const RunResult unpack = runProgram(dpkgDeb_, {"-x", package(), root.path()});
  ASSERT_EQ(unpack.exitStatus, 0) << shipping::describe(unpack);
  shipping::expectInstallation(root.path(), "usr/");
  const std::optional<std::string> tool = testing_support::readFile(root.file("usr/bin/qhvctl"));
  ASSERT_TRUE(tool);
  EXPECT_EQ(tool->find(".debug_info"), std::string::npos) << "the packaged tool is not stripped";
}

// As an ordinary user with a home of its own, so that the run writes its log
// file there and nothing under /Library of the machine.
TEST_F(DebianPackage, PackagedToolPrintsItsVersionFromAnUnpackedCopy) {
  TempDir root;
  ASSERT_EQ(::chmod(root.path().c_str(), 0755), 0);
  const RunResult unpack = runProgram(dpkgDeb_, {"-x", package(), root.file("unpacked")});
  ASSERT_EQ(unpack.exitStatus, 0) << shipping::describe(unpack);
  const std::string home = root.file("home");
  ASSERT_EQ(::mkdir(home.c_str(), 0700), 0);

  testing_support::RunOptions options;
  options.environment = {"HOME=" + home};
  if (::geteuid() == 0) {
    options.asUser = true;
    ASSERT_EQ(::chown(home.c_str(), qhv_sandbox::Sandbox::kUserId, qhv_sandbox::Sandbox::kGroupId), 0);
  }
  const RunResult run = runProgram(root.file("unpacked/usr/bin/qhvctl"), {"version"}, options);
  EXPECT_EQ(run.exitStatus, 0) << shipping::describe(run);
  EXPECT_EQ(run.out, shipping::infoPlistString("CFBundleShortVersionString") + " (" +
                         shipping::infoPlistString("CFBundleVersion") + ")\n");
  EXPECT_TRUE(std::filesystem::exists(home + "/Library/Logs/Quillhaven/ctl.log"))
      << "an ordinary user's log file is not under the home directory";
}

}  // namespace
