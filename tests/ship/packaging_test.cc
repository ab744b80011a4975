// Installing this build under DESTDIR as a packager does, and its Debian package:
// control fields, contents, and the packaged tool run as an ordinary user.
#include "harness/temp_dir.h"
#include "sandbox/sandbox.h"
#include "ship/shipping.h"

namespace {

using testing_support::RunResult;
using testing_support::runProgram;

TEST(Install, StagesTheToolItsManualPageAndItsCompletionsBelowThePrefixAndNothingElse) {
  testing_support::TempDir stage;
  testing_support::RunOptions options;
  options.environment = {"DESTDIR=" + stage.path()};
  const RunResult run = runProgram(QHV_CMAKE_COMMAND, {"--install", QHV_BINARY_DIR, "--prefix", "/usr/local"}, options);
  ASSERT_EQ(run.exitStatus, 0) << shipping::describe(run);
  shipping::expectInstallation(stage.path(), "usr/local/");
}

TEST(DebianPackage, HoldsTheInstallationUnderItsControlFieldsAndItsToolRuns) {
  const std::string dpkgDeb = shipping::findProgram("dpkg-deb");
  const std::string readelf = shipping::findProgram("readelf");
  if (dpkgDeb.empty() || shipping::findProgram("dpkg-shlibdeps").empty()) {
    GTEST_SKIP() << "dpkg-deb or dpkg-shlibdeps (dpkg-dev) is not installed: the Debian package is not built";
  }
  if (readelf.empty() || shipping::findProgram("objcopy").empty()) {
    GTEST_SKIP() << "readelf or objcopy (binutils) is not installed: the debug symbols package is not built";
  }
  testing_support::TempDir output;
  RunResult run = runProgram(QHV_CPACK_COMMAND,
                             {"-G", "DEB", "--config", std::string(QHV_BINARY_DIR) + "/CPackConfig.cmake", "-B", output.path()});
  ASSERT_EQ(run.exitStatus, 0) << shipping::describe(run);
  std::vector<std::string> packages, debugPackages;
  for (const auto& entry : std::filesystem::directory_iterator(output.path())) {
    if (entry.path().extension() == ".deb") packages.push_back(entry.path());
    if (entry.path().extension() == ".ddeb") debugPackages.push_back(entry.path());
  }
  ASSERT_EQ(packages.size(), 1U) << "cpack made no package or more than one";
  ASSERT_EQ(debugPackages.size(), 1U) << "cpack made no debug symbols package or more than one";
  auto fieldOf = [&](const std::string& package, const char* name) {
    const std::string value = runProgram(dpkgDeb, {"-f", package, name}).out;
    return value.substr(0, value.find('\n'));
  };
  auto field = [&](const char* name) { return fieldOf(packages[0], name); };
  const std::string architecture = runProgram(shipping::findProgram("dpkg"), {"--print-architecture"}).out;
  EXPECT_EQ(field("Package"), "qhvctl");
  EXPECT_EQ(field("Architecture") + "\n", architecture);
  EXPECT_NE(field("Depends").find("libc6"), std::string::npos) << "dependencies come from the linked libraries";
  EXPECT_NE(field("Maintainer").find('<'), std::string::npos) << "a maintainer is a name and an address";

  // Unpacked as an ordinary user with a home of its own, where the run logs.
  testing_support::TempDir root;
  ASSERT_EQ(::chmod(root.path().c_str(), 0755), 0);
  ASSERT_EQ(runProgram(dpkgDeb, {"-x", packages[0], root.file("unpacked")}).exitStatus, 0);
  shipping::expectInstallation(root.file("unpacked"), "usr/");

  // The debug information, apart, where debuggers look it up by the tool's build id.
  EXPECT_EQ(fieldOf(debugPackages[0], "Package"), "qhvctl-dbgsym");
  EXPECT_EQ(fieldOf(debugPackages[0], "Depends"), "qhvctl (= " + field("Version") + ")");
  ASSERT_EQ(runProgram(dpkgDeb, {"-x", debugPackages[0], root.file("debug")}).exitStatus, 0);
  const std::string notes = runProgram(readelf, {"-n", root.file("unpacked/usr/bin/qhvctl")}).out;
  const std::size_t idAt = notes.find("Build ID: ");
  ASSERT_NE(idAt, std::string::npos) << notes;
  const std::string buildId = notes.substr(idAt + 10, notes.find('\n', idAt) - idAt - 10);
  const std::string debugFile = "usr/lib/debug/.build-id/" + buildId.substr(0, 2) + "/" + buildId.substr(2) + ".debug";
  EXPECT_EQ(shipping::filesUnder(root.file("debug")), std::set<std::string>{debugFile});
  EXPECT_NE(testing_support::readFile(root.file("debug/" + debugFile)).value_or("").find(".debug_info"), std::string::npos)
      << "the debug symbols package holds no debug information";

  const std::string home = root.file("home");
  ASSERT_EQ(::mkdir(home.c_str(), 0700), 0);
  testing_support::RunOptions options;
  options.environment = {"HOME=" + home};
  if (::geteuid() == 0) {
    options.asUser = true;
    ASSERT_EQ(::chown(home.c_str(), qhv_sandbox::Sandbox::kUserId, qhv_sandbox::Sandbox::kGroupId), 0);
  }
  run = runProgram(root.file("unpacked/usr/bin/qhvctl"), {"version"}, options);
  EXPECT_EQ(run.exitStatus, 0) << shipping::describe(run);
  EXPECT_TRUE(run.out.starts_with(field("Version") + " (")) << "the package's version is not the tool's: " << run.out;
  EXPECT_TRUE(std::filesystem::exists(home + "/Library/Logs/Quillhaven/ctl.log"));
}

}  // namespace
