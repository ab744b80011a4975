// Hand assembly of binary property lists, so that tests can state a layout byte
// by byte and build the broken ones: objects are given as their raw bytes, and
// the builder adds the header, the offset table and the trailer.
#pragma once

#include <cstdint>
#include <optional>
#include <span>
#include <string>
#include <vector>

namespace testing_support {

// `value` as `size` big-endian bytes.
inline std::string bigEndian(std::uint64_t value, std::size_t size) {
  std::string out;
  for (std::size_t i = size; i-- > 0;) out.push_back(static_cast<char>(value >> (8 * i)));
  return out;
}

struct BinaryPlistLayout {
  std::uint8_t offsetSize = 1;
  std::uint8_t referenceSize = 1;
  std::uint64_t top = 0;
  // Overrides of what the builder would compute, for broken files.
  std::optional<std::uint64_t> objectCount;
  std::optional<std::uint64_t> tableOffset;
  std::optional<std::vector<std::uint64_t>> offsets;
};

inline std::string binaryPlist(const std::vector<std::string>& objects,
                               const BinaryPlistLayout& layout = {}) {
  std::string out = "bplist00";
  std::vector<std::uint64_t> offsets;
  for (const std::string& object : objects) {
    offsets.push_back(out.size());
    out += object;
  }
  if (layout.offsets) offsets = *layout.offsets;
  const std::uint64_t table = out.size();
  for (std::uint64_t offset : offsets) out += bigEndian(offset, layout.offsetSize);
  out += std::string(6, '\0');
  out.push_back(static_cast<char>(layout.offsetSize));
  out.push_back(static_cast<char>(layout.referenceSize));
  out += bigEndian(layout.objectCount.value_or(objects.size()), 8);
  out += bigEndian(layout.top, 8);
  out += bigEndian(layout.tableOffset.value_or(table), 8);
  return out;
}

inline std::span<const std::uint8_t> bytesOf(const std::string& text) {
  return {reinterpret_cast<const std::uint8_t*>(text.data()), text.size()};
}

}  // namespace testing_support
