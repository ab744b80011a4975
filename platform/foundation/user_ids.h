// The process's real and effective user ids, behind an interface so that tests
// can act as root or as an ordinary user without changing ids.
#pragma once

#include <sys/types.h>

namespace platform {

class UserIds {
 public:
  virtual ~UserIds() = default;

  // getuid(): the user who ran the process.
  virtual uid_t realUserId() const = 0;
  // geteuid(): the user whose rights the process has.
  virtual uid_t effectiveUserId() const = 0;

  // The process-wide instance: the machine's, or the one installed by setForTesting.
  static const UserIds& current();
  // Makes current() return `ids` (owned by the caller), nullptr the machine's; returns the one it replaces.
  static const UserIds* setForTesting(const UserIds* ids);
};

// User ids with fixed values, for tests.
class FixedUserIds : public UserIds {
 public:
  FixedUserIds(uid_t real, uid_t effective) : real_(real), effective_(effective) {}
  uid_t realUserId() const override { return real_; }
  uid_t effectiveUserId() const override { return effective_; }

 private:
  uid_t real_;
  uid_t effective_;
};

}  // namespace platform
