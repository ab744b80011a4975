// The platform's string formatting: printf conversions plus "%@" for an object's
// description. Arguments are type-checked at run time against their conversions,
// so a mismatch fails instead of reading the wrong bytes.
#pragma once

#include <cstdint>
#include <optional>
#include <span>
#include <string>
#include <type_traits>

#include "platform/plist/value.h"

namespace platform {

class FormatArg {
 public:
  enum class Kind : std::uint8_t { Signed, Unsigned, Real, CString, Object };

  template <typename T>
    requires(std::is_integral_v<T> && !std::is_same_v<T, bool>)
  FormatArg(T v) {  // NOLINT(google-explicit-constructor): arguments convert like printf's
    if constexpr (std::is_signed_v<T>) {
      kind_ = Kind::Signed;
      signed_ = v;
    } else {
      kind_ = Kind::Unsigned;
      unsigned_ = v;
    }
  }
  FormatArg(double v) : kind_(Kind::Real), real_(v) {}  // NOLINT
  FormatArg(const char* s) : kind_(Kind::CString), cstring_(s) {}  // NOLINT
  // Objects print with "%@"; a std::string is an NSString.
  FormatArg(const std::string& s) : kind_(Kind::Object), object_(Value::string(s)) {}  // NOLINT
  FormatArg(Value v) : kind_(Kind::Object), object_(std::move(v)) {}  // NOLINT
  FormatArg(const ErrorRef& e) : kind_(Kind::Object), object_(Value::error(e)) {}  // NOLINT

  Kind kind() const { return kind_; }
  long long signedValue() const { return signed_; }
  unsigned long long unsignedValue() const { return unsigned_; }
  double realValue() const { return real_; }
  const char* cstringValue() const { return cstring_; }
  const Value& objectValue() const { return object_; }

 private:
  Kind kind_;
  long long signed_ = 0;
  unsigned long long unsigned_ = 0;
  double real_ = 0;
  const char* cstring_ = nullptr;
  Value object_;
};

// Formats `format` with `args`. Returns nullopt when the format is malformed or
// asks for more or other arguments than given; extra arguments are ignored.
std::optional<std::string> stringWithFormat(const char* format, std::span<const FormatArg> args);

template <typename... Args>
std::optional<std::string> stringWithFormat(const char* format, const Args&... args) {
  const FormatArg packed[] = {FormatArg(args)..., FormatArg(0)};
  return stringWithFormat(format, std::span<const FormatArg>(packed, sizeof...(Args)));
}

}  // namespace platform
