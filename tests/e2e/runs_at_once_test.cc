// Many runs of the built tool started at once against the development
// scheduler, as scripts and terminals start them: every run is answered, every
// request is recorded, and every line the runs log is whole.
#include <unistd.h>

#include <latch>
#include <regex>
#include <set>
#include <sstream>
#include <thread>

#include "harness/dev_scheduler.h"
#include "scheduler/state_files.h"

namespace testing_support {
namespace {

constexpr int kRuns = 32;
constexpr const char* kRootLog = "/Library/Logs/Quillhaven/ctl.log";

class RunsAtOnce : public SchedulerTest {};

TEST_F(RunsAtOnce, EveryRunIsAnsweredAndLogsWholeLines) {
  // A status reply that does not parse: the run says so on standard error,
  // logs it and still succeeds.
  scheduler().setFault(QHVHelperMessageGetSettings, faultOfKind(dev_scheduler::kFaultUnparsablePayload));
  const RunResult alone = runTool({"status"});
  ASSERT_EQ(alone.exitStatus, 0);
  ASSERT_TRUE(alone.err.starts_with("Could not deserialize reply for message (1).")) << alone.err;
  ::unlink(kRootLog);
  scheduler().clearRequests();

  // Half of them as root, the other half reading backups' switch as a user.
  std::vector<RunResult> runs(kRuns);
  std::latch starting(kRuns);
  std::vector<std::thread> threads;
  for (int i = 0; i < kRuns; ++i) {
    threads.emplace_back([&runs, &starting, i] {
      starting.arrive_and_wait();
      runs[i] = i % 2 == 0 ? runTool({"status"}) : runTool({"backups", "enabled"}, asUser());
    });
  }
  for (std::thread& thread : threads) thread.join();

  std::multiset<std::int64_t> messages;
  for (int i = 0; i < kRuns; ++i) {
    SCOPED_TRACE(i);
    EXPECT_EQ(runs[i].out, i % 2 == 0 ? "" : "yes\n");
    EXPECT_EQ(runs[i].err, i % 2 == 0 ? alone.err : "");
    EXPECT_EQ(runs[i].exitStatus, 0);
    messages.insert(i % 2 == 0 ? QHVHelperMessageGetSettings : QHVHelperMessageGetBackupsEnabled);
  }
  std::multiset<std::int64_t> recorded;
  for (const RecordedRequest& request : scheduler().requests()) recorded.insert(request.message.value_or(-1));
  EXPECT_EQ(recorded, messages);

  // One whole line from each run as root, none torn or mixed with another.
  const std::regex line(R"(\d{1,2}/[A-Z][a-z]{2}/\d{2}, \d{2}:\d{2}:\d{2}[+-]\d{4} ctl\[(\d+)\] (.*))");
  std::istringstream log(readFile(kRootLog).value_or(""));
  std::set<std::string> writers;
  std::size_t lines = 0;
  for (std::string text; std::getline(log, text); ++lines) {
    std::smatch parts;
    ASSERT_TRUE(std::regex_match(text, parts, line)) << text;
    EXPECT_EQ(parts[2].str() + "\n", alone.err);
    writers.insert(parts[1].str());
  }
  EXPECT_EQ(lines, static_cast<std::size_t>(kRuns / 2));
  EXPECT_EQ(writers.size(), lines);
}

}  // namespace
}  // namespace testing_support
