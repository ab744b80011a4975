#include "scheduler/reply_encoding.h"

#include "platform/plist/keyed_archive.h"
#include "platform/plist/property_list.h"

namespace dev_scheduler {

std::optional<platform::Dictionary> payloadReply(const platform::Value& value, platform::ErrorRef* error) {
  std::optional<platform::Bytes> data = platform::dataWithPropertyList(value, platform::PropertyListFormat::Binary, error);
  if (!data) return std::nullopt;
  return platform::Dictionary{{kReplyPayloadKey, platform::Value::data(std::move(*data))}};
}

std::optional<platform::Dictionary> errorReply(const platform::ErrorRef& error, platform::ErrorRef* failure) {
  std::optional<platform::Bytes> archive = platform::archivedDataWithRootError(error, failure);
  if (!archive) return std::nullopt;
  return platform::Dictionary{{kReplyErrorKey, platform::Value::data(std::move(*archive))}};
}

}  // namespace dev_scheduler
