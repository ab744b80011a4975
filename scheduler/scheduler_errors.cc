#include "scheduler/scheduler_errors.h"

#include "errors/lks_error.h"

namespace dev_scheduler {
namespace {

platform::ErrorRef settingsError(std::int64_t code, const std::string& key) {
  return LKSError::errorWithDomain(QHVErrorDomain, code, {{LKSErrorKeyKey, platform::Value::string(key)}});
}

}  // namespace

platform::ErrorRef backupRunningError() { return LKSError::errorWithDomain(QHVErrorDomain, QHVErrorBackupRunning, {}); }

platform::ErrorRef missingValueError(const std::string& key) { return settingsError(QHVErrorMissingValue, key); }

platform::ErrorRef wrongTypeError(const std::string& key, const std::string& expected) {
  return LKSError::errorWithDomain(QHVErrorDomain, QHVErrorWrongType,
                                   {{LKSErrorKeyKey, platform::Value::string(key)},
                                    {LKSErrorExpectedKey, platform::Value::string(expected)}});
}

platform::ErrorRef unknownKeyError(const std::string& key) { return settingsError(QHVErrorUnknownKey, key); }

platform::ErrorRef alreadyUpToDateError() {
  return LKSError::errorWithDomain(LKSUpdaterErrorDomain, LKSUpdaterErrorAlreadyUpToDate, {});
}

platform::ErrorRef messagerError(std::int64_t code, std::optional<std::int64_t> message) {
  platform::Dictionary userInfo;
  if (message) userInfo.set(LKSErrorMessageKey, platform::Value::integer(*message));
  return LKSError::errorWithDomain(LKSMessagerErrorDomain, code, std::move(userInfo));
}

platform::ErrorRef serializeReplyError(std::int64_t message, const platform::Value& reply) {
  return LKSError::errorWithDomain(LKSMessagerErrorDomain, LKSMessagerErrorSerializeReply,
                                   {{LKSErrorMessageKey, platform::Value::integer(message)},
                                    {LKSErrorReplyKey, platform::Value::string(reply.description())}});
}

}  // namespace dev_scheduler
