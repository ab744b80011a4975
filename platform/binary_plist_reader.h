// Reading of binary property lists ("bplist00").
#pragma once

#include <cstdint>
#include <span>
#include <string>
#include <string_view>

#include "platform/value.h"

namespace platform::binary_plist {

// The eight bytes every binary property list starts with.
inline constexpr std::string_view kMagic = "bplist00";

// True when `data` starts with kMagic.
bool looksLikeBinary(std::span<const std::uint8_t> data);

// Parses a binary property list. Returns the top object, or an absent Value with
// `problem` saying what went wrong and at which object and byte offset. Shared
// objects are read once; an object that contains itself is an error.
Value read(std::span<const std::uint8_t> data, std::string& problem);

}  // namespace platform::binary_plist
