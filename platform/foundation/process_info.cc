#include "platform/foundation/process_info.h"

#include <tuple>

#include "platform/foundation/machine_seam.h"

namespace platform {
namespace {

// Linux stands for a current release of the platform: newer than every version
// the tool asks about, so each of its version tests is true.
constexpr OperatingSystemVersion kCurrentSystemVersion{26, 0, 0};

class MachineProcessInfo : public ProcessInfo {
 public:
  std::optional<OperatingSystemVersion> operatingSystemVersion() const override {
    return kCurrentSystemVersion;
  }
};

constinit const MachineProcessInfo kMachine;
constinit MachineSeam<const ProcessInfo> seam(kMachine);

}  // namespace

bool operatingSystemVersionAtLeast(const OperatingSystemVersion& running,
                                   const OperatingSystemVersion& wanted) {
  return std::tie(running.majorVersion, running.minorVersion, running.patchVersion) >=
         std::tie(wanted.majorVersion, wanted.minorVersion, wanted.patchVersion);
}

const ProcessInfo& ProcessInfo::current() { return seam.get(); }

const ProcessInfo* ProcessInfo::setForTesting(const ProcessInfo* info) { return seam.install(info); }

}  // namespace platform
