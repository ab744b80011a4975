#include "platform/value.h"

#include <cstdio>

namespace platform {

// Scalars only for now; containers follow with the old-style text writer.
std::string Value::description() const {
  char buffer[64];
  switch (kind()) {
    case Kind::None: return "(null)";
    case Kind::Boolean: return *asBoolean() ? "1" : "0";
    case Kind::Integer:
      if (asInteger()->isUnsigned) {
        std::snprintf(buffer, sizeof buffer, "%llu", static_cast<unsigned long long>(asInteger()->bits));
      } else {
        std::snprintf(buffer, sizeof buffer, "%lld", static_cast<long long>(asInteger()->int64Value()));
      }
      return buffer;
    case Kind::Real:
      std::snprintf(buffer, sizeof buffer, "%.17g", *asReal());
      return buffer;
    case Kind::String: return *asString();
    default: return {};
  }
}

}  // namespace platform
