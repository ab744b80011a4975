// Appends per second of the log file, beside the bare write(2) of the same
// already formatted line, which is the floor that one write call per entry sets;
// the last line of the report gives the one beside the other. Both write into a
// private directory that stands in for the home directory.
#include <benchmark/benchmark.h>
#include <fcntl.h>
#include <unistd.h>

#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <map>
#include <optional>
#include <string>
#include <vector>

#include "log/log.h"
#include "log/log_testing.h"
#include "platform/foundation/clock.h"
#include "platform/foundation/log_date.h"
#include "platform/foundation/user_ids.h"

namespace {

constexpr const char* kFormat = "Sending message %lld (%@) to %@ with %lu bytes of payload.";
constexpr long long kMessage = 11;
const std::string kMessageName = "SetBackupsEnabled";
const std::string kService = "com.larkspan.quillhaven.scheduler";
constexpr unsigned long kPayloadBytes = 58;

// A private home directory for one run, removed afterwards; $HOME points there
// meanwhile and an ordinary user's ids are in place, so the real log directory
// is never touched.
class PrivateHome {
 public:
  PrivateHome() {
    const char* base = std::getenv("TMPDIR");
    std::string pattern = std::string(base && *base ? base : "/tmp") + "/qhv-bench-XXXXXX";
    if (!mkdtemp(pattern.data())) std::abort();
    path_ = pattern;
    if (const char* home = std::getenv("HOME")) savedHome_ = home;
    setenv("HOME", path_.c_str(), 1);
    platform::UserIds::setForTesting(&user_);
  }
  ~PrivateHome() {
    platform::UserIds::setForTesting(nullptr);
    savedHome_ ? setenv("HOME", savedHome_->c_str(), 1) : unsetenv("HOME");
    std::error_code ignored;
    std::filesystem::remove_all(path_, ignored);
  }
  PrivateHome(const PrivateHome&) = delete;
  PrivateHome& operator=(const PrivateHome&) = delete;

  const std::string& path() const { return path_; }

 private:
  std::string path_;
  std::optional<std::string> savedHome_;
  const platform::FixedUserIds user_{501, 501};
};

void BM_LogFileAppend(benchmark::State& state) {
  const PrivateHome home;
  LKSLogInit("com.larkspan.quillhaven", "ctl");
  for (auto _ : state) {
    LKSLogWithLevel2(LKSLogLevelDefault, kFormat, kMessage, kMessageName, kService, kPayloadBytes);
  }
  state.SetItemsProcessed(state.iterations());
  LKSLogResetForTesting();
}
BENCHMARK(BM_LogFileAppend);

void BM_BareAppendWrite(benchmark::State& state) {
  const PrivateHome home;
  const std::string message =
      *platform::stringWithFormat(kFormat, kMessage, kMessageName, kService, kPayloadBytes);
  const std::string line = *platform::stringWithFormat(
      "%@ %@[%d] %@\n", platform::LogDateFormatter().stringFromDate(platform::Clock::current().now()),
      std::string("ctl"), ::getpid(), message);
  const int fd = ::open((home.path() + "/bare.log").c_str(), O_WRONLY | O_APPEND | O_CREAT | O_CLOEXEC, 0644);
  if (fd < 0) {
    state.SkipWithError("cannot open the file");
    return;
  }
  for (auto _ : state) {
    if (::write(fd, line.data(), line.size()) != static_cast<ssize_t>(line.size())) {
      state.SkipWithError("short write");
      break;
    }
  }
  state.SetItemsProcessed(state.iterations());
  state.SetLabel(std::to_string(line.size()) + "-byte line");
  ::close(fd);
}
BENCHMARK(BM_BareAppendWrite);

// The console report, followed by the line "log statement / bare write = 0.xx×":
// the bare write's time over the statement's, both from the medians of the
// repetitions (from the one run each without repetitions).
class RatioReporter : public benchmark::ConsoleReporter {
 public:
  RatioReporter() : ConsoleReporter(isatty(STDOUT_FILENO) ? OO_Color : OO_None) {}

  void ReportRuns(const std::vector<Run>& runs) override {
    ConsoleReporter::ReportRuns(runs);
    for (const Run& run : runs) {
      const bool median = run.run_type == Run::RT_Aggregate && run.aggregate_name == "median";
      const bool only = run.run_type == Run::RT_Iteration && run.repetitions <= 1;
      if (!run.error_occurred && (median || only)) times_[run.run_name.function_name] = run.GetAdjustedRealTime();
    }
  }

  void Finalize() override {
    ConsoleReporter::Finalize();
    const auto statement = times_.find("BM_LogFileAppend"), write = times_.find("BM_BareAppendWrite");
    if (statement == times_.end() || write == times_.end() || statement->second <= 0) return;
    char line[64];
    std::snprintf(line, sizeof line, "log statement / bare write = %.2f\u00d7\n", write->second / statement->second);
    GetOutputStream() << line;
  }

 private:
  std::map<std::string, double> times_;
};

}  // namespace

int main(int argc, char** argv) {
  benchmark::Initialize(&argc, argv);
  if (benchmark::ReportUnrecognizedArguments(argc, argv)) return 1;
  RatioReporter reporter;
  benchmark::RunSpecifiedBenchmarks(&reporter);
  benchmark::Shutdown();
  return 0;
}
