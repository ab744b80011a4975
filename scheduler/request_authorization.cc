#include "scheduler/request_authorization.h"

#include "authorization/authorization_manager.h"

namespace dev_scheduler {

RequestAuthorization::RequestAuthorization()
    : catalogue_(QHVHelperMessager::init()),
      asker_(LKSMessagerClient::initWithServiceName(QHVHelperServiceName, {})) {}

platform::Array RequestAuthorization::rightsForMessage(QHVHelperMessage message) const {
  return catalogue_->messagerAuthorizationRightsForMessage(*asker_, message);
}

AuthorizationCheck RequestAuthorization::check(QHVHelperMessage message, const platform::Value& auth,
                                               platform::ErrorRef* whyNot) const {
  const platform::Array rights = rightsForMessage(message);
  if (rights.empty()) return AuthorizationCheck::NotNeeded;
  if (!auth) return AuthorizationCheck::Missing;
  const platform::Bytes* form = auth.asData();
  if (!form) return AuthorizationCheck::Invalid;
  return LKSAuthorizationManager::validateAuthorizationExternalData(*form, rights, whyNot)
             ? AuthorizationCheck::Valid
             : AuthorizationCheck::Invalid;
}

}  // namespace dev_scheduler
