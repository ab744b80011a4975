#include "platform/foundation/clock.h"

#include <time.h>

#include "platform/foundation/machine_seam.h"

namespace platform {
namespace {

class SystemClock : public Clock {
 public:
  Date now() const override {
    timespec ts{};
    clock_gettime(CLOCK_REALTIME, &ts);
    return Date::fromUnixTime(static_cast<double>(ts.tv_sec) + static_cast<double>(ts.tv_nsec) / 1e9);
  }
};

constinit const SystemClock kSystem;
constinit MachineSeam<const Clock> seam(kSystem);

}  // namespace

const Clock& Clock::current() { return seam.get(); }

const Clock* Clock::setForTesting(const Clock* clock) { return seam.install(clock); }

}  // namespace platform
