#include "platform/foundation/format.h"

#include <algorithm>
#include <climits>
#include <cstdio>
#include <cstring>
#include <string_view>

namespace platform {
namespace {

// One conversion directive, as printf reads it: flags, width, precision,
// length modifier and conversion character.
struct Conversion {
  std::string directive;  // '%', flags, width and precision: all but the length modifier and conversion
  std::string length;
  char conversion = 0;
};

bool parseConversion(const char*& p, Conversion& out) {
  const char* start = p;  // at '%'
  ++p;
  while (*p && std::strchr("-+ #0'", *p)) ++p;
  while (*p >= '0' && *p <= '9') ++p;
  if (*p == '.') {
    ++p;
    while (*p >= '0' && *p <= '9') ++p;
  }
  out.directive.assign(start, p);
  const char* lengthStart = p;
  while (*p && std::strchr("hlqjztL", *p)) ++p;
  out.length.assign(lengthStart, p);
  if (!*p) return false;
  out.conversion = *p++;
  return true;
}

// The one place that hands a run-time format to printf: each directive was parsed and
// checked against its argument's kind above.
#pragma GCC diagnostic push
#pragma GCC diagnostic ignored "-Wformat-nonliteral"
template <typename T>
void appendPrintf(std::string& out, const std::string& directive, T value) {
  char stack[128];
  int n = std::snprintf(stack, sizeof stack, directive.c_str(), value);
  if (n < 0) return;
  if (static_cast<std::size_t>(n) < sizeof stack) {
    out.append(stack, static_cast<std::size_t>(n));
    return;
  }
  std::string big(static_cast<std::size_t>(n) + 1, '\0');
  std::snprintf(big.data(), big.size(), directive.c_str(), value);
  out.append(big.data(), static_cast<std::size_t>(n));
}
#pragma GCC diagnostic pop

// Text for "%s" and "%@", laid out here rather than by printf, which would stop
// at a NUL byte inside an object's description: a precision keeps at most that
// many bytes, a width pads with spaces, on the right after a '-' flag.
void appendText(std::string& out, const std::string& directive, std::string_view text) {
  // A count of digits, held to INT_MAX, the largest printf takes.
  const auto readCount = [](const char*& p) {
    std::size_t count = 0;
    for (; *p >= '0' && *p <= '9'; ++p) count = std::min<std::size_t>(count * 10 + static_cast<std::size_t>(*p - '0'), INT_MAX);
    return count;
  };
  const char* p = directive.c_str() + 1;  // past '%'
  bool leftAligned = false;
  for (; *p && std::strchr("-+ #0'", *p); ++p) leftAligned |= *p == '-';
  const std::size_t width = readCount(p);
  if (*p == '.') text = text.substr(0, readCount(++p));
  const std::size_t padding = width > text.size() ? width - text.size() : 0;
  if (!leftAligned) out.append(padding, ' ');
  out.append(text);
  if (leftAligned) out.append(padding, ' ');
}

bool appendInteger(std::string& out, const Conversion& c, const FormatArg& arg) {
  unsigned long long bits;
  if (arg.kind() == FormatArg::Kind::Signed) {
    bits = static_cast<unsigned long long>(arg.signedValue());
  } else if (arg.kind() == FormatArg::Kind::Unsigned) {
    bits = arg.unsignedValue();
  } else {
    return false;
  }
  if (c.conversion == 'c') {
    appendPrintf(out, c.directive + 'c', static_cast<int>(bits));
    return true;
  }
  const bool isSigned = c.conversion == 'd' || c.conversion == 'i';
  // Narrow to the width the length modifier names, as a C varargs call would.
  if (c.length.empty() || c.length == "h" || c.length == "hh") {
    const unsigned long long mask = c.length == "hh" ? 0xffULL : c.length == "h" ? 0xffffULL : 0xffffffffULL;
    bits &= mask;
    const unsigned long long signBit = (mask >> 1) + 1;
    if (isSigned && (bits & signBit)) bits |= ~mask;
  }
  const std::string wide = c.directive + "ll" + c.conversion;
  if (isSigned) {
    appendPrintf(out, wide, static_cast<long long>(bits));
  } else {
    appendPrintf(out, wide, bits);
  }
  return true;
}

}  // namespace

std::optional<std::string> stringWithFormat(const char* format, std::span<const FormatArg> args) {
  if (!format) return std::nullopt;
  std::string out;
  std::size_t next = 0;
  for (const char* p = format; *p;) {
    if (*p != '%') {
      const char* run = std::strchr(p, '%');
      std::size_t len = run ? static_cast<std::size_t>(run - p) : std::strlen(p);
      out.append(p, len);
      p += len;
      continue;
    }
    if (p[1] == '%') {
      out.push_back('%');
      p += 2;
      continue;
    }
    Conversion c;
    if (!parseConversion(p, c)) return std::nullopt;
    if (next >= args.size()) return std::nullopt;
    const FormatArg& arg = args[next++];
    switch (c.conversion) {
      case '@':
        if (arg.kind() != FormatArg::Kind::Object) return std::nullopt;
        appendText(out, c.directive, arg.objectValue().description());
        break;
      case 's':
        if (arg.kind() != FormatArg::Kind::CString) return std::nullopt;
        appendText(out, c.directive, arg.cstringValue() ? arg.cstringValue() : "(null)");
        break;
      case 'd': case 'i': case 'u': case 'o': case 'x': case 'X': case 'c':
        if (!appendInteger(out, c, arg)) return std::nullopt;
        break;
      case 'f': case 'F': case 'e': case 'E': case 'g': case 'G': case 'a': case 'A':
        if (arg.kind() != FormatArg::Kind::Real) return std::nullopt;
        appendPrintf(out, c.directive + c.conversion, arg.realValue());
        break;
      default:
        return std::nullopt;
    }
  }
  return out;
}

}  // namespace platform
