// End-to-end tests of commands that talk to the scheduler: a sandbox with the
// development scheduler serving in it, and short ways to run the tool and to
// see what reached the scheduler.
#pragma once

#include <memory>
#include <string>
#include <vector>

#include "harness/dev_scheduler.h"
#include "harness/end_to_end.h"

namespace testing_support {

class SchedulerTest : public EndToEndTest {
 protected:
  void SetUp() override {
    EndToEndTest::SetUp();
    if (IsSkipped()) return;
    scheduler_ = std::make_unique<DevScheduler>();
  }
  void TearDown() override {
    scheduler_.reset();
    EndToEndTest::TearDown();
  }

  DevScheduler& scheduler() { return *scheduler_; }

  static RunResult root(const std::vector<std::string>& args, const std::string& input = "") {
    RunOptions options;
    options.input = input;
    return runTool(args, options);
  }
  static RunResult user(const std::vector<std::string>& args, const std::string& input = "") {
    RunOptions options = asUser();
    options.input = input;
    return runTool(args, options);
  }

  // The message numbers that reached the scheduler, oldest first.
  std::vector<std::int64_t> messages() const {
    std::vector<std::int64_t> numbers;
    for (const RecordedRequest& request : scheduler_->requests()) numbers.push_back(request.message.value_or(-1));
    return numbers;
  }

  // The payload of the only request that reached the scheduler.
  platform::Value onlyPayload() const {
    const std::vector<RecordedRequest> requests = scheduler_->requests();
    EXPECT_EQ(requests.size(), 1u);
    return requests.empty() ? platform::Value() : requests.front().payload;
  }

 private:
  std::unique_ptr<DevScheduler> scheduler_;
};

}  // namespace testing_support
