#include "harness/scheduler_runs.h"

#include <gtest/gtest.h>

#include "messaging/message_catalogue.h"

namespace testing_support {

void expectRuns(SchedulerState& scheduler, const RunMaker& run, const std::vector<ToolRun>& runs,
                const std::function<void()>& beforeEach) {
  for (const ToolRun& expected : runs) {
    if (beforeEach) beforeEach();
    scheduler.clearRequests();
    RunOptions options;
    options.asUser = expected.asUser;
    options.input = expected.input;
    const RunResult result = run(expected.args, options);
    std::string command = expected.asUser ? "as a user:" : "as root:";
    for (const std::string& arg : expected.args) command += " '" + arg + "'";
    SCOPED_TRACE(command + " reading '" + expected.input + "'");
    EXPECT_EQ(result.out, expected.out);
    EXPECT_EQ(result.err, expected.err);
    EXPECT_EQ(result.exitStatus, expected.exitStatus);
    std::vector<std::int64_t> messages;
    const std::vector<RecordedRequest> requests = scheduler.requests();
    for (const RecordedRequest& request : requests) {
      messages.push_back(request.message.value_or(-1));
      const bool needsRights = !QHVAuthorizationRightsForMessage(messages.back()).empty();
      EXPECT_EQ(request.authPresent, needsRights) << "auth of message " << messages.back();
      EXPECT_TRUE(!needsRights || request.authValid == true) << "auth of message " << messages.back();
    }
    EXPECT_EQ(messages, expected.messages);
    const platform::Value payload = requests.empty() ? platform::Value() : requests.back().payload;
    EXPECT_EQ(payload, expected.payload) << payload.description();
  }
}

}  // namespace testing_support
