// Foundation's string helpers that the tool relies on: UTF-8 validity, the
// yes/no truth test, path standardization and the home directory.
//
// platform/foundation holds the rest of what the tool takes from Foundation and
// CoreFoundation, and the few system services beside them (IOKit's power
// assertions, the C library's program name and user ids, file locks); each
// header says what it stands for and keeps only what the tool uses of it.
#pragma once

#include <string>
#include <string_view>

namespace platform {

// True when `text` is well-formed UTF-8 (no surrogates, no overlong forms).
bool isValidUtf8(std::string_view text);

// NSString's boolValue: true when, after leading white space, an optional "+" or
// "-" and any leading zeros, the first character is Y, y, T, t or 1-9; whatever
// follows is ignored. Everything else is false, the empty text and invalid UTF-8
// included. White space is the platform's set: ASCII space, tab, LF, VT, FF, CR,
// and the Unicode white-space characters (NEL, no-break space, U+1680,
// U+2000-U+200A, line and paragraph separators, U+202F, U+205F, U+3000).
bool stringBoolValue(std::string_view utf8);

// NSString's stringByStandardizingPath: expands an initial "~" or "~user" (left
// as is when the user is unknown), removes "." components, empty components
// from repeated separators and a trailing separator. In an absolute path ".."
// removes the component before it (never above "/"); in a relative path ".."
// components are kept, since there is nothing to resolve them against.
std::string stringByStandardizingPath(std::string_view path);

// NSHomeDirectory: $HOME when it is set and not empty, otherwise the password
// database's home of the effective user; "/" when neither gives one.
std::string homeDirectory();

}  // namespace platform
