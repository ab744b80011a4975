// What the text writers (XML property lists, JSON, descriptions) share: an
// integer's decimal text, the route to the part of a value that a writer
// refused, and the refusal itself, for the writer's error message.
#pragma once

#include <cstddef>
#include <string>
#include <string_view>
#include <utility>

#include "platform/plist/codec_support.h"
#include "platform/plist/value.h"

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
// GCC 12 at -O3 reports an impossible overlap inside std::string here (GCC bug 105651).
#if defined(__GNUC__) && !defined(__clang__)
#pragma GCC diagnostic push
#pragma GCC diagnostic ignored "-Wrestrict"
#endif
  void prependIndex(std::size_t index) { steps_.insert(0, "[" + std::to_string(index) + "]"); }
#if defined(__GNUC__) && !defined(__clang__)
#pragma GCC diagnostic pop
#endif
  std::string text() const { return "root" + steps_; }

 private:
  std::string steps_;
};

// The base of a writer that stops at the first value it cannot write: what it
// refused is kept, and the route to it is filled in while the writer unwinds.
class RefusingWriter {
 public:
  // "<format>: cannot write <what was refused> at <route>".
  std::string problem(std::string_view format) const {
    return std::string(format) + ": cannot write " + what_ + " at " + route_.text();
  }

 protected:
  // Records `what`; false, for the writer to return.
  bool refuse(std::string what) {
    what_ = std::move(what);
    return false;
  }
  // True for a container at `level` below the nesting cap; otherwise refuses it.
  bool enter(std::size_t level) {
    if (level < kMaxNestingDepth) return true;
    return refuse("nesting deeper than " + std::to_string(kMaxNestingDepth) + " levels");
  }

  ValueRoute route_;

 private:
  std::string what_;
};

}  // namespace platform::codec
