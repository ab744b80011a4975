// Power-management assertions: while one is held, the system does not do what
// its type names. Stood in for by the login manager's inhibitor locks on the
// system bus, taken only when an assertion is created:
//
//   "PreventUserIdleSystemSleep"  what "idle",  mode "block"
//   "BackgroundTask"              what "sleep", mode "delay"
//
// with the assertion name as the lock's owner and the reason as its reason.
// Without the bus or the login manager an assertion is still made, and holds nothing.
#pragma once

#include <cstdint>

namespace platform {

using IOPMAssertionID = std::uint32_t;
using IOReturn = std::int32_t;

inline constexpr IOReturn kIOReturnSuccess = 0;
inline constexpr IOReturn kIOReturnBadArgument = static_cast<IOReturn>(0xe00002c2);
inline constexpr IOReturn kIOReturnNotFound = static_cast<IOReturn>(0xe00002f0);

inline constexpr const char* kIOPMAssertionTypePreventUserIdleSystemSleep = "PreventUserIdleSystemSleep";
inline constexpr const char* kIOPMAssertionTypeBackgroundTask = "BackgroundTask";

// Where assertions are made: the machine's login manager, or a test's recorder.
class PowerManagement {
 public:
  virtual ~PowerManagement() = default;
  // See IOPMAssertionCreateWithDescription.
  virtual IOReturn createAssertion(const char* type, const char* name, const char* details, const char* reason,
                                   const char* localizationBundlePath, double timeout, const char* timeoutAction,
                                   IOPMAssertionID* assertion) const = 0;
  // See IOPMAssertionRelease.
  virtual IOReturn releaseAssertion(IOPMAssertionID assertion) const = 0;

  // The process-wide instance: the machine's, or the one installed by setForTesting.
  static const PowerManagement& current();
  // Makes current() return `power` (owned by the caller), nullptr the machine's; returns the one it replaces.
  static const PowerManagement* setForTesting(const PowerManagement* power);
};

// Creates an assertion of `type` named `name` and stores its id in `assertion`.
// Details, reason, bundle path and time-out action may be null; a time-out of 0
// means none. kIOReturnSuccess, or kIOReturnBadArgument for an unknown type or
// a missing name or id.
IOReturn IOPMAssertionCreateWithDescription(const char* type, const char* name, const char* details,
                                            const char* reason, const char* localizationBundlePath, double timeout,
                                            const char* timeoutAction, IOPMAssertionID* assertion);

// Releases an assertion made by IOPMAssertionCreateWithDescription;
// kIOReturnNotFound for an id that is not held.
IOReturn IOPMAssertionRelease(IOPMAssertionID assertion);

}  // namespace platform
