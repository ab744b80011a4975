// The fixture of end-to-end tests: every test runs in a fresh sandbox (see
// sandbox.h) and is skipped, with one line saying why, where none can be made.
#pragma once

#include <gtest/gtest.h>

#include <memory>
#include <string>

#include "harness/files.h"
#include "harness/tool_run.h"
#include "sandbox/sandbox.h"

namespace testing_support {

using qhv_sandbox::Sandbox;

class EndToEndTest : public ::testing::Test {
 protected:
  void SetUp() override {
    std::string whyNot;
    sandbox_ = Sandbox::enter(&whyNot);
    if (!sandbox_) GTEST_SKIP() << whyNot;
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
