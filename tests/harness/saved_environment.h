// Environment variables put back as they were when this is destroyed, so that
// a test that changes them leaves the rest of its test program unaffected.
#pragma once

#include <stdlib.h>
#include <time.h>

#include <initializer_list>
#include <optional>
#include <string>
#include <utility>
#include <vector>

namespace testing_support {

class SavedEnvironment {
 public:
  explicit SavedEnvironment(std::initializer_list<const char*> names) {
    for (const char* name : names) {
      const char* value = ::getenv(name);
      saved_.emplace_back(name, value ? std::optional<std::string>(value) : std::nullopt);
    }
  }
  ~SavedEnvironment() {
    for (const auto& [name, value] : saved_) value ? ::setenv(name.c_str(), value->c_str(), 1) : ::unsetenv(name.c_str());
    ::tzset();
  }
  SavedEnvironment(const SavedEnvironment&) = delete;
  SavedEnvironment& operator=(const SavedEnvironment&) = delete;

 private:
  std::vector<std::pair<std::string, std::optional<std::string>>> saved_;
};

}  // namespace testing_support
