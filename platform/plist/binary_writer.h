// Writing of binary property lists ("bplist00").
#pragma once

#include <optional>
#include <string>

#include "platform/plist/value.h"

namespace platform::binary_plist {

// Serializes a property list. Equal strings, numbers, dates and data are written
// once, and so is a container shared by several parents; integers, references
// and offsets take the fewest bytes that hold them; dictionary keys are sorted.
// Returns nullopt with `problem` saying what cannot be written and where
// (root["key"][2]): a value that is not a property-list object (an error, a UID,
// an absent value), a string that is not UTF-8, or nesting deeper than
// codec::kMaxNestingDepth; or, with codec::ExpansionBudget's refusal, a value
// that through its sharing weighs more than the written document's budget, which
// the reader would refuse.
std::optional<Bytes> write(const Value& plist, std::string& problem);

// As write(), but UIDs are written too: the keyed-archive encoder's entry point.
std::optional<Bytes> writeWithUids(const Value& plist, std::string& problem);

}  // namespace platform::binary_plist
