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

}  // namespace

bool recordRequest(const std::string& path, const ReceivedRequest& request, platform::ErrorRef* error) {
  bool missing = false;
  const platform::Value stored = readStateFile(path, &missing, error);
  if (!missing && !stored) return false;
  const platform::Array* earlier = stored.asArray();
  if (!missing && !earlier) {
    if (error) *error = fileError("no array in", path, EINVAL);
    return false;
  }
  platform::Array records = earlier ? *earlier : platform::Array();
  records.push_back(platform::Value::dictionary(recordOf(request)));
  return writeStateFile(path, platform::Value::array(std::move(records)), error);
}

}  // namespace dev_scheduler
