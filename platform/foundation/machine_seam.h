// The process-wide instance of an interface that touches the machine: the
// machine's own implementation unless a test installed a replacement.
// `Interface` is const-qualified when nothing is changed through it (a clock),
// and plain when using it changes state (a sink that writes to a socket).
#pragma once

#include <atomic>

namespace platform {

template <typename Interface>
class MachineSeam {
 public:
  explicit constexpr MachineSeam(Interface& machine) : machine_(machine) {}

  // The installed replacement, or the machine's implementation.
  Interface& get() const {
    Interface* replacement = replacement_.load(std::memory_order_acquire);
    return replacement ? *replacement : machine_;
  }

  // Installs `replacement` (owned by the caller); nullptr restores the machine's.
  // Returns the replacement installed before, nullptr when there was none.
  Interface* install(Interface* replacement) {
    return replacement_.exchange(replacement, std::memory_order_acq_rel);
  }

 private:
  Interface& machine_;
  std::atomic<Interface*> replacement_{nullptr};
};

}  // namespace platform
