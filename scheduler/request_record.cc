#include "scheduler/request_record.h"

#include <cerrno>

#include "scheduler/state_files.h"

namespace dev_scheduler {
namespace {

platform::Dictionary recordOf(const ReceivedRequest& request) {
  using platform::Value;
  platform::Dictionary record;
  if (request.message) record.set(kRecordMessageKey, Value::integer(*request.message));
  if (request.payload) record.set(kRecordPayloadKey, request.payload);
  if (request.payloadUnreadable) record.set(kRecordPayloadUnreadableKey, Value::boolean(true));
  record.set(kRecordAuthPresentKey, Value::boolean(request.authPresent));
  if (request.authValid) record.set(kRecordAuthValidKey, Value::boolean(*request.authValid));
  record.set(kRecordPeerUIDKey, Value::integer(request.peer.uid));
  record.set(kRecordPeerPIDKey, Value::integer(request.peer.pid));
  return record;
}

// The same file, unchanged: every replacement makes a new one.
bool sameFile(const struct stat& a, const struct stat& b) {
  return a.st_dev == b.st_dev && a.st_ino == b.st_ino && a.st_size == b.st_size &&
         a.st_mtim.tv_sec == b.st_mtim.tv_sec && a.st_mtim.tv_nsec == b.st_mtim.tv_nsec;
}

}  // namespace

std::optional<platform::Array> RequestRecord::currentRecords(platform::ErrorRef* error) {
  struct stat now {};
  const bool exists = ::stat(path_.c_str(), &now) == 0;
  if (exists && written_ && sameFile(now, *written_)) return records_;
  bool missing = false;
  const platform::Value stored = readStateFile(path_, &missing, error);
  if (missing) return platform::Array();
  if (!stored) return std::nullopt;
  if (!stored.asArray()) {
    if (error) *error = fileError("no array in", path_, EINVAL);
    return std::nullopt;
  }
  return *stored.asArray();
}

bool RequestRecord::append(const ReceivedRequest& request, platform::ErrorRef* error) {
  std::optional<platform::Array> records = currentRecords(error);
  if (!records) return false;
  records->push_back(platform::Value::dictionary(recordOf(request)));
  if (!writeStateFile(path_, platform::Value::array(*records), error)) return false;
  records_ = std::move(*records);
  struct stat written {};
  written_ = ::stat(path_.c_str(), &written) == 0 ? std::optional<struct stat>(written) : std::nullopt;
  return true;
}

}  // namespace dev_scheduler
