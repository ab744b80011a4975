// The rights database of the Linux Authorization Services: an XML property list
// {"rights": {right name: definition}}. A definition is a rule name, or a
// dictionary whose "rule" (or else "class") entry is a rule name. The rules:
//   "allow"               granted to every caller
//   "deny"                refused to every caller
//   "is-root"             granted to root without interaction, refused to others;
//                         the rule of every right the database does not define
//   "authenticate-admin"  needs an administrator to type credentials, even for
//                         root: refused with errAuthorizationInteractionNotAllowed
//                         when interaction is off; with interaction on it is
//                         refused (errAuthorizationDenied), since this system
//                         has no agent that could ask for credentials
// An unknown rule name, or a definition of another shape, refuses the right.
#pragma once

#include <sys/types.h>

#include <string>
#include <string_view>

#include "platform/authorization/services.h"
#include "platform/plist/value.h"

namespace platform {

class RightsDatabase {
 public:
  // Reads the database at `path` into *database. A missing file has no rules.
  // errAuthorizationInternal when the file cannot be read or trusted (see
  // readProtectedFile), is larger than 16 MiB, does not parse, or is not of the
  // shape above: a database that cannot be understood grants nothing.
  static OSStatus load(const std::string& path, RightsDatabase* database);

  // errAuthorizationSuccess when `right` is granted to a caller whose effective
  // user is `caller`; otherwise the refusal status of its rule.
  OSStatus evaluate(std::string_view right, uid_t caller, bool interactionAllowed) const;

  // Sets the definition of `right` in the database at `path`, keeping all else.
  // One writer at a time (a lock file beside the database); readers see the old
  // or the new file. errAuthorizationInternal when the database cannot be read,
  // understood or replaced, errAuthorizationDenied when its directory refuses
  // this process. Whether the caller may change rules is the caller's check.
  static OSStatus setDefinition(const std::string& path, const std::string& right,
                                const Value& definition);

 private:
  Dictionary rights_;
};

}  // namespace platform
