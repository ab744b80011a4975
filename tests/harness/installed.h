// A test's replacement for a stand-in that touches the machine, installed for
// the guard's lifetime. The replacement it displaced comes back at the end, so
// a guard inside a test can override one that a fixture holds.
#pragma once

#include <type_traits>

namespace testing_support {

// `Interface` is a class with static current() and setForTesting(), such as
// platform::Clock; the replacement is owned by the caller and must outlive the guard.
template <typename Interface>
class Installed {
 public:
  using Pointer = std::remove_reference_t<decltype(Interface::current())>*;

  explicit Installed(Pointer replacement) : displaced_(Interface::setForTesting(replacement)) {}
  ~Installed() { Interface::setForTesting(displaced_); }
  Installed(const Installed&) = delete;
  Installed& operator=(const Installed&) = delete;

 private:
  Pointer displaced_;
};

}  // namespace testing_support
