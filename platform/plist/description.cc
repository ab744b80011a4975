// Value::description: the "%@" text. Scalars print as themselves; containers in
// the platform's old-style property-list notation, four spaces a level:
//
//   {                              (
//       key = value;                   item,
//       nested =     {                     {
//           inner = 1;                     a = 1;
//       };                             },
//   }                                  last
//                                  )
//
// A nested container's first line carries its own level's indentation after
// the "key = " or after the item's indentation, as the platform prints it.
// Inside containers, keys, strings, numbers, dates and errors are quoted when
// their text is empty or holds anything but ASCII letters, digits and "_";
// inside quotes \" \\ \a \b \t \n \v \f \r are escaped by name, other control
// characters in octal (\033) and characters beyond ASCII as \Uxxxx UTF-16 units.
// Data prints as {length = 4, bytes = 0x0001feff}, longer than 24 bytes as the
// first 16 and the last 8 bytes in groups of four around " ... ". Dates read
// "2021-01-05 09:07:03 +0000"; booleans 1 and 0; reals in their shortest exact
// text; empty containers "{\n}" and "(\n)". Containers nested deeper than the
// codecs' cap print as "...".
#include <cstdio>
#include <string_view>

#include "platform/plist/codec_support.h"
#include "platform/plist/value.h"
#include "platform/plist/writer_support.h"

namespace platform {
namespace {

void indent(std::string& out, std::size_t level) { out.append(4 * level, ' '); }

bool needsQuotes(std::string_view text) {
  if (text.empty()) return true;
  for (char c : text) {
    const bool plain = (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z') || (c >= '0' && c <= '9') || c == '_';
    if (!plain) return true;
  }
  return false;
}

void appendQuoted(std::string& out, std::string_view text) {
  // Text that is not UTF-8 is shown byte by byte, each byte as the character of its number.
  std::u16string units;
  if (auto decoded = codec::utf16FromUtf8(text)) {
    units = std::move(*decoded);
  } else {
    units.assign(text.begin(), text.end());
    for (char16_t& unit : units) unit &= 0xFF;
  }
  out.push_back('"');
  char escape[8];
  for (char16_t unit : units) {
    switch (unit) {
      case '"': out.append("\\\""); break;
      case '\\': out.append("\\\\"); break;
      case '\a': out.append("\\a"); break;
      case '\b': out.append("\\b"); break;
      case '\t': out.append("\\t"); break;
      case '\n': out.append("\\n"); break;
      case '\v': out.append("\\v"); break;
      case '\f': out.append("\\f"); break;
      case '\r': out.append("\\r"); break;
      default:
        if (unit < 0x20 || unit == 0x7F) {
          std::snprintf(escape, sizeof escape, "\\%03o", static_cast<unsigned>(unit));
          out.append(escape);
        } else if (unit > 0x7F) {
          std::snprintf(escape, sizeof escape, "\\U%04x", static_cast<unsigned>(unit));
          out.append(escape);
        } else {
          out.push_back(static_cast<char>(unit));
        }
    }
  }
  out.push_back('"');
}

std::string dataText(const Bytes& bytes) {
  constexpr std::size_t kWhole = 24, kHead = 16, kTail = 8;
  std::string out = "{length = " + std::to_string(bytes.size()) + ", bytes = 0x";
  char hex[4];
  const auto appendRange = [&](std::size_t from, std::size_t to, bool grouped) {
    for (std::size_t i = from; i < to; ++i) {
      if (grouped && i > from && (i - from) % 4 == 0) out.push_back(' ');
      std::snprintf(hex, sizeof hex, "%02x", bytes[i]);
      out.append(hex);
    }
  };
  if (bytes.size() <= kWhole) {
    appendRange(0, bytes.size(), false);
    out.push_back('}');
  } else {
    appendRange(0, kHead, true);
    out.append(" ... ");
    appendRange(bytes.size() - kTail, bytes.size(), true);
    out.append(" }");
  }
  return out;
}

// The text of anything but a container, as "%@" prints it on its own.
std::string scalarText(const Value& v) {
  switch (v.kind()) {
    case Value::Kind::None: return "(null)";
    case Value::Kind::Boolean: return *v.asBoolean() ? "1" : "0";
    case Value::Kind::Integer: return codec::decimalText(*v.asInteger());
    case Value::Kind::Real: return codec::formatReal(*v.asReal());
    case Value::Kind::String: return *v.asString();
    case Value::Kind::Date: return codec::formatDescriptionDate(*v.asDate());
    case Value::Kind::Data: return dataText(*v.asData());
    case Value::Kind::Uid: return "{value = " + std::to_string(v.asUid()->index) + "}";
    case Value::Kind::Error: {
      const Error& error = **v.asError();
      std::string out = "Error Domain=" + error.domain + " Code=" + std::to_string(error.code) + " \"" +
                        error.localizedDescription() + "\"";
      if (!error.userInfo.empty()) {
        out.append(" UserInfo={");
        const char* separator = "";
        for (const auto& [key, item] : error.userInfo) {
          out.append(separator).append(key).append("=").append(item.description());
          separator = ", ";
        }
        out.push_back('}');
      }
      return out;
    }
    case Value::Kind::Array:
    case Value::Kind::Dictionary: break;
  }
  return {};
}

// `text` as it is, or quoted when it must be.
void appendWord(std::string& out, std::string_view text) {
  if (needsQuotes(text)) {
    appendQuoted(out, text);
  } else {
    out.append(text);
  }
}

void appendContainer(std::string& out, const Value& v, std::size_t level);

// A value inside a container at `level`, after its key or its indentation.
void appendMember(std::string& out, const Value& v, std::size_t level) {
  if (v.asArray() || v.asDictionary()) return appendContainer(out, v, level);
  if (v.asData() || v.asUid()) {
    out.append(scalarText(v));  // braced forms, never quoted
  } else {
    appendWord(out, scalarText(v));
  }
}

void appendContainer(std::string& out, const Value& v, std::size_t level) {
  indent(out, level);
  if (level >= codec::kMaxNestingDepth) {
    out.append("...");
    return;
  }
  if (const Dictionary* entries = v.asDictionary()) {
    out.append("{\n");
    for (const auto& [key, item] : *entries) {
      indent(out, level + 1);
      appendWord(out, key);
      out.append(" = ");
      appendMember(out, item, level + 1);
      out.append(";\n");
    }
    indent(out, level);
    out.push_back('}');
    return;
  }
  out.append("(\n");
  const Array& items = *v.asArray();
  for (std::size_t i = 0; i < items.size(); ++i) {
    indent(out, level + 1);
    appendMember(out, items[i], level + 1);
    out.append(i + 1 < items.size() ? ",\n" : "\n");
  }
  indent(out, level);
  out.push_back(')');
}

}  // namespace

std::string Value::description() const {
  if (!asArray() && !asDictionary()) return scalarText(*this);
  std::string out;
  appendContainer(out, *this, 0);
  return out;
}

}  // namespace platform
