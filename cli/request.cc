#include "cli/request.h"

#include <cstdio>
#include <cstdlib>

#include "errors/lks_error.h"
#include "log/log.h"
#include "messaging/helper_messager.h"
#include "platform/user_ids.h"

platform::Value _send_message_payload_error(QHVHelperMessage message, const platform::Value& payload,
                                            platform::ErrorRef* error) {
  QHVHelperMessager& messager = QHVHelperMessager::sharedMessager();
  if (messager.requiresAuthorizationForMessage(message) && platform::UserIds::current().realUserId() != 0) {
    std::fputs("This command requires root privileges.\n", stderr);
    // exit, not _exit: what the command printed before stays printed.
    std::exit(1);
  }
  return messager.sendSynchronousMessage(message, payload, error);
}

platform::Value send_message_payload_error(QHVHelperMessage message, const platform::Value& payload,
                                           platform::ErrorRef* error) {
  platform::ErrorRef failure;
  platform::Value reply = _send_message_payload_error(message, payload, &failure);
  if (reply) return reply;
  if (error) *error = failure;
  const bool errorLevel = LKSError::logLevelForError(failure) == LKSLogLevelError;
  std::fprintf(errorLevel ? stderr : stdout, "%s\n", LKSError::localizedDescriptionForError(failure).c_str());
  return {};
}
