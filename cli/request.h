// The one way commands talk to the scheduler service: one message, its
// payload, the reply or the failure.
#pragma once

#include "messaging/helper_messages.h"
#include "platform/plist/value.h"

// Sends `message` with `payload` (absent: none) and returns the reply, or none
// with the error through `error`. Prints nothing, except that a real user other
// than root about to send a message that needs rights gets "This command
// requires root privileges." on standard error and the process ends at once
// with exit status 1, nothing sent.
platform::Value _send_message_payload_error(QHVHelperMessage message, const platform::Value& payload,
                                            platform::ErrorRef* error);

// What ending the process with `status` means for the root stop above: exit(3),
// unless a test installed another; null restores exit(3). An installed one
// may return, and then _send_message_payload_error returns none without an
// error, nothing sent; what its caller does after that never happens in a run
// of the tool.
void set_process_end_for_testing(void (*end)(int status));

// _send_message_payload_error, and on failure the whole error chain's text on
// one line: on standard error for an error-level failure, on standard output
// for the others.
platform::Value send_message_payload_error(QHVHelperMessage message, const platform::Value& payload,
                                           platform::ErrorRef* error);
