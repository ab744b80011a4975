// The grants of exported authorizations: one record per external form, named by
// the form's 64 hex digits, in a directory that only root may write (0700; the
// records 0600, each replaced atomically). A record holds the form, the rights
// granted and the process that made it (boot id, pid and start time). So a form is
// accepted only when root recorded it, only for the rights recorded with it,
// and only while the process that made it lives: a form cannot be forged by a
// process that is not root, nor replayed once its maker destroyed it or exited.
#pragma once

#include <optional>
#include <string>
#include <vector>

#include "platform/authorization/services.h"

namespace platform {

class AuthorizationGrants {
 public:
  explicit AuthorizationGrants(std::string directory) : directory_(std::move(directory)) {}

  // Records `rights` as granted to `form` by this process, replacing an earlier
  // record of the same form, and removes stale records. errAuthorizationDenied
  // when this process may not write the directory, errAuthorizationInvalidSet for
  // an empty right name or one with a line break or NUL, errAuthorizationInternal
  // for any other failure.
  OSStatus record(const AuthorizationExternalForm& form, const std::vector<std::string>& rights);

  // The rights recorded for `form`; nullopt when there is no trustworthy record
  // or its maker has exited (such a record is removed when that is allowed).
  std::optional<std::vector<std::string>> lookup(const AuthorizationExternalForm& form);

  // Removes the record of `form`, so nobody can use the form any more. Only a
  // process that may write the directory (root, on a real system) can; for
  // others nothing changes.
  void revoke(const AuthorizationExternalForm& form);

  // Removes the records whose makers have exited; a process that never frees
  // its authorization leaves its record behind.
  void removeStaleRecords();

 private:
  std::string pathOf(const AuthorizationExternalForm& form) const;

  std::string directory_;
};

}  // namespace platform
