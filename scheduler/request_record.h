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

// The requests file at one path. The bytes last written are kept, so that
// appending neither reads the whole file again nor writes every record out
// anew, unless someone else changed or removed it meanwhile: the new record's
// text goes in before the closing of the array. Not synchronized.
class RequestRecord {
 public:
  explicit RequestRecord(std::string path) : path_(std::move(path)) {}

  // Appends the record of `request`; the file is made when missing. False with
  // an error when it cannot be read or written, or holds something else than
  // an array.
  bool append(const ReceivedRequest& request, platform::ErrorRef* error);

 private:
  // The file's next contents when it is still the file last written and holds
  // at least one record: `record` spliced in; otherwise nullopt.
  std::optional<platform::Bytes> appendedToWritten(const platform::Value& record) const;
  // The file's next contents from its records read anew.
  std::optional<platform::Bytes> appendedToStored(const platform::Value& record, platform::ErrorRef* error) const;

  std::string path_;
  platform::Bytes bytes_;               // the contents last written
  std::optional<struct stat> written_;  // the file as last written
};

}  // namespace dev_scheduler
