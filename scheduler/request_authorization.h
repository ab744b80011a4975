// Whether a request may be carried out: the rights its message needs, as the
// tool's own catalogue names them, and the check of its "auth" against exactly
// those rights, as a receiving side makes it.
#pragma once

#include <cstdint>
#include <memory>

#include "messaging/helper_messager.h"
#include "platform/value.h"

namespace dev_scheduler {

enum class AuthorizationCheck : std::uint8_t {
  NotNeeded,  // the message needs no rights
  Missing,    // it needs rights and "auth" is absent
  Valid,      // "auth" holds one of the rights
  Invalid,    // "auth" is not data, names no authorization, or holds none of the rights
};

class RequestAuthorization {
 public:
  RequestAuthorization();

  // The rights of `message`, alternatives in order; empty when it needs none.
  platform::Array rightsForMessage(QHVHelperMessage message) const;

  // Checks `auth`, the request's entry (absent when it carried none), for
  // `message`. An invalid one comes with the validation's error in `whyNot`.
  AuthorizationCheck check(QHVHelperMessage message, const platform::Value& auth, platform::ErrorRef* whyNot) const;

 private:
  std::shared_ptr<QHVHelperMessager> catalogue_;
  std::shared_ptr<LKSMessagerClient> asker_;  // what the catalogue is asked as; never sends
};

}  // namespace dev_scheduler
