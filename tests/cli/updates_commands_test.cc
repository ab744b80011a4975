// The updates and dry-run commands in this process against the development
// scheduler: the update settings, the update check with its question and the
// installation, and the root stop.
#include "command_runs.h"
#include "errors/error_domains.h"
#include "errors/lks_error.h"
#include "scheduler/state_files.h"

namespace testing_support {
namespace {

using platform::Value;

const std::string kQuestion = "Quillhaven 5.3.0 (230) is available. Would you like to update now? (y/n)\n";
const std::string kUpdatingNow = "Quillhaven 5.3.0 (230) is available. Updating now...\n";
const std::string kUpdated = "Quillhaven has been updated.\n";

Value channel(const char* key, const char* name) { return Value::dictionary({{key, Value::string(name)}}); }

std::string describe(const platform::ErrorRef& error) { return LKSError::localizedDescriptionForError(error) + "\n"; }

class UpdatesCommands : public CommandRuns {
 protected:
  const std::function<void()> offer = [this] { scheduler_.setAvailableUpdate("5.3.0", 230); };
};

TEST_F(UpdatesCommands, SettingsAndDryRun) {
  const std::string usage = runCommandInProcess({}).out;
  expectRuns({
      {{"updates", "enabled", "no", "ignored"}, kRoot, "", "", 0, {21}, enabledPayload(false)},
      {{"updates", "enabled"}, kUser, "no\n", "", 0, {18}},
      {{"updates", "enable", "extra"}, kRoot, "", "", 0, {21}, enabledPayload(true)},
      {{"updates", "disable"}, kRoot, "", "", 0, {21}, enabledPayload(false)},
      {{"updates", "mode", "beta"}, kRoot, "", "", 0, {22}, channel("Mode", "beta")},
      {{"updates", "set-mode", "test", "ignored"}, kRoot, "", "", 0, {22}, channel("Mode", "test")},
      {{"updates", "set-feed", "beta"}, kRoot, "", "", 0, {23}, channel("Feed", "beta")},
      {{"updates", "mode"}, kUser, "test\n", "", 0, {19}},
      {{"updates", "feed"}, kUser, "beta\n", "", 0, {20}},
      // Channels are matched exactly and checked before anything is sent, for every user.
      {{"updates", "mode", "Beta"}, kRoot, "Unknown mode: 'Beta'.\n", "", 1, {}},
      {{"updates", "feed", " std"}, kUser, "Unknown feed: ' std'.\n", "", 1, {}},
      {{"updates"}, kRoot, usage, "", 1, {}},
      {{"updates", "checks"}, kRoot, usage, "", 1, {}},
      {{"dry-run", "1", "ignored"}, kRoot, "", "", 0, {25}, enabledPayload(true)},
      {{"dry-run"}, kUser, "yes\n", "", 0, {24}},
      {{"dry-run", "nope"}, kRoot, "", "", 0, {25}, enabledPayload(false)},
      {{"dry-run", "no"}, kUser, "", kRefusal, 1, {}},
  });
}

TEST_F(UpdatesCommands, CheckAndTheAnswerToItsQuestion) {
  // Up to date counts as success; the scheduler's answer is printed at its level.
  expectRuns({{{"updates", "check"}, kUser, "You are already running the latest version.\n", "", 0, {26}}});
  expectRuns({
      {{"updates", "check", "-i"}, kRoot, kUpdatingNow + kUpdated, "", 0, {26, 27}, {}, "n\n"},  // no question
      {{"updates", "check", "-x"}, kRoot, kQuestion + kUpdated, "", 0, {26, 27}, {}, "yes\n"},
      {{"updates", "check"}, kRoot, kQuestion + kUpdated, "", 0, {26, 27}, {}, "\ny\n"},  // Return, then an answer
      {{"updates", "check"}, kRoot, kQuestion + kUpdated, "", 0, {26, 27}, {}, "y"},      // no line end
      {{"updates", "check"}, kRoot, kQuestion, "", 0, {26}, {}, "n\n"},
      {{"updates", "check"}, kRoot, kQuestion, "", 0, {26}, {}, " \ny\n"},  // a blank is no empty line
      {{"updates", "check"}, kRoot, kQuestion, "", 1, {26}, {}, ""},        // end of input at once
      // A user sees the offer, and is stopped at the installation.
      {{"updates", "check"}, kUser, kQuestion, kRefusal, 1, {26}, {}, "y\n"},
  }, offer);
}

TEST_F(UpdatesCommands, InstallationAndCheckFailures) {
  // Losing the service (unavailable or gone) is success, the installation replaces it; any
  // other failure is printed on standard error, whatever its level.
  const platform::ErrorRef busy = platform::Error::make(QHVErrorDomain, QHVErrorBackupRunning);
  const ToolRun installed = {{"updates", "check", "-i"}, kRoot, kUpdatingNow + kUpdated, "", 0, {26, 27}};
  for (const auto& [fault, run] : std::vector<std::pair<SchedulerFault, ToolRun>>{
           {faultOfKind(dev_scheduler::kFaultClose), installed},
           {faultOfKind(dev_scheduler::kFaultBrokenFrame), installed},
           {replyErrorFault(busy), {{"updates", "check"}, kRoot, kQuestion, describe(busy), 1, {26, 27}, {}, "y\n"}}}) {
    scheduler_.setFault(QHVHelperMessageInstallUpdate, fault);
    expectRuns({run}, offer);
  }
  const platform::ErrorRef fetch = platform::Error::make(LKSUpdaterErrorDomain, LKSUpdaterErrorFetchInfo);
  const platform::ErrorRef notNow = platform::Error::make(LKSUpdaterErrorDomain, LKSUpdaterErrorNotNow);
  // The check meets an error-level failure, then a default-level one.
  for (const auto& [fault, run] : std::vector<std::pair<SchedulerFault, ToolRun>>{
           {replyErrorFault(fetch), {{"updates", "check", "-i"}, kRoot, "", describe(fetch), 1, {26}}},
           {replyErrorFault(notNow), {{"updates", "check"}, kRoot, describe(notNow), "", 1, {26}}}}) {
    scheduler_.setFault(QHVHelperMessageCheckForUpdates, fault);
    expectRuns({run});
  }
}

}  // namespace
}  // namespace testing_support
