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

platform::Value enabled_payload(bool enabled) {
  return platform::Value::dictionary({{"Enabled", platform::Value::boolean(enabled)}});
}

int print_enabled(QHVHelperMessage message) {
  const platform::Value reply = send_message_payload_error(message, {}, nullptr);
  if (!reply) return 1;
  std::puts(reply_value(reply, "Enabled").boolValue() ? "yes" : "no");
  return 0;
}

int yes_no_setting(int argc, char** argv, QHVHelperMessage read, QHVHelperMessage set) {
  if (argc < 2) return print_enabled(read);
  return exit_status(send_message_payload_error(set, enabled_payload(platform::stringBoolValue(argv[1])), nullptr));
}
