// Faults injected for tests: per message number, read from faults.plist at
// every request (see state_files.h for its layout), so that a test can change
// them while the scheduler serves. A fault replaces the whole answer.
#pragma once

#include <cstdint>
#include <optional>
#include <string>

#include "messaging/helper_messages.h"
#include "platform/plist/value.h"
#include "platform/xpc/listener.h"

namespace dev_scheduler {

struct Fault {
  enum class Kind : std::uint8_t {
    ReplyPayload,       // reply with `payload`
    ReplyError,         // reply with `error`
    UnparsablePayload,  // reply with a "payload" that is no property list
    UnarchivableError,  // reply with an "error" that archives a dictionary
    GarbageError,       // reply with an "error" that is no archive
    Close,              // close the connection without replying
    BrokenFrame,        // send a frame with a wrong magic, then close
  };
  Kind kind;
  platform::Value payload;
  platform::ErrorRef error;
};

// The name of `kind` in faults.plist.
const char* faultKindName(Fault::Kind kind);

// The fault set for `message` in the faults file at `path`; nullopt when there
// is no file or no entry for it. A file or an entry that cannot be understood
// counts as none, with the reason in `problem`.
std::optional<Fault> faultForMessage(const std::string& path, QHVHelperMessage message, platform::ErrorRef* problem);

// Answers request `requestId` from `peer` as `fault` says; a one-way request
// (id 0) gets no reply, but is still closed on. False with an error when the
// peer is gone.
bool injectFault(platform::XPCPeer& peer, std::uint64_t requestId, const Fault& fault, platform::ErrorRef* error);

}  // namespace dev_scheduler
