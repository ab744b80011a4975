#include "cli/request.h"

#include <cstdio>
#include <cstdlib>

#include "errors/lks_error.h"
#include "log/log.h"
#include "messaging/helper_messager.h"
#include "platform/foundation/user_ids.h"

namespace {

// exit, not _exit: what the command printed before stays printed.
[[noreturn]] void exit_process(int status) { std::exit(status); }

void (*_process_end)(int status) = exit_process;

}  // namespace

platform::Value _send_message_payload_error(QHVHelperMessage message, const platform::Value& payload,
                                            platform::ErrorRef* error) {
  QHVHelperMessager& messager = QHVHelperMessager::sharedMessager();
  if (messager.requiresAuthorizationForMessage(message) && platform::UserIds::current().realUserId() != 0) {
    std::fputs("This command requires root privileges.\n", stderr);
    _process_end(1);
    return {};
  }
  return messager.sendSynchronousMessage(message, payload, error);
}

void set_process_end_for_testing(void (*end)(int status)) { _process_end = end ? end : exit_process; }

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
