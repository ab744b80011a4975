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

// The requests file at one path. A record is added in place: one write of its
// text and the array's closing over the old closing, so that appending costs
// the record alone however long the file is. Only when someone else changed or
// removed the file since is it read and replaced as a whole. A reader in the
// middle of an in-place write may find the file cut short; the scheduler
// writes the record before it replies, so a client that has its reply reads
// it whole. Not synchronized.
class RequestRecord {
 public:
  explicit RequestRecord(std::string path) : path_(std::move(path)) {}
  ~RequestRecord();
  RequestRecord(const RequestRecord&) = delete;
  RequestRecord& operator=(const RequestRecord&) = delete;

  // Appends the record of `request`; the file is made when missing. False with
  // an error when it cannot be read or written, or holds something else than
  // an array.
  bool append(const ReceivedRequest& request, platform::ErrorRef* error);

 private:
  // Writes `item` (a record's text with the closing after it) in place when
  // the file is still the one last written: true then, with an error when the
  // write failed. False when the file changed, and nothing was written.
  bool appendedInPlace(const std::string& item, platform::ErrorRef* error);
  // Replaces the file with its records read anew and `record` after them.
  bool rewritten(const platform::Value& record, platform::ErrorRef* error);
  void forgetFile();

  std::string path_;
  int fd_ = -1;                         // open on the file last written
  std::optional<struct stat> written_;  // that file as last written
};

}  // namespace dev_scheduler
