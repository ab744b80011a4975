// platform/plist stands in for Foundation's property lists: one value type for
// their objects, reading the binary, XML and old-style formats, writing binary,
// XML and JSON, the "%@" description text, and keyed archives of errors. Left
// out: sets and every other class that is no property-list kind, reading or
// writing options (reading gives immutable values), JSON reading, old-style
// writing, and keyed archives of anything but errors and their contents.
//
// Property-list serialization: reading detects the format (binary "bplist00",
// XML, old-style OpenStep text); writing names its format. Results of reading are
// immutable values. Failures are errors of NSCocoaErrorDomain, as the platform
// reports them (3840 for reading, 3851 for writing), with a description that
// says what went wrong and where.
#pragma once

#include <cstdint>
#include <optional>
#include <span>

#include "platform/plist/value.h"

namespace platform {

enum class PropertyListFormat : int {
  OpenStep = 1,  // read only
  XML = 100,
  Binary = 200,
};

inline constexpr std::int64_t NSPropertyListReadCorruptError = 3840;
inline constexpr std::int64_t NSPropertyListWriteInvalidError = 3851;

// Parses data in any format. Returns an absent Value on failure, with the error
// stored through `error` when given; `format`, when given, receives the format read.
Value propertyListWithData(std::span<const std::uint8_t> data, PropertyListFormat* format,
                           ErrorRef* error);

// Serializes a property list (errors, UIDs and absent values are not property-list
// objects and make it fail). Returns nullopt on failure, with the error through `error`.
std::optional<Bytes> dataWithPropertyList(const Value& plist, PropertyListFormat format,
                                          ErrorRef* error);

}  // namespace platform
