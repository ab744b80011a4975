// `_update` in this process, with recorders in place of the power assertions
// and the notification center and a recording stand-in at the installer's path
// (inside a sandbox): what happens in which order around the installer.
#include <gtest/gtest.h>
#include <unistd.h>

#include <fstream>

#include "cli/updates_commands.h"
#include "harness/captured_stdout.h"
#include "harness/end_to_end.h"
#include "harness/tool_stand_in.h"
#include "platform/distributed_notification.h"
#include "platform/power_assertion.h"

namespace testing_support {
namespace {

using Lines = std::vector<std::string>;

constexpr const char* kInstaller = "/usr/sbin/installer";
constexpr const char* kPackage = "/Library/Updates/Quillhaven.pkg";

bool exists(const char* path) { return ::access(path, F_OK) == 0; }

// One step of the run, with what was true on disk when it happened.
struct Step {
  std::string what;
  bool installerRan;
  bool packagePresent;
  friend bool operator==(const Step&, const Step&) = default;
};

std::ostream& operator<<(std::ostream& out, const Step& step) {
  return out << "{" << step.what << ", installer ran: " << step.installerRan
             << ", package present: " << step.packagePresent << "}";
}

class Recorder : public platform::PowerManagement, public platform::DistributedNotificationCenter {
 public:
  platform::IOReturn createAssertion(const char* type, const char* name, const char* details, const char* reason,
                                     const char* bundle, double timeout, const char* timeoutAction,
                                     platform::IOPMAssertionID* assertion) const override {
    *assertion = nextId_++;
    const bool nothingElse = !details && !reason && !bundle && timeout == 0 && !timeoutAction;
    record("create " + std::string(type) + " " + name + (nothingElse ? "" : " with more") + " -> " +
           std::to_string(*assertion));
    return platform::kIOReturnSuccess;
  }
  platform::IOReturn releaseAssertion(platform::IOPMAssertionID assertion) const override {
    record("release " + std::to_string(assertion));
    return platform::kIOReturnSuccess;
  }
  void postNotificationName(const std::string& name, const char* object, std::uint32_t options) const override {
    record("post " + name + (object ? " with an object" : "") + " options " + std::to_string(options));
  }

  const std::vector<Step>& steps() const { return steps_; }

 private:
  void record(std::string what) const {
    steps_.push_back({std::move(what), ToolStandIns::arguments(kInstaller).has_value(), exists(kPackage)});
  }
  mutable platform::IOPMAssertionID nextId_ = 41;
  mutable std::vector<Step> steps_;
};

class UpdateInstall : public EndToEndTest {
 protected:
  void SetUp() override {
    EndToEndTest::SetUp();
    if (IsSkipped()) return;
    platform::PowerManagement::setForTesting(&recorder_);
    platform::DistributedNotificationCenter::setForTesting(&recorder_);
    ASSERT_EQ(::mkdir("/Library/Updates", 0755), 0);
    std::ofstream(kPackage) << "package";
  }
  void TearDown() override {
    platform::PowerManagement::setForTesting(nullptr);
    platform::DistributedNotificationCenter::setForTesting(nullptr);
    EndToEndTest::TearDown();
  }

  void installInstaller(const char* behaviour) {
    std::string whyNot;
    ASSERT_TRUE(standIns_.install(kInstaller, behaviour, &whyNot)) << whyNot;
  }

  // Runs _update with `words` after the command word. `_update` starts a new
  // session; in this process that changes nothing the tests rely on.
  int run(Lines words, std::string* printed) {
    words.insert(words.begin(), "_update");
    std::vector<char*> argv;
    for (std::string& word : words) argv.push_back(word.data());
    argv.push_back(nullptr);
    CapturedStdout captured;
    const int status = _update_cmd(static_cast<int>(words.size()), argv.data());
    *printed = captured.text();
    return status;
  }

  Recorder recorder_;

 private:
  ToolStandIns standIns_;
};

// The assertions are held from before the installer starts until after the
// package is gone and the notification is out, whatever the installer did.
std::vector<Step> expectedSteps(bool installerRuns = true) {
  return {
      {"create PreventUserIdleSystemSleep com.larkspan.quillhaven.update -> 41", false, true},
      {"create BackgroundTask com.larkspan.quillhaven.update -> 42", false, true},
      {"post com.larkspan.quillhaven.did-update options 3", installerRuns, false},
      {"release 41", installerRuns, false},
      {"release 42", installerRuns, false},
  };
}

TEST_F(UpdateInstall, InstallerRunsWhileTheAssertionsAreHeld) {
  installInstaller("exit 0");
  std::string printed;
  EXPECT_EQ(run({kPackage}, &printed), 0);
  EXPECT_EQ(printed, ToolStandIns::outputLine(kInstaller) + "\n") << "the command prints nothing of its own";
  EXPECT_EQ(ToolStandIns::arguments(kInstaller), (Lines{kInstaller, "-pkg", kPackage, "-target", "/"}));
  EXPECT_EQ(recorder_.steps(), expectedSteps());
}

TEST_F(UpdateInstall, FailingInstallerTakesTheSameSteps) {
  installInstaller("exit 1");
  std::string printed;
  EXPECT_EQ(run({kPackage, "ignored"}, &printed), 1);
  EXPECT_EQ(printed, ToolStandIns::outputLine(kInstaller) + "\n");
  EXPECT_EQ(ToolStandIns::arguments(kInstaller), (Lines{kInstaller, "-pkg", kPackage, "-target", "/"}));
  EXPECT_EQ(recorder_.steps(), expectedSteps());
}

TEST_F(UpdateInstall, KilledInstallerTakesTheSameSteps) {
  installInstaller("kill -9 $$");
  std::string printed;
  EXPECT_EQ(run({kPackage}, &printed), 1);
  EXPECT_EQ(recorder_.steps(), expectedSteps());
}

TEST_F(UpdateInstall, MissingInstallerStillDeletesAndAnnounces) {
  // As on this system: there is no /usr/sbin/installer.
  std::string printed;
  EXPECT_EQ(run({kPackage}, &printed), 1);
  EXPECT_EQ(printed, "");
  EXPECT_FALSE(exists(kPackage));
  EXPECT_EQ(recorder_.steps(), expectedSteps(/*installerRuns=*/false));
}

TEST_F(UpdateInstall, WithoutAPackagePathNothingHappens) {
  installInstaller("exit 0");
  std::string printed;
  EXPECT_EQ(run({}, &printed), 1);
  EXPECT_EQ(printed, "Package path must be specified.\n");
  EXPECT_EQ(recorder_.steps(), std::vector<Step>{});
  EXPECT_FALSE(ToolStandIns::arguments(kInstaller));
  EXPECT_TRUE(exists(kPackage));
}

}  // namespace
}  // namespace testing_support
