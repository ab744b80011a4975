#include "log/log_message.h"

#include <string_view>

#include "platform/foundation/strings.h"

namespace lks_log_internal {

std::optional<std::string> formatMessage(const char* format, std::span<const platform::FormatArg> args) {
  if (!format || !platform::isValidUtf8(format)) {
    reportFailure("Could not convert string '%{public}s'.", format);
    return std::nullopt;
  }
  std::optional<std::string> message = platform::stringWithFormat(format, args);
  if (!message) reportFailure("Could not format string '%{public}s'.", format);
  return message;
}

}  // namespace lks_log_internal
