// LKSError: the one factory of the system's errors. Making an error logs its
// whole chain at once, at a level chosen from its domain and code; the same
// class turns an error, or a chain of them, into text for people.
#pragma once

#include <cstddef>
#include <cstdint>
#include <string>

#include "errors/error_domains.h"
#include "platform/plist/value.h"

// The most errors of one chain that are walked. Errors are immutable, so a chain
// cannot loop; but one rebuilt from a reply is as long as its sender made it,
// and the bound keeps every walk, and the line it may print, short.
inline constexpr std::size_t LKSErrorChainLimit = 64;

class LKSError {
 public:
  LKSError() = delete;

  // A new error with exactly these fields, already written to the system log and
  // to the log file at logLevelForError's level. Never null.
  static platform::ErrorRef errorWithDomain(std::string domain, std::int64_t code,
                                            platform::Dictionary userInfo);

  // The log level of an error: LKSLogLevelDefault, LKSLogLevelInfo or
  // LKSLogLevelError. Codes are compared unsigned, so a negative code counts as
  // a very large one.
  static std::uint8_t logLevelForError(const platform::ErrorRef& error);

  // One line: the text of the error and of each of its causes, outermost first,
  // joined by one space; at most LKSErrorChainLimit texts. Empty for a null error.
  static std::string localizedDescriptionForError(const platform::ErrorRef& error);

  // The text of this error alone, without its causes: the product's sentence for
  // a known domain and code, otherwise the platform's localizedDescription.
  // Empty for a null error.
  static std::string _localizedDescriptionForError(const platform::ErrorRef& error);
};
