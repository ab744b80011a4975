// The binary property-list layout, shared by its reader and writer.
//
//   header        "bplist00"
//   objects       each starts with a marker byte: high nibble the kind, low
//                 nibble a size or count (0xF: the count follows as an integer
//                 object); containers hold object references, big-endian
//                 unsigned integers of the trailer's reference size
//   offset table  one big-endian unsigned offset per object, of the trailer's
//                 offset size, indexed by object reference
//   trailer       32 bytes: 5 unused, sort version, offset size, reference
//                 size, object count (8), top object (8), offset-table offset (8)
#pragma once

#include <cstddef>
#include <cstdint>
#include <string_view>

namespace platform::binary_plist {

// The eight bytes every binary property list starts with.
inline constexpr std::string_view kMagic = "bplist00";

// Marker bytes: kinds are high nibbles; the four singletons and the date are
// whole bytes.
enum Marker : std::uint8_t {
  kNull = 0x00,
  kFalse = 0x08,
  kTrue = 0x09,
  kFill = 0x0F,
  kInteger = 0x10,  // low nibble n: 2^n bytes, big-endian; 1-4 bytes unsigned, 8 and 16 signed
  kReal = 0x20,     // low nibble n: 2^n bytes (2: float, 3: double)
  kDate = 0x33,     // 8-byte double, seconds since 2001-01-01 UTC
  kData = 0x40,
  kAsciiString = 0x50,
  kUtf16String = 0x60,  // count in UTF-16 units, big-endian
  kUid = 0x80,          // low nibble n: n+1 bytes
  kArray = 0xA0,
  kSet = 0xC0,
  kDictionary = 0xD0,  // count keys' references, then as many values' references
};

inline constexpr std::uint8_t kKindMask = 0xF0;
inline constexpr std::uint8_t kInfoMask = 0x0F;

inline constexpr std::size_t kHeaderSize = 8;
inline constexpr std::size_t kTrailerSize = 32;
// Where the trailer's fields sit, counted from the trailer's first byte.
inline constexpr std::size_t kTrailerOffsetSize = 6;
inline constexpr std::size_t kTrailerReferenceSize = 7;
inline constexpr std::size_t kTrailerObjectCount = 8;
inline constexpr std::size_t kTrailerTopObject = 16;
inline constexpr std::size_t kTrailerOffsetTable = 24;
// A count in the marker's low nibble is at most this; larger counts follow.
inline constexpr std::uint8_t kLongCount = 0x0F;

}  // namespace platform::binary_plist
