// JSON serialization with the platform's pretty-printed layout.
#pragma once

#include <optional>
#include <string>

#include "platform/plist/value.h"

namespace platform::json {

// Serializes a dictionary or an array as the platform's pretty printer lays it
// out: two spaces of indentation per level, one entry a line, `"key" : value`,
// entries in the dictionary's (ascending) key order, "/" written as "\/", no
// newline at the end. Empty containers print as "{\n\n}" and "[\n\n]" (the
// closing bracket indented to its level): the opening line, the empty list of
// entries and the closing line, as the printer does for any container.
// Integers are exact (unsigned ones above INT64_MAX included), reals in their
// shortest exact text, booleans true and false; in strings, \" \\ \/ \b \f \n
// \r \t are escaped by name and other control characters as \u00xx.
// Returns nullopt, with an NSCocoaErrorDomain error (NSPropertyListWriteInvalidError)
// through `error` that says what and where (root["key"][2]), when the root is
// not a container or the value holds what JSON cannot carry: a date, data, a
// non-finite real, an error object, a UID, an absent value, text that is not
// valid UTF-8, or nesting deeper than the cap.
std::optional<Bytes> dataWithJSONObject(const Value& object, ErrorRef* error);

}  // namespace platform::json
