// The XPC dictionaries a reply travels in: "payload" holding the reply value as
// a binary property list, or "error" holding a keyed archive of one error.
#pragma once

#include <optional>

#include "platform/plist/value.h"

namespace dev_scheduler {

inline constexpr const char* kReplyPayloadKey = "payload";
inline constexpr const char* kReplyErrorKey = "error";

// {"payload": `value` as a binary property list}; nullopt with the serializer's
// error when `value` is no property list.
std::optional<platform::Dictionary> payloadReply(const platform::Value& value, platform::ErrorRef* error);

// {"error": the archive of `error`}; nullopt with the archiver's error.
std::optional<platform::Dictionary> errorReply(const platform::ErrorRef& error, platform::ErrorRef* failure);

}  // namespace dev_scheduler
