// What the property-list fuzz targets check once an input has parsed: the XML
// writer either refuses the value with an error or writes text that reads back
// as the same value (up to what XML keeps: dates in whole seconds) and writes
// the same bytes again. Any breach aborts, which libFuzzer reports.
#pragma once

#include <cmath>
#include <cstdlib>

#include "platform/plist/property_list.h"

namespace fuzzing {

inline bool sameAfterXml(const platform::Value& original, const platform::Value& read) {
  using Kind = platform::Value::Kind;
  if (original.kind() != read.kind()) return false;
  switch (original.kind()) {
    case Kind::Real: {
      // As values compare, NaN equal to NaN (XML does not keep its sign), but -0 apart from 0.
      const double a = *original.asReal();
      return original == read && (std::isnan(a) || std::signbit(a) == std::signbit(*read.asReal()));
    }
    case Kind::Date:
      return std::floor(original.asDate()->unixTime()) == read.asDate()->unixTime();
    case Kind::Array: {
      const auto& a = *original.asArray();
      const auto& b = *read.asArray();
      if (a.size() != b.size()) return false;
      for (std::size_t i = 0; i < a.size(); ++i) {
        if (!sameAfterXml(a[i], b[i])) return false;
      }
      return true;
    }
    case Kind::Dictionary: {
      const auto& a = *original.asDictionary();
      const auto& b = *read.asDictionary();
      if (a.size() != b.size()) return false;
      for (const auto& [key, item] : a) {
        if (!b.contains(key) || !sameAfterXml(item, b.get(key))) return false;
      }
      return true;
    }
    default:
      return original == read;
  }
}

inline void checkXmlRoundTrip(const platform::Value& value) {
  platform::ErrorRef error;
  const auto written = platform::dataWithPropertyList(value, platform::PropertyListFormat::XML, &error);
  if (!written) {
    if (!error) std::abort();  // a refusal always says why
    return;
  }
  const platform::Value read = platform::propertyListWithData(*written, nullptr, &error);
  if (!read || !sameAfterXml(value, read)) std::abort();
  const auto again = platform::dataWithPropertyList(read, platform::PropertyListFormat::XML, nullptr);
  if (!again || *again != *written) std::abort();
}

}  // namespace fuzzing
