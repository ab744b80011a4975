// platform/authorization stands in for Authorization Services of the Security
// framework: rights evaluated from the rules of a rights database (rules.h) and
// exported authorizations reached through grants that only root may record
// (grants.h). Left out: authentication (no agent asks for credentials),
// authorization plug-ins, and every call the tool does not make.
//
// Authorization Services: the platform's C interface as an interface class, so
// that a test can hand the tool a fake. Names, flags and status values are the
// platform's. The stand-in keeps what the tool relies on: the tool never asks
// for a copy of the granted rights, and defines rights without description keys,
// bundles or locale tables, so those parameters are left out.
#pragma once

#include <cstddef>
#include <cstdint>
#include <string>

#include "platform/plist/value.h"

namespace platform {

using OSStatus = std::int32_t;

inline constexpr OSStatus errAuthorizationSuccess = 0;
inline constexpr OSStatus errAuthorizationInvalidSet = -60001;
inline constexpr OSStatus errAuthorizationInvalidRef = -60002;
inline constexpr OSStatus errAuthorizationInvalidPointer = -60004;
inline constexpr OSStatus errAuthorizationDenied = -60005;
inline constexpr OSStatus errAuthorizationCanceled = -60006;
inline constexpr OSStatus errAuthorizationInteractionNotAllowed = -60007;
inline constexpr OSStatus errAuthorizationInternal = -60008;

using AuthorizationFlags = std::uint32_t;

inline constexpr AuthorizationFlags kAuthorizationFlagDefaults = 0;
inline constexpr AuthorizationFlags kAuthorizationFlagInteractionAllowed = 1;
inline constexpr AuthorizationFlags kAuthorizationFlagExtendRights = 2;
inline constexpr AuthorizationFlags kAuthorizationFlagPartialRights = 4;
inline constexpr AuthorizationFlags kAuthorizationFlagDestroyRights = 8;
inline constexpr AuthorizationFlags kAuthorizationFlagPreAuthorize = 16;

// The environment item that carries the text shown above a credentials dialog.
inline constexpr const char* kAuthorizationEnvironmentPrompt = "prompt";

// One right (or one environment entry): a UTF-8 name and an optional value.
struct AuthorizationItem {
  const char* name = nullptr;
  std::size_t valueLength = 0;
  const void* value = nullptr;
  std::uint32_t flags = 0;
};

struct AuthorizationItemSet {
  std::uint32_t count = 0;
  const AuthorizationItem* items = nullptr;
};

using AuthorizationRights = AuthorizationItemSet;
using AuthorizationEnvironment = AuthorizationItemSet;

inline constexpr std::size_t kAuthorizationExternalFormLength = 32;

// An authorization in a form that can travel to another process.
struct AuthorizationExternalForm {
  std::uint8_t bytes[kAuthorizationExternalFormLength] = {};
};

// The object behind an AuthorizationRef. Each implementation derives its own
// authorization from it, so a reference made by another one is recognised and
// refused with errAuthorizationInvalidRef.
class AuthorizationOpaqueRef {
 public:
  virtual ~AuthorizationOpaqueRef() = default;
};

// An authorization handle; valid from a successful AuthorizationCreate or
// AuthorizationCreateFromExternalForm until AuthorizationFree.
using AuthorizationRef = AuthorizationOpaqueRef*;

class AuthorizationServices {
 public:
  virtual ~AuthorizationServices() = default;

  // Makes a new authorization into *authorization; with
  // kAuthorizationFlagExtendRights it first obtains `rights` (may be null) as
  // AuthorizationCopyRights would. Returns a status (errAuthorizationInvalidPointer
  // for a null `authorization`); *authorization is set only on success.
  virtual OSStatus AuthorizationCreate(const AuthorizationRights* rights,
                                       const AuthorizationEnvironment* environment,
                                       AuthorizationFlags flags,
                                       AuthorizationRef* authorization) = 0;

