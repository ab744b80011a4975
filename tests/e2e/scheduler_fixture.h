// End-to-end tests of commands that talk to the scheduler: runs of the tool
// against the development scheduler checked whole, for what it printed on
// which stream, its exit status, and what reached the scheduler.
#pragma once

#include <functional>
#include <string>
#include <vector>

#include "harness/dev_scheduler.h"
#include "messaging/helper_messager.h"

namespace testing_support {

inline constexpr const char* kRefusal = "This command requires root privileges.\n";
inline constexpr bool kRoot = false;
inline constexpr bool kUser = true;

// One run of the tool and all it must come to.
struct ToolRun {
  std::vector<std::string> args;
  bool asUser;
  std::string out;
  std::string err;
  int exitStatus;
  std::vector<std::int64_t> messages;  // their numbers, as they reached the scheduler
  platform::Value payload = {};        // of the last of them; absent when it had none
  std::string input = {};
};

inline platform::Value enabledPayload(bool on) {
  return platform::Value::dictionary({{"Enabled", platform::Value::boolean(on)}});
}

class ToolRunTest : public SchedulerTest {
 protected:
  // Runs each, after `beforeEach`, and checks everything it says. Every request
  // must carry "auth" exactly when its message needs rights, and a valid one.
  void expectRuns(const std::vector<ToolRun>& runs, const std::function<void()>& beforeEach = {}) {
    for (const ToolRun& expected : runs) {
      if (beforeEach) beforeEach();
      scheduler().clearRequests();
      RunOptions options;
      options.asUser = expected.asUser;
      options.input = expected.input;
      const RunResult run = runTool(expected.args, options);
      std::string command = expected.asUser ? "as a user:" : "as root:";
      for (const std::string& arg : expected.args) command += " '" + arg + "'";
      SCOPED_TRACE(command + " reading '" + expected.input + "'");
      EXPECT_EQ(run.out, expected.out);
      EXPECT_EQ(run.err, expected.err);
      EXPECT_EQ(run.exitStatus, expected.exitStatus);
      std::vector<std::int64_t> messages;
      const std::vector<RecordedRequest> requests = scheduler().requests();
      for (const RecordedRequest& request : requests) {
        messages.push_back(request.message.value_or(-1));
        const bool needsRights = catalogue_->requiresAuthorizationForMessage(messages.back());
        EXPECT_EQ(request.authPresent, needsRights) << "auth of message " << messages.back();
        EXPECT_TRUE(!needsRights || request.authValid == true) << "auth of message " << messages.back();
      }
      EXPECT_EQ(messages, expected.messages);
      const platform::Value payload = requests.empty() ? platform::Value() : requests.back().payload;
      EXPECT_EQ(payload, expected.payload) << payload.description();
    }
  }

 private:
  std::shared_ptr<QHVHelperMessager> catalogue_ = QHVHelperMessager::init();
};

}  // namespace testing_support
