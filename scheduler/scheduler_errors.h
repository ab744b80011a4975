// The errors the scheduler answers with, made through the product's error
// factory so that they carry exactly the domains, codes and user-info keys
// that its clients read.
#pragma once

#include <cstdint>
#include <optional>
#include <string>

#include "platform/plist/value.h"

namespace dev_scheduler {

// QHVErrorBackupRunning: refused while a backup runs.
platform::ErrorRef backupRunningError();

// QHVErrorMissingValue: `key` has no value.
platform::ErrorRef missingValueError(const std::string& key);

// QHVErrorWrongType: the value of `key` is not what `expected` names.
platform::ErrorRef wrongTypeError(const std::string& key, const std::string& expected);

// QHVErrorUnknownKey: `key` is not known.
platform::ErrorRef unknownKeyError(const std::string& key);

// LKSUpdaterErrorAlreadyUpToDate: the installed version is the latest one.
platform::ErrorRef alreadyUpToDateError();

// LKSMessagerErrorDomain `code` about `message`: "message" set when the
// request named one.
platform::ErrorRef messagerError(std::int64_t code, std::optional<std::int64_t> message);

// LKSMessagerErrorSerializeReply: `reply`, the answer to `message`, cannot be
// serialized; "reply" holds its description.
platform::ErrorRef serializeReplyError(std::int64_t message, const platform::Value& reply);

}  // namespace dev_scheduler
