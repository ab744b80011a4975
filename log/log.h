// The process-wide log facility. Every entry goes to the system log (the unified
// log when the system has it, otherwise the legacy log) and to the product's own
// log file "<category>.log", which rotates at 10,000,000 bytes into
// "<category>.0.log" to "<category>.3.log", newest first.
//
// Formats are platform::stringWithFormat formats (printf conversions plus "%@").
// The facility never reports a failure to its callers; its own failures go to
// the unified log's default handle at type error.
#pragma once

#include <cstdint>
#include <span>
#include <string>

#include "platform/foundation/format.h"
#include "platform/system_log/unified_log.h"

// Log levels: the unified log's entry types.
inline constexpr std::uint8_t LKSLogLevelDefault = 0;
inline constexpr std::uint8_t LKSLogLevelInfo = 1;
inline constexpr std::uint8_t LKSLogLevelDebug = 2;
inline constexpr std::uint8_t LKSLogLevelError = 16;

// True when entries go to the unified log; set by LKSLogInit.
extern bool LKSLOG_UNIFIED;
// The handle for (subsystem, category); set by LKSLogInit when LKSLOG_UNIFIED.
extern platform::UnifiedLog* lks_log;

// Sets the facility up: chooses the system log, opens the log file in
// LKSLogGetParentPath() (creating the directory). Call once, first in main,
// before any other thread runs. Failures are logged, never returned.
void LKSLogInit(const char* subsystem, const char* category);

// The log directory: "/Library/Logs/Quillhaven" when the effective or the real
// user is root, otherwise "Library/Logs/Quillhaven" under the home directory.
std::string LKSLogGetParentPath();

// Returns once every legacy-log entry handed over before the call has been sent;
// at once when no legacy entry was ever sent.
void _LKSLogSync();

// The non-template bodies of the statements below.
namespace lks_log_internal {
void logStatement(std::uint8_t level, const char* format, std::span<const platform::FormatArg> args);
void appendToFile(std::uint8_t level, const char* format, std::span<const platform::FormatArg> args);
void sendToLegacyLog(std::uint8_t level, const char* format,
                     std::span<const platform::FormatArg> args);

// Packs the arguments once and hands them to `body`.
using Body = void (*)(std::uint8_t, const char*, std::span<const platform::FormatArg>);
template <typename... Args>
void withPackedArgs(Body body, std::uint8_t level, const char* format, const Args&... args) {
  const platform::FormatArg packed[] = {platform::FormatArg(args)..., platform::FormatArg(0)};
  body(level, format, std::span<const platform::FormatArg>(packed, sizeof...(Args)));
}
}  // namespace lks_log_internal

// The log statement: one unified-log entry when LKSLOG_UNIFIED, otherwise one
// legacy-log entry unless the level is debug; and always one log-file line.
template <typename... Args>
void LKSLog(std::uint8_t level, const char* format, const Args&... args) {
  lks_log_internal::withPackedArgs(&lks_log_internal::logStatement, level, format, args...);
}

// Appends one line "<date> <category>[<pid>] <message>" to the log file. Every
// level is written. Nothing is written before LKSLogInit or after the file failed.
template <typename... Args>
void LKSLogWithLevel2(std::uint8_t level, const char* format, const Args&... args) {
  lks_log_internal::withPackedArgs(&lks_log_internal::appendToFile, level, format, args...);
}

// Sends one entry to the legacy log ("Level" "Error" for level 16, "Warning"
// otherwise) and returns once it was handed over. Dropped before LKSLogInit.
template <typename... Args>
void _LKSLog(std::uint8_t level, const char* format, const Args&... args) {
  lks_log_internal::withPackedArgs(&lks_log_internal::sendToLegacyLog, level, format, args...);
}
