// The fixture of end-to-end tests: every test runs in a fresh sandbox (see
// sandbox.h) and is skipped, with one line saying why, where none can be made
// (under CI it fails instead).
#pragma once

#include <gtest/gtest.h>
#include <unistd.h>

#include <memory>
#include <string>

#include "harness/files.h"
#include "harness/skip_or_fail_under_ci.h"
#include "harness/tool_run.h"
#include "sandbox/sandbox.h"

namespace testing_support {

using qhv_sandbox::Sandbox;

// The mount namespace of the calling thread.
inline std::string mountNamespace() {
  char name[64] = {};
  return ::readlink("/proc/thread-self/ns/mnt", name, sizeof name - 1) > 0 ? name : "";
}

// The namespace the test program began in, before any test entered a sandbox.
inline const std::string kStartingMountNamespace = mountNamespace();

// True on a thread inside a sandbox, the only place where helpers write to system paths.
inline bool inSandbox() { return !kStartingMountNamespace.empty() && mountNamespace() != kStartingMountNamespace; }

class EndToEndTest : public ::testing::Test {
 protected:
  void SetUp() override {
    std::string whyNot;
    sandbox_ = Sandbox::enter(&whyNot);
    if (!sandbox_) SKIP_OR_FAIL_UNDER_CI(whyNot);
  }
  void TearDown() override { sandbox_.reset(); }

  static RunOptions asUser() {
    RunOptions options;
    options.asUser = true;
    return options;
  }

 private:
  std::unique_ptr<Sandbox> sandbox_;
};

}  // namespace testing_support
