// Distributed notifications: a named event posted to every listener on the
// machine. Stood in for by a signal on the D-Bus system bus, sent only when a
// notification is posted:
//
//   path "/com/larkspan/DistributedNotificationCenter",
//   interface "com.larkspan.DistributedNotificationCenter", member "Notification",
//   arguments (name, object or "", options).
//
// The system bus reaches every session of the machine, and a signal is sent at
// once, so the options are carried for listeners and change nothing here.
// Without the bus a notification reaches nobody, as when nobody listens.
#pragma once

#include <cstdint>
#include <string>

namespace platform {

// Options of postNotificationName.
inline constexpr std::uint32_t NSDistributedNotificationDeliverImmediately = 1;
inline constexpr std::uint32_t NSDistributedNotificationPostToAllSessions = 2;

class DistributedNotificationCenter {
 public:
  virtual ~DistributedNotificationCenter() = default;

  // Posts `name` with `object` (null for none) and no user information.
  // Failures are not reported: a notification nobody receives is not an error.
  virtual void postNotificationName(const std::string& name, const char* object, std::uint32_t options) const = 0;

  // The process-wide center: the machine's, or the one installed by setForTesting.
  static const DistributedNotificationCenter& current();
  // Makes current() return `center` (owned by the caller), nullptr the machine's; returns the one it replaces.
  static const DistributedNotificationCenter* setForTesting(const DistributedNotificationCenter* center);
};

}  // namespace platform
