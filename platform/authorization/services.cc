#include "platform/authorization/services.h"

#include "platform/foundation/machine_seam.h"

namespace platform {
namespace {

MachineSeam<AuthorizationServices>& seam() {
  static LinuxAuthorizationServices machine;
  static MachineSeam<AuthorizationServices> instance(machine);
  return instance;
}

}  // namespace

AuthorizationServices& AuthorizationServices::current() { return seam().get(); }

AuthorizationServices* AuthorizationServices::setForTesting(AuthorizationServices* services) {
  return seam().install(services);
}

}  // namespace platform
