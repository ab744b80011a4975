// The development scheduler's state directory: the names of its files, the
// layout of those that tests read or write, and how a file is read and
// replaced. The scheduler and the test harness share this header, so both
// sides of the contract are the same text.
//
//   settings.plist   XML dictionary: the settings, created with defaults when missing
//   activity.plist   XML dictionary: {"backups" | "snapshots" | "updates": {"LastRun",
//                    "LastTry" dates; backups also "RunningUntil" while one runs}}
//   update.plist     {"HumanVersion": string, "Version": integer}: the update on
//                    offer; no file means the installed version is the latest
//   faults.plist     {"<message number>": fault}: read at every request
//   requests.plist   XML array: one record per request received, oldest first
//   scheduler.pid    the serving process's id; locked while it serves
//   scheduler.log    what a scheduler started in the background reports
#pragma once

#include <sys/stat.h>

#include <cerrno>
#include <cstring>
#include <string>

#include "platform/foundation/protected_file.h"
#include "platform/plist/property_list.h"
#include "platform/plist/value.h"

namespace dev_scheduler {

inline constexpr const char* kSettingsFile = "settings.plist";
inline constexpr const char* kActivityFile = "activity.plist";
inline constexpr const char* kUpdateFile = "update.plist";
inline constexpr const char* kFaultsFile = "faults.plist";
inline constexpr const char* kRequestsFile = "requests.plist";
inline constexpr const char* kPidFile = "scheduler.pid";
inline constexpr const char* kLogFile = "scheduler.log";

// A record of requests.plist.
inline constexpr const char* kRecordMessageKey = "Message";                      // integer; absent when the request named none
inline constexpr const char* kRecordPayloadKey = "Payload";                      // the decoded payload; absent when none came
inline constexpr const char* kRecordPayloadUnreadableKey = "PayloadUnreadable";  // true when a payload came that did not parse
inline constexpr const char* kRecordAuthPresentKey = "AuthPresent";              // boolean
inline constexpr const char* kRecordAuthValidKey = "AuthValid";  // boolean; only when the message needs rights and "auth" came
inline constexpr const char* kRecordPeerUIDKey = "PeerUID";      // integer
inline constexpr const char* kRecordPeerPIDKey = "PeerPID";      // integer

// An update on offer, in update.plist and in the reply to an update check.
inline constexpr const char* kUpdateHumanVersionKey = "HumanVersion";
inline constexpr const char* kUpdateVersionKey = "Version";

// A fault of faults.plist: {"Kind": one of the kinds below, and what that kind needs}.
// A fault replaces the whole answer to its message: the request is recorded but
// neither checked nor carried out.
inline constexpr const char* kFaultKindKey = "Kind";
inline constexpr const char* kFaultReplyPayload = "reply-payload";            // "Payload": any property list, sent as the reply
inline constexpr const char* kFaultReplyError = "reply-error";                // "Domain", "Code", "UserInfo"?, "Underlying"? (the same, nested)
inline constexpr const char* kFaultUnparsablePayload = "unparsable-payload";  // a "payload" that is no property list
inline constexpr const char* kFaultUnarchivableError = "unarchivable-error";  // an "error" archiving a dictionary, not an error
inline constexpr const char* kFaultGarbageError = "garbage-error";            // an "error" that is no archive at all
inline constexpr const char* kFaultClose = "close";                          // the connection closed, no reply
inline constexpr const char* kFaultBrokenFrame = "broken-frame";              // a reply frame with a wrong magic
inline constexpr const char* kFaultPayloadKey = "Payload";
inline constexpr const char* kFaultDomainKey = "Domain";
inline constexpr const char* kFaultCodeKey = "Code";
inline constexpr const char* kFaultUserInfoKey = "UserInfo";
inline constexpr const char* kFaultUnderlyingKey = "Underlying";

// The largest state file read: far more than a long run records.
inline constexpr std::size_t kMaxStateFileSize = 64 * 1024 * 1024;

// An NSPOSIXErrorDomain error for `errnoValue`, saying what failed on `path`.
inline platform::ErrorRef fileError(const std::string& what, const std::string& path, int errnoValue) {
  platform::Dictionary userInfo;
  userInfo.set(platform::NSLocalizedDescriptionKey,
               platform::Value::string(what + " " + path + ": " + std::strerror(errnoValue)));
  return platform::Error::make(platform::NSPOSIXErrorDomain, errnoValue, std::move(userInfo));
}

// The property list in the file at `path`, in any format. An absent value when
// there is no file (then *missing, when given, is set), or with an error when
// it cannot be read or does not parse.
inline platform::Value readStateFile(const std::string& path, bool* missing, platform::ErrorRef* error) {
  if (missing) *missing = false;
  platform::Bytes contents;
  if (const int failure = platform::readProtectedFile(path, kMaxStateFileSize, &contents); failure != 0) {
    if (failure == ENOENT && missing) {
      *missing = true;
    } else if (error) {
      *error = fileError("cannot read", path, failure);
    }
    return {};
  }
  return platform::propertyListWithData(contents, nullptr, error);
}

// True when `a` and `b` describe the same file, unchanged between them: a
// replacement is another file, and every write changes the times.
inline bool sameFileUnchanged(const struct stat& a, const struct stat& b) {
  return a.st_dev == b.st_dev && a.st_ino == b.st_ino && a.st_size == b.st_size &&
         a.st_mtim.tv_sec == b.st_mtim.tv_sec && a.st_mtim.tv_nsec == b.st_mtim.tv_nsec &&
         a.st_ctim.tv_sec == b.st_ctim.tv_sec && a.st_ctim.tv_nsec == b.st_ctim.tv_nsec;
}

// Replaces the file at `path` (mode 0644) with `contents`, in one step, so
// that a reader sees the old contents or the new. False with an error when the
// file cannot be written.
inline bool writeStateFileContents(const std::string& path, const platform::Bytes& contents,
                                   platform::ErrorRef* error) {
  if (const int failure = platform::replaceFileAtomically(path, contents, 0644, platform::Durability::RunTimeOnly);
      failure != 0) {
    if (error) *error = fileError("cannot write", path, failure);
    return false;
  }
  return true;
}

// Replaces the file at `path` with `plist` as an XML property list, as
// writeStateFileContents does. False with an error when `plist` is no property
// list or the file cannot be written.
inline bool writeStateFile(const std::string& path, const platform::Value& plist, platform::ErrorRef* error) {
  const std::optional<platform::Bytes> data =
      platform::dataWithPropertyList(plist, platform::PropertyListFormat::XML, error);
  return data && writeStateFileContents(path, *data, error);
}

}  // namespace dev_scheduler
