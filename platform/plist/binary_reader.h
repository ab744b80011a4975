// Reading of binary property lists ("bplist00").
#pragma once

#include <cstdint>
#include <span>
#include <string>

#include "platform/plist/value.h"

namespace platform::binary_plist {

// True when `data` starts with the binary magic "bplist00".
bool looksLikeBinary(std::span<const std::uint8_t> data);

// Parses a binary property list. Returns the top object, or an absent Value with
// `problem` saying what went wrong and where (object index and byte offset).
// UIDs come back as Value::uid, so that keyed archives can be decoded; sets come
// back as arrays; null and fill references are left out of their container.
// Shared objects are read once; an object that contains itself, nesting deeper
// than codec::kMaxNestingDepth, and sharing that makes the document heavier than
// codec::ExpansionBudget admits for its size are errors.
Value read(std::span<const std::uint8_t> data, std::string& problem);

}  // namespace platform::binary_plist
