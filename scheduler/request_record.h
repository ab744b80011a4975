// The record of requests received, kept in requests.plist (see state_files.h)
// so that tests can see what reached the scheduler, in order.
#pragma once

#include <sys/stat.h>

#include <cstdint>
#include <optional>
#include <string>

#include "platform/plist/value.h"
#include "platform/xpc/listener.h"

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

// The requests file at one path. The records last written are kept, so that
// appending does not read the whole file again unless someone else changed or
// removed it meanwhile. Not synchronized.
class RequestRecord {
 public:
  explicit RequestRecord(std::string path) : path_(std::move(path)) {}

  // Appends the record of `request`; the file is made when missing. False with
  // an error when it cannot be read or written, or holds something else than
  // an array.
  bool append(const ReceivedRequest& request, platform::ErrorRef* error);

 private:
  // The records the file holds now: those kept, when it is still the file last written.
  std::optional<platform::Array> currentRecords(platform::ErrorRef* error);

  std::string path_;
  platform::Array records_;
  std::optional<struct stat> written_;  // the file as last written
};

}  // namespace dev_scheduler
