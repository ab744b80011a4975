#include "authorization/authorization_manager.h"

using platform::AuthorizationFlags;

LKSAuthorizationManager& LKSAuthorizationManager::sharedManager() {
  static LKSAuthorizationManager manager(platform::authorizationServices());
  return manager;
}

LKSAuthorizationManager::LKSAuthorizationManager(platform::AuthorizationServices& services)
    : _services(services) {}

void LKSAuthorizationManager::invalidate() {
  if (_authRef) _freeAuthorization(platform::kAuthorizationFlagDestroyRights);
}

void LKSAuthorizationManager::_freeAuthorization(AuthorizationFlags flags) {
  _services.AuthorizationFree(_authRef, flags);
  _authRef = nullptr;
}
