// cmake --install of this build: the tool, its manual page and its completion
// land where the GNU directory layout puts them, and nothing else is installed.
#include <gtest/gtest.h>

#include <string>

#include "harness/temp_dir.h"
#include "harness/tool_run.h"
#include "ship/installed_files.h"
#include "ship/shipping.h"

namespace {

TEST(Install, PutsTheToolItsManualPageAndItsCompletionUnderThePrefixAndNothingElse) {
  testing_support::TempDir prefix;
  const testing_support::RunResult run = testing_support::runProgram(
      QHV_CMAKE_COMMAND, {"--install", shipping::buildDirectory(), "--prefix", prefix.path()});
  ASSERT_EQ(run.exitStatus, 0) << shipping::describe(run);
  shipping::expectInstallation(prefix.path(), "");
}

TEST(Install, StagesUnderDestdirBelowThePrefix) {
  testing_support::TempDir stage;
  testing_support::RunOptions options;
  options.environment = {"DESTDIR=" + stage.path()};
  const testing_support::RunResult run = testing_support::runProgram(
      QHV_CMAKE_COMMAND, {"--install", shipping::buildDirectory(), "--prefix", "/usr/local"}, options);
  ASSERT_EQ(run.exitStatus, 0) << shipping::describe(run);
  shipping::expectInstallation(stage.path(), "usr/local/");
}

}  // namespace
