// The current date, behind an interface so that tests can fix the time.
#pragma once

#include "platform/plist/value.h"

namespace platform {

class Clock {
 public:
  virtual ~Clock() = default;

  // The current date and time.
  virtual Date now() const = 0;

  // The process-wide instance: the system clock, or the one installed by setForTesting.
  static const Clock& current();
  // Makes current() return `clock` (owned by the caller), nullptr the system clock; returns the one it replaces.
  static const Clock* setForTesting(const Clock* clock);
};

// A clock that always reports the same date, for tests.
class FixedClock : public Clock {
 public:
  explicit FixedClock(Date date) : date_(date) {}
  Date now() const override { return date_; }

 private:
  Date date_;
};

}  // namespace platform
