// The record of requests received, kept in requests.plist (see state_files.h)
// so that tests can see what reached the scheduler, in order.
#pragma once

#include <cstdint>
#include <optional>
#include <string>

#include "platform/value.h"
#include "platform/xpc_listener.h"

namespace dev_scheduler {

// What the scheduler learnt of one request before answering it.
struct ReceivedRequest {
  std::optional<std::int64_t> message;  // nullopt when "message" is absent or no integer
  platform::Value payload;              // decoded; absent when none came or it did not parse
  bool payloadUnreadable = false;       // a "payload" came that did not parse
  bool authPresent = false;
  std::optional<bool> authValid;  // checked only when the message needs rights and "auth" came
  platform::XPCPeerCredentials peer;
};

// Appends the record of `request` to the requests file at `path`, which is
// made when missing. False with an error when it cannot be read or written, or
// holds something else than an array.
bool recordRequest(const std::string& path, const ReceivedRequest& request, platform::ErrorRef* error);

}  // namespace dev_scheduler