  // Succeeds when `authorization` holds every right of `rights`: with
  // kAuthorizationFlagExtendRights rights it does not hold yet are evaluated and
  // granted to it; without, only rights already granted count. Returns
  // errAuthorizationDenied, errAuthorizationInteractionNotAllowed or
  // errAuthorizationCanceled when a right is refused.
  virtual OSStatus AuthorizationCopyRights(AuthorizationRef authorization,
                                           const AuthorizationRights* rights,
                                           const AuthorizationEnvironment* environment,
                                           AuthorizationFlags flags) = 0;

  // The 32-byte form by which another process reaches the same grants; the same
  // form each time for one authorization. errAuthorizationDenied when this
  // process may not record grants (on a real system: when it is not root).
  virtual OSStatus AuthorizationMakeExternalForm(AuthorizationRef authorization,
                                                 AuthorizationExternalForm* externalForm) = 0;

  // A new handle on the authorization that `externalForm` was made from;
  // errAuthorizationInvalidRef when the form is unknown or revoked.
  virtual OSStatus AuthorizationCreateFromExternalForm(
      const AuthorizationExternalForm* externalForm, AuthorizationRef* authorization) = 0;

  // Installs `rightDefinition` (a rule name string or a rule dictionary) as the
  // rule of `rightName` in the rights database. errAuthorizationDenied when the
  // caller may not change the database, errAuthorizationInvalidSet for an empty
  // name or a definition of another kind.
  virtual OSStatus AuthorizationRightSet(AuthorizationRef authorization, const char* rightName,
                                         const Value& rightDefinition) = 0;

  // Releases the handle; with kAuthorizationFlagDestroyRights its grants are
  // revoked for every process that holds its external form.
  virtual OSStatus AuthorizationFree(AuthorizationRef authorization, AuthorizationFlags flags) = 0;

  // The process-wide instance: the Linux implementation over the default paths
  // (made at first use, without I/O), or the one installed by setForTesting. A
  // handle must go back to the implementation that made it.
  static AuthorizationServices& current();
  // Makes current() return `services` (owned by the caller), nullptr the Linux
  // implementation; returns the one it replaces.
  static AuthorizationServices* setForTesting(AuthorizationServices* services);
};

// Where the Linux implementation keeps its state. Both live in root-owned places
// in a real system; tests point them into a private directory.
struct AuthorizationServicesPaths {
  // The rights database: an XML property list {"rights": {name: rule}}.
  std::string database = "/etc/authorization";
  // One record per exported authorization, named by the form's hex digits.
  std::string grantsDirectory = "/var/run/authorization";
};

// Authorization Services on Linux: rules from the rights database, grants of
// exported authorizations recorded as files in the grants directory, which only
// root may write. Construction does no I/O; the database is read per request.
class LinuxAuthorizationServices final : public AuthorizationServices {
 public:
  explicit LinuxAuthorizationServices(AuthorizationServicesPaths paths = {});

  OSStatus AuthorizationCreate(const AuthorizationRights* rights,
                               const AuthorizationEnvironment* environment,
                               AuthorizationFlags flags, AuthorizationRef* authorization) override;
  OSStatus AuthorizationCopyRights(AuthorizationRef authorization,
                                   const AuthorizationRights* rights,
                                   const AuthorizationEnvironment* environment,
                                   AuthorizationFlags flags) override;
  OSStatus AuthorizationMakeExternalForm(AuthorizationRef authorization,
                                         AuthorizationExternalForm* externalForm) override;
  OSStatus AuthorizationCreateFromExternalForm(const AuthorizationExternalForm* externalForm,
                                               AuthorizationRef* authorization) override;
  OSStatus AuthorizationRightSet(AuthorizationRef authorization, const char* rightName,
                                 const Value& rightDefinition) override;
  OSStatus AuthorizationFree(AuthorizationRef authorization, AuthorizationFlags flags) override;

 private:
  AuthorizationServicesPaths paths_;
};

}  // namespace platform
