#include "cli/replies.h"

#include <cstdio>

#include "cli/request.h"
#include "platform/foundation/strings.h"

int exit_status(const platform::Value& reply) { return reply ? 0 : 1; }

const platform::Value& reply_value(const platform::Value& reply, std::string_view key) {
  static const platform::Value absent;
  const platform::Dictionary* dictionary = reply.asDictionary();
  return dictionary ? dictionary->get(key) : absent;
}

platform::Value enabled_payload(const char* value) {
  return platform::Value::dictionary({{"Enabled", platform::Value::boolean(platform::stringBoolValue(value))}});
}

int print_enabled(QHVHelperMessage message) {
  const platform::Value reply = send_message_payload_error(message, {}, nullptr);
  if (!reply) return 1;
  std::puts(reply_value(reply, "Enabled").boolValue() ? "yes" : "no");
  return 0;
}
