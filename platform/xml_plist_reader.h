// Reading of XML property lists (libexpat underneath).
#pragma once

#include <cstdint>
#include <span>
#include <string>

#include "platform/value.h"

namespace platform::xml_plist {

// True when `data`, after an optional byte-order mark and white space, opens
// like an XML document: "<?xml", "<!DOCTYPE" or "<plist".
bool looksLikeXml(std::span<const std::uint8_t> data);

// Parses an XML property list, with or without its <plist> root. Returns the
// value, or an absent Value with `problem` saying what went wrong and where
// (line, column and byte offset). Entity declarations are refused outright.
Value read(std::span<const std::uint8_t> data, std::string& problem);

}  // namespace platform::xml_plist
