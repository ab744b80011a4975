// Authorization Services on Linux. An authorization is a set of rights granted
// in this process; its external form is 32 random bytes that reach those rights
// from another process only through the record kept in the grants directory.
#include <sys/random.h>

#include <algorithm>
#include <cerrno>
#include <memory>

#include "platform/authorization/grants.h"
#include "platform/authorization/rules.h"
#include "platform/authorization/services.h"
#include "platform/foundation/user_ids.h"

namespace platform {
namespace {

class LinuxAuthorization final : public AuthorizationOpaqueRef {
 public:
  // The rights evaluated and granted in this process.
  std::vector<std::string> granted;
  // Set once the form was made here or the handle was made from it.
  std::optional<AuthorizationExternalForm> externalForm;
  // Whether this process made the form, and so keeps its record up to date.
  bool madeExternalForm = false;

  bool holdsInProcess(std::string_view right) const {
    return std::find(granted.begin(), granted.end(), right) != granted.end();
  }
};

LinuxAuthorization* authorizationOf(AuthorizationRef authorization) {
  return dynamic_cast<LinuxAuthorization*>(authorization);
}

// Fills `form` from the kernel's random source; false when it cannot.
bool fillRandom(AuthorizationExternalForm& form) {
  std::size_t filled = 0;
  while (filled < sizeof form.bytes) {
    ssize_t got = ::getrandom(form.bytes + filled, sizeof form.bytes - filled, 0);
    if (got < 0) {
      if (errno == EINTR) continue;
      return false;
    }
    filled += static_cast<std::size_t>(got);
  }
  return true;
}

bool isWellFormed(const AuthorizationRights* rights) {
  if (!rights || (rights->count > 0 && !rights->items)) return false;
  for (std::uint32_t i = 0; i < rights->count; ++i) {
    if (!rights->items[i].name || !*rights->items[i].name) return false;
  }
  return true;
}

// Whether a form's record, read once per request and only when needed, lists `right`.
class RecordedRights {
 public:
  // `form` null: there is no record to read.
  RecordedRights(AuthorizationGrants& grants, const AuthorizationExternalForm* form)
      : grants_(grants), form_(form) {}

  bool contains(std::string_view right) {
    if (!form_) return false;
    if (!read_) {
      rights_ = grants_.lookup(*form_).value_or(std::vector<std::string>());
      read_ = true;
    }
    return std::find(rights_.begin(), rights_.end(), right) != rights_.end();
  }

