#include "scheduler/request_authorization.h"

#include "authorization/authorization_manager.h"
#include "messaging/message_catalogue.h"

namespace dev_scheduler {

AuthorizationCheck checkAuthorization(QHVHelperMessage message, const platform::Value& auth,
                                      platform::ErrorRef* whyNot) {
  const platform::Array rights = QHVAuthorizationRightsForMessage(message);
  if (rights.empty()) return AuthorizationCheck::NotNeeded;
  if (!auth) return AuthorizationCheck::Missing;
  const platform::Bytes* form = auth.asData();
  if (!form) return AuthorizationCheck::Invalid;
  return LKSAuthorizationManager::validateAuthorizationExternalData(*form, rights, whyNot)
             ? AuthorizationCheck::Valid
             : AuthorizationCheck::Invalid;
}

}  // namespace dev_scheduler
