// A value that holds one array many times over, as a hostile peer sends it: it
// is stored small, since writers keep one copy of each container, but it has a
// path for every way down, so that a walk that ignores sharing never ends.
#pragma once

#include <cstdint>

#include "platform/value.h"

namespace testing_support {

// `levels` arrays, each holding the next one twice, the innermost holding the
// integer 1 twice: 2^levels paths to the 1, written in levels + 1 objects.
inline platform::Value doubledArrays(int levels) {
  platform::Value value = platform::Value::integer(1);
  for (int i = 0; i < levels; ++i) value = platform::Value::array({value, value});
  return value;
}

// What doubledArrays(levels) weighs expanded: every array once per path to it,
// and the integers.
inline std::uint64_t doubledArraysWeight(int levels) { return (std::uint64_t{2} << levels) - 1; }

}  // namespace testing_support
