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
constinit MachineSeam<UserIds> seam(kMachine);

}  // namespace

const UserIds& UserIds::current() { return seam.get(); }

void UserIds::setForTesting(const UserIds* ids) { seam.install(ids); }

}  // namespace platform
