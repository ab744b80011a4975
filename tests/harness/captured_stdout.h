// Standard output of the test process redirected while one of these lives, so
// that code printing with printf, puts or write(1) can be checked.
#pragma once

#include <string>

namespace testing_support {

class CapturedStdout {
 public:
  CapturedStdout();
  ~CapturedStdout();  // restores standard output
  CapturedStdout(const CapturedStdout&) = delete;
  CapturedStdout& operator=(const CapturedStdout&) = delete;

  // Everything written so far.
  std::string text() const;

 private:
  int saved_;
  int file_;
};

}  // namespace testing_support
