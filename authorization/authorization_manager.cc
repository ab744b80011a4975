#include "authorization/authorization_manager.h"

#include <cstring>

#include "errors/lks_error.h"
#include "platform/foundation/format.h"
#include "platform/foundation/main_bundle.h"

using platform::AuthorizationFlags;
using platform::OSStatus;

namespace {

constexpr const char* kPromptKey = "You must authenticate to change the product settings.";

void report(platform::ErrorRef* error, std::int64_t code, platform::Dictionary userInfo) {
  if (error) *error = LKSError::errorWithDomain(LKSAuthorizationErrorDomain, code, std::move(userInfo));
}

platform::Dictionary statusInfo(OSStatus status) {
  return {{LKSErrorStatusKey, platform::Value::integer(status)}};
}

platform::Dictionary rightsInfo(platform::Array rights) {
  return {{LKSErrorRightsKey, platform::Value::array(std::move(rights))}};
}

// "name (status)": how a refused right is listed in an error.
platform::Value failureEntry(const platform::Value& right, OSStatus status) {
  return platform::Value::string(platform::stringWithFormat("%@ (%d)", right, status).value_or(""));
}

// AuthorizationCopyRights for the one right `right`. A list entry that is not a
// string names no right and is refused without asking.
OSStatus copyRight(platform::AuthorizationServices& services, platform::AuthorizationRef authorization,
                   const platform::Value& right, const platform::AuthorizationEnvironment* environment,
                   AuthorizationFlags flags) {
  const std::string* name = right.asString();
  if (!name) return platform::errAuthorizationInvalidSet;
  const platform::AuthorizationItem item{name->c_str(), 0, nullptr, 0};
  const platform::AuthorizationRights rights{1, &item};
  return services.AuthorizationCopyRights(authorization, &rights, environment, flags);
}

}  // namespace

LKSAuthorizationManager& LKSAuthorizationManager::sharedManager() {
  static LKSAuthorizationManager manager;
  return manager;
}

void LKSAuthorizationManager::invalidate() {
  if (_authRef) _freeAuthorization(platform::kAuthorizationFlagDestroyRights);
}

void LKSAuthorizationManager::_freeAuthorization(AuthorizationFlags flags) {
  platform::AuthorizationServices::current().AuthorizationFree(_authRef, flags);
  _authRef = nullptr;
}

bool LKSAuthorizationManager::authorizeRights(const platform::Array& rights,
                                              platform::ErrorRef* error) {
  if (_authRef && _lastAuthorizedRights != rights) {
    _freeAuthorization(platform::kAuthorizationFlagDefaults);
  }
  platform::AuthorizationServices& services = platform::AuthorizationServices::current();
  if (!_authRef) {
    OSStatus status = services.AuthorizationCreate(nullptr, nullptr,
                                                   platform::kAuthorizationFlagDefaults, &_authRef);
    if (status != platform::errAuthorizationSuccess) {
      _authRef = nullptr;
      report(error, LKSAuthorizationErrorCreate, statusInfo(status));
      return false;
    }
  }

  const std::string prompt =
      platform::MainBundle::mainBundle().localizedStringForKey(kPromptKey, "", nullptr);
  const platform::AuthorizationItem promptItem{platform::kAuthorizationEnvironmentPrompt,
                                               prompt.size(), prompt.data(), 0};
  const platform::AuthorizationEnvironment environment{1, &promptItem};
  const AuthorizationFlags flags =
      platform::kAuthorizationFlagExtendRights |
      (_allowsUserInteraction ? platform::kAuthorizationFlagInteractionAllowed : 0);

  bool canceled = false;
  for (const platform::Value& right : rights) {
    OSStatus status = copyRight(services, _authRef, right, &environment, flags);
    if (status == platform::errAuthorizationSuccess) {
      _lastAuthorizedRights = rights;
      return true;
    }
    // The user said no: asking again for another right would only show the dialog again.
    if (status == platform::errAuthorizationCanceled) {
      canceled = true;
      break;
    }
  }
  _freeAuthorization(platform::kAuthorizationFlagDefaults);
  report(error, canceled ? LKSAuthorizationErrorUserCanceled : LKSAuthorizationErrorAuthorizeRights,
         rightsInfo(rights));
  return false;
}

