#include "platform/foundation/power_assertion.h"

#include <unistd.h>

#include <map>
#include <mutex>
#include <string_view>

#include "platform/foundation/machine_seam.h"
#include "platform/foundation/system_bus.h"

namespace platform {
namespace {

struct InhibitorLock {
  std::string_view type;
  const char* what;
  const char* mode;
};

constexpr InhibitorLock kInhibitorLocks[] = {
    {kIOPMAssertionTypePreventUserIdleSystemSleep, "idle", "block"},
    {kIOPMAssertionTypeBackgroundTask, "sleep", "delay"},
};

const InhibitorLock* inhibitorLockFor(const char* type) {
  if (!type) return nullptr;
  for (const InhibitorLock& lock : kInhibitorLocks) {
    if (lock.type == type) return &lock;
  }
  return nullptr;
}

// Assertions held by this process: id to the lock's descriptor (-1 when the
// login manager gave none).
class MachinePowerManagement : public PowerManagement {
 public:
  IOReturn createAssertion(const char* type, const char* name, const char*, const char* reason, const char*,
                           double, const char*, IOPMAssertionID* assertion) const override {
    const InhibitorLock* lock = inhibitorLockFor(type);
    if (!lock || !name || !assertion) return kIOReturnBadArgument;
    int descriptor = -1;
    if (std::unique_ptr<SystemBus> bus = SystemBus::connect()) {
      descriptor = bus->inhibit(lock->what, name, reason ? reason : "", lock->mode);
    }
    std::lock_guard guard(mutex_);
    *assertion = ++lastId_;
    held_[*assertion] = descriptor;
    return kIOReturnSuccess;
  }

  IOReturn releaseAssertion(IOPMAssertionID assertion) const override {
    std::lock_guard guard(mutex_);
    const auto held = held_.find(assertion);
    if (held == held_.end()) return kIOReturnNotFound;
    if (held->second >= 0) ::close(held->second);
    held_.erase(held);
    return kIOReturnSuccess;
  }

 private:
  mutable std::mutex mutex_;
  mutable IOPMAssertionID lastId_ = 0;
  mutable std::map<IOPMAssertionID, int> held_;
};

const MachinePowerManagement& machine() {
  static const MachinePowerManagement power;
  return power;
}

MachineSeam<const PowerManagement>& seam() {
  static MachineSeam<const PowerManagement> instance(machine());
  return instance;
}

}  // namespace

const PowerManagement& PowerManagement::current() { return seam().get(); }

const PowerManagement* PowerManagement::setForTesting(const PowerManagement* power) {
  return seam().install(power);
}

IOReturn IOPMAssertionCreateWithDescription(const char* type, const char* name, const char* details,
                                            const char* reason, const char* localizationBundlePath, double timeout,
                                            const char* timeoutAction, IOPMAssertionID* assertion) {
  return PowerManagement::current().createAssertion(type, name, details, reason, localizationBundlePath, timeout,
                                                    timeoutAction, assertion);
}

IOReturn IOPMAssertionRelease(IOPMAssertionID assertion) {
  return PowerManagement::current().releaseAssertion(assertion);
}

}  // namespace platform
