#include "harness/scheduler_state.h"

#include <gtest/gtest.h>
#include <unistd.h>

#include "errors/lks_error.h"
#include "scheduler/state_files.h"

namespace testing_support {
namespace {

using platform::Value;
namespace files = dev_scheduler;

RecordedRequest recordedRequest(const platform::Dictionary& record) {
  RecordedRequest request;
  if (const platform::Integer* message = record.get(files::kRecordMessageKey).asInteger()) {
    request.message = message->int64Value();
  }
  request.payload = record.get(files::kRecordPayloadKey);
  request.authPresent = record.get(files::kRecordAuthPresentKey).boolValue();
  request.authValid = record.get(files::kRecordAuthValidKey).asBoolean();
  return request;
}

platform::Dictionary dictionaryOf(const Value& value) {
  return value.asDictionary() ? *value.asDictionary() : platform::Dictionary();
}

}  // namespace

SchedulerFault faultOfKind(const char* kind) { return {{files::kFaultKindKey, Value::string(kind)}}; }

SchedulerFault replyPayloadFault(platform::Value payload) {
  return {{files::kFaultKindKey, Value::string(files::kFaultReplyPayload)},
          {files::kFaultPayloadKey, std::move(payload)}};
}

SchedulerFault replyErrorFault(const platform::ErrorRef& error) {
  return {{files::kFaultKindKey, Value::string(files::kFaultReplyError)},
          {files::kFaultDomainKey, Value::string(error->domain)},
          {files::kFaultCodeKey, Value::integer(error->code)},
          {files::kFaultUserInfoKey, Value::dictionary(error->userInfo)}};
}

platform::Value SchedulerState::read(const char* file) const {
  bool missing = false;
  platform::ErrorRef error;
  platform::Value value = files::readStateFile(statePath(file), &missing, &error);
  if (!value && !missing) ADD_FAILURE() << LKSError::localizedDescriptionForError(error);
  return value;
}

void SchedulerState::write(const char* file, const platform::Value& value) const {
  platform::ErrorRef error;
  if (!files::writeStateFile(statePath(file), value, &error)) {
    ADD_FAILURE() << LKSError::localizedDescriptionForError(error);
  }
}

std::vector<RecordedRequest> SchedulerState::requests() const {
  std::vector<RecordedRequest> requests;
  const platform::Value records = read(files::kRequestsFile);
  if (records.asArray()) {
    for (const platform::Value& record : *records.asArray()) requests.push_back(recordedRequest(dictionaryOf(record)));
  }
  return requests;
}

void SchedulerState::clearRequests() { ::unlink(statePath(files::kRequestsFile).c_str()); }

platform::Dictionary SchedulerState::settings() const { return dictionaryOf(read(files::kSettingsFile)); }

void SchedulerState::setAvailableUpdate(const std::string& humanVersion, std::int64_t version) {
  write(files::kUpdateFile, Value::dictionary({{files::kUpdateHumanVersionKey, Value::string(humanVersion)},
                                               {files::kUpdateVersionKey, Value::integer(version)}}));
}

void SchedulerState::setFault(QHVHelperMessage message, const SchedulerFault& fault) {
  platform::Dictionary faults = dictionaryOf(read(files::kFaultsFile));
  faults.set(std::to_string(message), Value::dictionary(fault));
  write(files::kFaultsFile, Value::dictionary(std::move(faults)));
}

}  // namespace testing_support
