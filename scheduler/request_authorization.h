// Whether a request may be carried out: the check of its "auth" against
// exactly the rights its message needs in the tool's own catalogue, as a
// receiving side makes it.
#pragma once

#include <cstdint>

#include "messaging/helper_messages.h"
#include "platform/plist/value.h"

namespace dev_scheduler {

enum class AuthorizationCheck : std::uint8_t {
  NotNeeded,  // the message needs no rights
  Missing,    // it needs rights and "auth" is absent
  Valid,      // "auth" holds one of the rights
  Invalid,    // "auth" is not data, names no authorization, or holds none of the rights
};

// Checks `auth`, the request's entry (absent when it carried none), for
// `message`. An invalid one comes with the validation's error in `whyNot`.
AuthorizationCheck checkAuthorization(QHVHelperMessage message, const platform::Value& auth,
                                      platform::ErrorRef* whyNot);

}  // namespace dev_scheduler