std::optional<platform::Bytes> LKSAuthorizationManager::authorizationExternalDataWithRights(
    const platform::Array& rights, platform::ErrorRef* error) {
  if (!authorizeRights(rights, error)) return std::nullopt;
  platform::AuthorizationExternalForm form;
  OSStatus status = platform::AuthorizationServices::current().AuthorizationMakeExternalForm(_authRef, &form);
  if (status != platform::errAuthorizationSuccess) {
    report(error, LKSAuthorizationErrorMakeExternalForm, statusInfo(status));
    return std::nullopt;
  }
  return platform::Bytes(std::begin(form.bytes), std::end(form.bytes));
}

bool LKSAuthorizationManager::validateAuthorizationExternalData(const platform::Bytes& data,
                                                                const platform::Array& rights,
                                                                platform::ErrorRef* error) {
  // Too short to be a form: it names no authorization.
  if (data.size() < platform::kAuthorizationExternalFormLength) {
    report(error, LKSAuthorizationErrorCreateFromExternalForm,
           statusInfo(platform::errAuthorizationInvalidRef));
    return false;
  }
  platform::AuthorizationServices& services = platform::AuthorizationServices::current();
  platform::AuthorizationExternalForm form;
  std::memcpy(form.bytes, data.data(), sizeof form.bytes);
  platform::AuthorizationRef authorization = nullptr;
  OSStatus status = services.AuthorizationCreateFromExternalForm(&form, &authorization);
  if (status != platform::errAuthorizationSuccess) {
    report(error, LKSAuthorizationErrorCreateFromExternalForm, statusInfo(status));
    return false;
  }

  platform::Array failures;
  for (const platform::Value& right : rights) {
    // No interaction and no extension: only rights the sender already holds count.
    status = copyRight(services, authorization, right, nullptr, platform::kAuthorizationFlagDefaults);
    if (status == platform::errAuthorizationSuccess) {
      services.AuthorizationFree(authorization, platform::kAuthorizationFlagDefaults);
      return true;
    }
    failures.push_back(failureEntry(right, status));
  }
  services.AuthorizationFree(authorization, platform::kAuthorizationFlagDefaults);
  report(error, LKSAuthorizationErrorValidateRights, rightsInfo(std::move(failures)));
  return false;
}

bool LKSAuthorizationManager::setAuthorizationRights(const platform::Dictionary& rights,
                                                     platform::ErrorRef* error) {
  platform::AuthorizationServices& services = platform::AuthorizationServices::current();
  platform::AuthorizationRef authorization = nullptr;
  OSStatus status = services.AuthorizationCreate(nullptr, nullptr,
                                                 platform::kAuthorizationFlagDefaults, &authorization);
  if (status != platform::errAuthorizationSuccess) {
    if (error) {
      platform::Array names;
      for (const auto& entry : rights) names.push_back(platform::Value::string(entry.first));
      platform::Dictionary userInfo = statusInfo(status);
      userInfo.set(LKSErrorRightsKey, platform::Value::array(std::move(names)));
      report(error, LKSAuthorizationErrorSetRights, std::move(userInfo));
    }
    return false;
  }

  platform::Array failures;
  for (const auto& [name, definition] : rights) {
    status = services.AuthorizationRightSet(authorization, name.c_str(), definition);
    if (status != platform::errAuthorizationSuccess) {
      failures.push_back(failureEntry(platform::Value::string(name), status));
    }
  }
  services.AuthorizationFree(authorization, platform::kAuthorizationFlagDefaults);
  if (!failures.empty()) {
    report(error, LKSAuthorizationErrorSetRights, rightsInfo(std::move(failures)));
    return false;
  }
  return true;
}
