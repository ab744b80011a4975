// Reading of XML property lists: libexpat underneath, and a reading of its own
// for the plain documents that writers make, which spends no time in libexpat.
#pragma once

#include <cstdint>
#include <span>
#include <string>

#include "platform/plist/value.h"

namespace platform::xml_plist {

// True when `data`, after an optional byte-order mark and white space, opens
// like an XML document: "<?xml", "<!DOCTYPE" or "<plist", in UTF-8, or in UTF-16
// after its mark.
bool looksLikeXml(std::span<const std::uint8_t> data);

// Parses an XML property list, with or without its <plist> root. Returns the
// value, or an absent Value with `problem` saying what went wrong and where
// (line, column and byte offset). A byte-order mark (UTF-8, or UTF-16 in either
// order) sets the encoding whatever the XML declaration names; UTF-16 with an
// unpaired surrogate or an odd byte is refused. Entity declarations are refused
// outright.
Value read(std::span<const std::uint8_t> data, std::string& problem);

// The same, through libexpat for every document: read() takes most documents
// that writers make by a way of its own, and must agree with this one.
Value readThroughExpat(std::span<const std::uint8_t> data, std::string& problem);

}  // namespace platform::xml_plist
