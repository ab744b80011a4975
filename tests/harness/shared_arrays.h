// A value that holds one array many times over, as a hostile peer sends it: it
// is stored small, since writers keep one copy of each container, but it has a
// path for every way down, so that a walk that ignores sharing never ends.
#pragma once

#include <cstddef>
#include <cstdint>
#include <vector>

#include "platform/plist/value.h"

namespace testing_support {

// `levels` arrays, each holding the next one twice, the innermost holding the
// integer 1 twice: 2^levels paths to the 1, written in levels + 1 objects.
inline platform::Value doubledArrays(int levels) {
  platform::Value value = platform::Value::integer(1);
  for (int i = 0; i < levels; ++i) value = platform::Value::array({value, value});
  return value;
}

// What doubledArrays(levels) weighs expanded under `wraps` single-item arrays:
// each object at depth d (every array once per path to it, and the integers)
// weighs 1 + d. The wrappers sum to wraps (wraps + 1) / 2; the doubling, at the
// top, to levels * 2^(levels + 1) + 1, and 1 more for each of its 2^(levels + 1)
// - 1 objects per wrapper above it.
inline std::uint64_t doubledArraysWeight(int levels, int wraps = 0) {
  const std::uint64_t objects = (std::uint64_t{2} << levels) - 1;
  const auto w = static_cast<std::uint64_t>(wraps);
  return w * (w + 1) / 2 + static_cast<std::uint64_t>(levels) * (objects + 1) + 1 + w * objects;
}

// doubledArrays(levels), under `wraps` arrays that each hold the next one alone,
// as a binary property list laid out by hand, with 2-byte references and
// offsets: what a writer that ignored the expansion budget would store. Past
// about 15 levels the writers refuse to store it and readers to read it.
inline platform::Bytes doubledArraysDocument(int levels, int wraps = 0) {
  platform::Bytes out = {'b', 'p', 'l', 'i', 's', 't', '0', '0'};
  const auto append = [&out](std::uint64_t value, int size) {
    while (size-- > 0) out.push_back(static_cast<std::uint8_t>(value >> (8 * size)));
  };
  std::vector<std::size_t> offsets;
  for (int i = 0; i < wraps; ++i) {
    offsets.push_back(out.size());
    append(0xA1, 1);
    append(i + 1, 2);
  }
  for (int i = wraps; i < wraps + levels; ++i) {
    offsets.push_back(out.size());
    append(0xA2, 1);
    append(i + 1, 2);
    append(i + 1, 2);
  }
  offsets.push_back(out.size());
  append(0x1001, 2);  // the integer 1
  const std::size_t table = out.size();
  for (std::size_t offset : offsets) append(offset, 2);
  append(0, 6);  // unused bytes and sort version
  append(0x0202, 2);  // offset and reference sizes
  append(offsets.size(), 8);
  append(0, 8);  // the top object
  append(table, 8);
  return out;
}

}  // namespace testing_support