 private:
  AuthorizationGrants& grants_;
  const AuthorizationExternalForm* form_;
  bool read_ = false;
  std::vector<std::string> rights_;
};

}  // namespace

LinuxAuthorizationServices::LinuxAuthorizationServices(AuthorizationServicesPaths paths)
    : paths_(std::move(paths)) {}

OSStatus LinuxAuthorizationServices::AuthorizationCreate(const AuthorizationRights* rights,
                                                         const AuthorizationEnvironment* environment,
                                                         AuthorizationFlags flags,
                                                         AuthorizationRef* authorization) {
  if (!authorization) return errAuthorizationInvalidPointer;
  auto created = std::make_unique<LinuxAuthorization>();
  // As on the platform, rights given here are obtained only when extending is asked for.
  if (rights && rights->count > 0 && (flags & kAuthorizationFlagExtendRights)) {
    OSStatus status = AuthorizationCopyRights(created.get(), rights, environment, flags);
    if (status != errAuthorizationSuccess) return status;
  }
  *authorization = created.release();
  return errAuthorizationSuccess;
}

OSStatus LinuxAuthorizationServices::AuthorizationCopyRights(AuthorizationRef authorization,
                                                             const AuthorizationRights* rights,
                                                             const AuthorizationEnvironment*,
                                                             AuthorizationFlags flags) {
  LinuxAuthorization* held = authorizationOf(authorization);
  if (!held) return errAuthorizationInvalidRef;
  if (!isWellFormed(rights)) return errAuthorizationInvalidSet;
  AuthorizationGrants grants(paths_.grantsDirectory);
  // A form made here has a record of what this handle holds anyway.
  RecordedRights recorded(grants, held->externalForm && !held->madeExternalForm
                                      ? &*held->externalForm
                                      : nullptr);
  std::optional<RightsDatabase> database;
  bool grantedNow = false;
  for (std::uint32_t i = 0; i < rights->count; ++i) {
    const std::string_view right = rights->items[i].name;
    if (held->holdsInProcess(right) || recorded.contains(right)) continue;
    if (!(flags & kAuthorizationFlagExtendRights)) return errAuthorizationDenied;
    if (!database) {
      // Read per request, so a changed rule counts from the next request on.
      database.emplace();
      OSStatus status = RightsDatabase::load(paths_.database, &*database);
      if (status != errAuthorizationSuccess) return status;
    }
    OSStatus status = database->evaluate(right, UserIds::current().effectiveUserId(),
                                         (flags & kAuthorizationFlagInteractionAllowed) != 0);
    if (status != errAuthorizationSuccess) return status;
    held->granted.emplace_back(right);
    grantedNow = true;
  }
  // Another process holding the form learns of the new rights through its record.
  if (grantedNow && held->madeExternalForm) {
    return grants.record(*held->externalForm, held->granted);
  }
  return errAuthorizationSuccess;
}

OSStatus LinuxAuthorizationServices::AuthorizationMakeExternalForm(
    AuthorizationRef authorization, AuthorizationExternalForm* externalForm) {
  LinuxAuthorization* held = authorizationOf(authorization);
  if (!held) return errAuthorizationInvalidRef;
  if (!externalForm) return errAuthorizationInvalidPointer;
  if (!held->externalForm) {
    AuthorizationExternalForm form;
    if (!fillRandom(form)) return errAuthorizationInternal;
    OSStatus status = AuthorizationGrants(paths_.grantsDirectory).record(form, held->granted);
    if (status != errAuthorizationSuccess) return status;
    held->externalForm = form;
    held->madeExternalForm = true;
  }
  *externalForm = *held->externalForm;
  return errAuthorizationSuccess;
}

OSStatus LinuxAuthorizationServices::AuthorizationCreateFromExternalForm(
    const AuthorizationExternalForm* externalForm, AuthorizationRef* authorization) {
  if (!externalForm || !authorization) return errAuthorizationInvalidPointer;
  if (!AuthorizationGrants(paths_.grantsDirectory).lookup(*externalForm)) {
    return errAuthorizationInvalidRef;
  }
  auto created = std::make_unique<LinuxAuthorization>();
  created->externalForm = *externalForm;
  *authorization = created.release();
  return errAuthorizationSuccess;
}

OSStatus LinuxAuthorizationServices::AuthorizationRightSet(AuthorizationRef authorization,
                                                           const char* rightName,
                                                           const Value& rightDefinition) {
  if (!authorizationOf(authorization)) return errAuthorizationInvalidRef;
  if (!rightName) return errAuthorizationInvalidPointer;
  if (!*rightName || (!rightDefinition.asString() && !rightDefinition.asDictionary())) {
    return errAuthorizationInvalidSet;
  }
  if (UserIds::current().effectiveUserId() != 0) return errAuthorizationDenied;
  return RightsDatabase::setDefinition(paths_.database, rightName, rightDefinition);
}

OSStatus LinuxAuthorizationServices::AuthorizationFree(AuthorizationRef authorization,
                                                       AuthorizationFlags flags) {
  std::unique_ptr<LinuxAuthorization> held(authorizationOf(authorization));
  if (!held) return errAuthorizationInvalidRef;
  if ((flags & kAuthorizationFlagDestroyRights) && held->externalForm) {
    AuthorizationGrants(paths_.grantsDirectory).revoke(*held->externalForm);
  }
  return errAuthorizationSuccess;
}

}  // namespace platform
