// Writing of XML property lists in the platform's layout.
#pragma once

#include <optional>
#include <string>

#include "platform/plist/value.h"

namespace platform::xml_plist {

// Serializes `plist` as the platform lays XML property lists out: the XML
// declaration, the DOCTYPE line, <plist version="1.0">, one tab per level, keys
// in ascending order, empty containers as <dict/> and <array/>, base64 data in
// lines of 76 characters less 8 per level of indentation (never under 16),
// reals in their shortest exact text, dates in whole UTC seconds, and a newline
// after </plist>. A carriage return in text is written as "&#13;" so that
// reading gives it back. Returns nullopt, with `problem` saying what and where
// (root["key"][2]), for what XML cannot carry: an error object, a UID, an
// absent value, text holding a control character, U+FFFE, U+FFFF or invalid
// UTF-8, a date outside the years 0000 to 9999, or nesting deeper than the cap.
std::optional<Bytes> write(const Value& plist, std::string& problem);

}  // namespace platform::xml_plist
