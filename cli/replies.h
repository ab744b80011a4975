// What the command handlers share in sending a message and reading its reply.
#pragma once

#include <string_view>

#include "messaging/helper_messages.h"
#include "platform/plist/value.h"

// 0 when a reply came, 1 when none did: a changing command succeeds as soon as
// any reply comes back.
int exit_status(const platform::Value& reply);

// The entry `key` of a reply dictionary; absent when the reply is no
// dictionary or has no such entry.
const platform::Value& reply_value(const platform::Value& reply, std::string_view key);

// The payload {"Enabled": `enabled`}.
platform::Value enabled_payload(bool enabled);

// Sends the reading `message` and prints "yes" or "no" from the reply's
// "Enabled" (no when it is absent). 0, or 1 when no reply came.
int print_enabled(QHVHelperMessage message);

// A yes/no setting: without a value after argv[0], prints it from `read`
// (print_enabled); with one, sends `set` with the value read by the yes/no
// truth test, anything after it ignored. Returns the exit status.
int yes_no_setting(int argc, char** argv, QHVHelperMessage read, QHVHelperMessage set);
