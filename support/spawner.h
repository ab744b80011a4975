// Running an external tool as a child process: the caller's argument vector,
// this process's environment, the terminal's streams inherited, nothing
// captured. Every way the tool can fail is an error of LKSSpawnerErrorDomain:
// LKSSpawnerErrorSpawn ("tool", "errno"), LKSSpawnerErrorExitStatus ("tool",
// "exit-status") or LKSSpawnerErrorSignal ("tool", "signal").
#pragma once

#include <functional>

#include "platform/dispatch/serial_queue.h"
#include "platform/plist/value.h"

// `argv` is a null-terminated argument vector whose first entry is both the
// absolute path of the executable (not searched for) and the tool's first argument.
using LKSToolArguments = const char* const*;

// Runs the tool and waits for it. True when it exited with status 0; false
// otherwise, with the error through `error` when given (none is made without
// it). A wait that fails for any reason but an interruption counts as a tool
// that could not be run: LKSSpawnerErrorSpawn with the wait's error number.
bool spawn_tool(LKSToolArguments argv, platform::ErrorRef* error);

// Starts the tool and returns at once. `completion` runs exactly once, on
// `queue` and never within this call, with null when the tool exited with
// status 0 and the error otherwise, a tool that could not be started included.
// `argv` must stay valid only for the duration of the call.
void spawn_tool_async(LKSToolArguments argv, platform::QueueRef queue,
                      std::function<void(platform::ErrorRef)> completion);
