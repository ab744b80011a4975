// What the log sinks share: turning a statement into its message text, and
// reporting the facility's own failures.
#pragma once

#include <cstdint>
#include <optional>
#include <span>
#include <string>

#include "log/log.h"
#include "platform/foundation/format.h"
#include "platform/system_log/unified_log.h"

namespace lks_log_internal {

// Sends one of the facility's own failures to the unified log's default handle
// at type error; never to the log file.
template <typename... Args>
void reportFailure(const char* format, const Args&... args) {
  platform::os_log_with_type(platform::UnifiedLog::defaultLog(), LKSLogLevelError, format, args...);
}

// The formatted message; nullopt, with the failure reported, when the format is
// not UTF-8 or does not fit its arguments.
std::optional<std::string> formatMessage(const char* format, std::span<const platform::FormatArg> args);

}  // namespace lks_log_internal
