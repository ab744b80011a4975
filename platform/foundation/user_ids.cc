#include "platform/foundation/user_ids.h"

#include <unistd.h>

#include "platform/foundation/machine_seam.h"

namespace platform {
namespace {

class MachineUserIds : public UserIds {
 public:
  uid_t realUserId() const override { return getuid(); }
  uid_t effectiveUserId() const override { return geteuid(); }
};

constinit const MachineUserIds kMachine;
constinit MachineSeam<const UserIds> seam(kMachine);

}  // namespace

const UserIds& UserIds::current() { return seam.get(); }

const UserIds* UserIds::setForTesting(const UserIds* ids) { return seam.install(ids); }

}  // namespace platform
