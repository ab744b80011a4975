// The process-wide Authorization Services. Callers keep the reference they were
// given, so it is a forwarder that asks, at every call, for the implementation
// installed now: a manager made before a test installs a fake still uses it.
#include "platform/authorization/services.h"

#include <atomic>

namespace platform {
namespace {

std::atomic<AuthorizationServices*> replacement{nullptr};

// The Linux implementation over the default paths, made at first use.
AuthorizationServices& machineServices() {
  static LinuxAuthorizationServices services;
  return services;
}

AuthorizationServices& installed() {
  AuthorizationServices* services = replacement.load(std::memory_order_acquire);
  return services ? *services : machineServices();
}

class ProcessWideAuthorizationServices final : public AuthorizationServices {
 public:
  OSStatus AuthorizationCreate(const AuthorizationRights* rights,
                               const AuthorizationEnvironment* environment,
                               AuthorizationFlags flags, AuthorizationRef* authorization) override {
    return installed().AuthorizationCreate(rights, environment, flags, authorization);
  }
  OSStatus AuthorizationCopyRights(AuthorizationRef authorization,
                                   const AuthorizationRights* rights,
                                   const AuthorizationEnvironment* environment,
                                   AuthorizationFlags flags) override {
    return installed().AuthorizationCopyRights(authorization, rights, environment, flags);
  }
  OSStatus AuthorizationMakeExternalForm(AuthorizationRef authorization,
                                         AuthorizationExternalForm* externalForm) override {
    return installed().AuthorizationMakeExternalForm(authorization, externalForm);
  }
  OSStatus AuthorizationCreateFromExternalForm(const AuthorizationExternalForm* externalForm,
                                               AuthorizationRef* authorization) override {
    return installed().AuthorizationCreateFromExternalForm(externalForm, authorization);
  }
  OSStatus AuthorizationRightSet(AuthorizationRef authorization, const char* rightName,
                                 const Value& rightDefinition) override {
    return installed().AuthorizationRightSet(authorization, rightName, rightDefinition);
  }
  OSStatus AuthorizationFree(AuthorizationRef authorization, AuthorizationFlags flags) override {
    return installed().AuthorizationFree(authorization, flags);
  }
};

}  // namespace

AuthorizationServices& authorizationServices() {
  static ProcessWideAuthorizationServices processWide;
  return processWide;
}

void setAuthorizationServicesForTesting(AuthorizationServices* services) {
  replacement.store(services, std::memory_order_release);
}

}  // namespace platform
