// What the text writers (XML property lists, JSON, descriptions) share: an
// integer's decimal text, and the route to the part of a value that a writer
// refused, for its error message.
#pragma once

#include <cstddef>
#include <string>
#include <string_view>

#include "platform/value.h"

namespace platform::codec {

// The decimal text of `i`: signed unless it only fits unsigned.
inline std::string decimalText(const Integer& i) {
  return i.isUnsigned ? std::to_string(i.uint64Value()) : std::to_string(i.int64Value());
}

// Where in a value a writer stopped, spelled root["key"][2]. Writers recurse,
// so the route is built while unwinding: the innermost step is prepended first.
class ValueRoute {
 public:
  void prependKey(std::string_view key) { steps_.insert(0, "[\"" + std::string(key) + "\"]"); }
  void prependIndex(std::size_t index) { steps_.insert(0, "[" + std::to_string(index) + "]"); }
  std::string text() const { return "root" + steps_; }

 private:
  std::string steps_;
};

}  // namespace platform::codec
