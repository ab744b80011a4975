#include "platform/foundation/distributed_notification.h"

#include "platform/foundation/machine_seam.h"
#include "platform/foundation/system_bus.h"

namespace platform {
namespace {

class MachineNotificationCenter : public DistributedNotificationCenter {
 public:
  void postNotificationName(const std::string& name, const char* object, std::uint32_t options) const override {
    const std::unique_ptr<SystemBus> bus = SystemBus::connect();
    if (!bus) return;
    bus->emitSignal("/com/larkspan/DistributedNotificationCenter", "com.larkspan.DistributedNotificationCenter",
                    "Notification", name.c_str(), object ? object : "", options);
  }
};

constinit const MachineNotificationCenter kMachine;
constinit MachineSeam<const DistributedNotificationCenter> seam(kMachine);

}  // namespace

const DistributedNotificationCenter& DistributedNotificationCenter::current() { return seam.get(); }

const DistributedNotificationCenter* DistributedNotificationCenter::setForTesting(
    const DistributedNotificationCenter* center) {
  return seam.install(center);
}

}  // namespace platform
