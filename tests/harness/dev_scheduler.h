// The development scheduler as end-to-end tests use it: started over a fresh
// state directory where the tool looks for it in the current sandbox (never
// outside one), stopped at the end. Whatever of this fails is reported as a
// test failure.
#pragma once

#include <optional>
#include <string>
#include <vector>

#include "harness/end_to_end.h"
#include "harness/scheduler_state.h"

namespace testing_support {

class DevScheduler : public SchedulerState {
 public:
  // Started and serving.
  DevScheduler() { start(); }
  // Stopped, its state directory removed.
  ~DevScheduler();

  // Starts it again over the same state directory; true once it serves.
  bool start();
  // Stops it; true once it has gone and removed its socket.
  bool stop();

 private:
  // Runs the scheduler's `command` for this state directory; false, reported, when it fails.
  bool command(const char* command) const;

  bool serving_ = false;
};

// runProgram with the built development scheduler.
RunResult runScheduler(const std::vector<std::string>& args, const RunOptions& options = {});

// A sandbox with a development scheduler serving in it.
class SchedulerTest : public EndToEndTest {
 protected:
  void SetUp() override {
    EndToEndTest::SetUp();
    if (!IsSkipped() && !HasFatalFailure()) scheduler_.emplace();
  }
  void TearDown() override {
    scheduler_.reset();
    EndToEndTest::TearDown();
  }
  DevScheduler& scheduler() { return *scheduler_; }

 private:
  std::optional<DevScheduler> scheduler_;
};

}  // namespace testing_support
