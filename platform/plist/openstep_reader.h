// Reading of old-style (OpenStep) text property lists:
//
//   dictionary   { key = value; ... }      every entry ends with ';'
//   array        ( value, value, ... )     a trailing ',' is allowed
//   data         <0fbd 771c>               hex digits, white space between them
//   string       "quoted, with \" \\ \n \t \r \b \f \a \v, octal \NNN, \UXXXX"
//                or unquoted: letters, digits and _ $ / : . -
//   comments     // to the end of the line, /* ... */
//
// A document holds one value, or the "strings file" form: key = value; pairs at
// the top level without braces, read as a dictionary. The format carries only
// strings, data, arrays and dictionaries. Text is UTF-8 (a byte-order mark is
// skipped); an octal escape names the character of that number (\351 is U+00E9);
// an unknown escape stands for the character itself; \U escapes of a surrogate
// pair combine into one character.
#pragma once

#include <cstdint>
#include <span>
#include <string>

#include "platform/plist/value.h"

namespace platform::openstep_plist {

// True when the first meaningful character of `data` (after a byte-order mark,
// white space and comments) can open an old-style value: { ( < " or a character
// of an unquoted string.
bool looksLikeOpenStep(std::span<const std::uint8_t> data);

// Parses an old-style property list. Returns the value, or an absent Value with
// `problem` saying what went wrong and where (line, column and byte offset).
// Containers nested deeper than the codecs' cap are refused on entry.
Value read(std::span<const std::uint8_t> data, std::string& problem);

}  // namespace platform::openstep_plist
