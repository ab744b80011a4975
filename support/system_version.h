// Whether the running operating system is at least a given version.
#pragma once

#include "platform/foundation/process_info.h"

// The versions runningAtLeast() accepts: value n below 6 asks for 10.(10 + n).0;
// every other value asks for 10.0.0.
enum LKSSystemVersion : unsigned {
  LKSSystemVersion10_10 = 0,
  LKSSystemVersion10_11 = 1,
  LKSSystemVersion10_12 = 2,
  LKSSystemVersion10_13 = 3,
  LKSSystemVersion10_14 = 4,
  LKSSystemVersion10_15 = 5,
};

class LKSSystemVersionManager {
 public:
  // The one shared instance, made on first use; safe from any thread.
  static LKSSystemVersionManager& sharedManager();

  // True when the system is at least `version`; false for every value on a
  // system without the version query.
  bool runningAtLeast(LKSSystemVersion version) const;

  // True when the system is at least `version`. Without the version query (the
  // oldest supported system, 10.9) true exactly for 10.9.x.
  bool runningAtLeastVersion(platform::OperatingSystemVersion version) const;

 private:
  LKSSystemVersionManager() = default;
};
