// The process-wide instance of an interface that touches the machine: the
// machine's own implementation unless a test installed a replacement.
#pragma once

#include <atomic>

namespace platform {

template <typename Interface>
class MachineSeam {
 public:
  explicit constexpr MachineSeam(const Interface& machine) : machine_(machine) {}

  // The installed replacement, or the machine's implementation.
  const Interface& get() const {
    const Interface* replacement = replacement_.load(std::memory_order_acquire);
    return replacement ? *replacement : machine_;
  }

  // Installs `replacement` (owned by the caller); nullptr restores the machine's.
  void install(const Interface* replacement) {
    replacement_.store(replacement, std::memory_order_release);
  }

 private:
  const Interface& machine_;
  std::atomic<const Interface*> replacement_{nullptr};
};

}  // namespace platform
