// The standard streams of the test process redirected while one of these
// lives, so that code that prints with printf, puts or write(1), or reads with
// fgets, can be run and checked in the test's own process.
#pragma once

#include <unistd.h>

#include <string>

namespace testing_support {

// Standard output or standard error captured.
class CapturedOutput {
 public:
  explicit CapturedOutput(int fd = STDOUT_FILENO);
  ~CapturedOutput();  // restores the stream
  CapturedOutput(const CapturedOutput&) = delete;
  CapturedOutput& operator=(const CapturedOutput&) = delete;

  // Everything written so far.
  std::string text() const;

 private:
  int fd_;
  int saved_;
  int file_;
};

// Standard input holding `text` and nothing more.
class GivenInput {
 public:
  explicit GivenInput(const std::string& text);
  ~GivenInput();  // restores standard input; what was not read is dropped
  GivenInput(const GivenInput&) = delete;
  GivenInput& operator=(const GivenInput&) = delete;

 private:
  int saved_;
};

}  // namespace testing_support
