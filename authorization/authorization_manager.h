// The authorization the tool last obtained from Authorization Services, reused
// while the same rights list is asked for, and its 32-byte external form that
// travels with a message. A rights list is a list of alternatives tried in order.
// The receiving side's check of a form and the definition of rights are class
// operations over the process-wide Authorization Services.
#pragma once

#include <optional>

#include "platform/authorization/services.h"
#include "platform/plist/value.h"

class LKSAuthorizationManager {
 public:
  // The process-wide manager over the process-wide Authorization Services; made
  // on the first call, thread-safely and exactly once. Making it does no I/O.
  static LKSAuthorizationManager& sharedManager();

  // A manager that holds nothing and allows user interaction, working through
  // the process-wide Authorization Services as they are at each call.
  LKSAuthorizationManager() = default;
  LKSAuthorizationManager(const LKSAuthorizationManager&) = delete;
  LKSAuthorizationManager& operator=(const LKSAuthorizationManager&) = delete;

  // Whether Authorization Services may ask the user for credentials; true at first.
  bool allowsUserInteraction() const { return _allowsUserInteraction; }
  // Takes effect at the next request.
  void setAllowsUserInteraction(bool allows) { _allowsUserInteraction = allows; }

  // Gives up the held authorization and destroys its rights; nothing when none is held.
  void invalidate();

  // True when an authorization (reused when `rights` is the list last granted)
  // grants one right of the list. False with LKSAuthorizationErrorUserCanceled
  // when the user cancelled, LKSAuthorizationErrorCreate when no authorization
  // could be made, LKSAuthorizationErrorAuthorizeRights when every right was
  // refused or the list is empty; nothing is held then.
  bool authorizeRights(const platform::Array& rights, platform::ErrorRef* error);

  // The 32-byte external form of an authorization that grants one right of
  // `rights`; nullopt with authorizeRights's error, or
  // LKSAuthorizationErrorMakeExternalForm when the form could not be made.
  std::optional<platform::Bytes> authorizationExternalDataWithRights(const platform::Array& rights,
                                                                     platform::ErrorRef* error);

  // True when the authorization whose external form is the first 32 bytes of
  // `data` already holds one right of `rights`. False with
  // LKSAuthorizationErrorCreateFromExternalForm ("status") when the form is
  // unknown, or shorter than 32 bytes (then errAuthorizationInvalidRef without
  // asking), LKSAuthorizationErrorValidateRights (one "name (status)" entry per
  // right) when none is held.
  static bool validateAuthorizationExternalData(const platform::Bytes& data,
                                                const platform::Array& rights,
                                                platform::ErrorRef* error);

  // Installs each right definition (rule name or rule dictionary) under its
  // name in the authorization database, in the dictionary's order. False with
  // LKSAuthorizationErrorSetRights: "status" and every right name under
  // "rights" when no authorization could be made, otherwise one "name (status)"
  // entry per right that could not be set (the others are set).
  static bool setAuthorizationRights(const platform::Dictionary& rights, platform::ErrorRef* error);

 private:
  // Frees and drops the held authorization with `flags`.
  void _freeAuthorization(platform::AuthorizationFlags flags);

  platform::AuthorizationRef _authRef = nullptr;
  platform::Array _lastAuthorizedRights;
  bool _allowsUserInteraction = true;
};
