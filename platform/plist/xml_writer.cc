#include "platform/plist/xml_writer.h"

#include <algorithm>
#include <cmath>
#include <cstring>
#include <string_view>

#include "platform/foundation/strings.h"
#include "platform/plist/codec_support.h"
#include "platform/plist/writer_support.h"
#include "platform/plist/xml_format.h"

namespace platform::xml_plist {
namespace {

constexpr std::string_view kEpilogue = "</plist>\n";

// The span of four-digit years that <date> can spell: 0000-01-01T00:00:00Z up
// to, not including, 10000-01-01T00:00:00Z, in seconds since 1970.
constexpr double kEarliestDate = -62167219200.0;
constexpr double kEndOfDates = 253402300800.0;

// XML 1.0 allows no control characters but tab, newline and carriage return,
// and neither U+FFFE nor U+FFFF (in valid UTF-8 these byte runs spell nothing else).
bool xmlCanCarry(std::string_view text) {
  for (char c : text) {
    if (static_cast<unsigned char>(c) < 0x20 && c != '\t' && c != '\n' && c != '\r') return false;
  }
  // ASCII, as most text is, is valid UTF-8 and holds neither character.
  if (codec::asciiPrefixLength(text) == text.size()) return true;
  return isValidUtf8(text) && text.find("\xEF\xBF\xBE") == std::string_view::npos &&
         text.find("\xEF\xBF\xBF") == std::string_view::npos;
}

// The characters that text cannot hold as they are; a literal carriage return
// would come back as a newline, as XML readers normalize line ends.
bool needsEscape(char c) { return c == '&' || c == '<' || c == '>' || c == '\r'; }

std::string_view escapeOf(char c) {
  switch (c) {
    case '&': return "&amp;";
    case '<': return "&lt;";
    case '>': return "&gt;";
    default: return "&#13;";
  }
}

class Writer : public codec::RefusingWriter {
 public:
  // Room for the opening and a small document from the start.
  Writer() : out_(4096) {}

  template <typename... Texts>
  void append(const Texts&... texts) {
    (appendOne(texts), ...);
  }

  // What was written; the writer is spent.
  Bytes take() {
    out_.resize(written_);
    return std::move(out_);
  }

  // Appends `value` at indentation `level`; false with problem() set when it cannot.
  bool value(const Value& v, std::size_t level) {
    switch (v.kind()) {
      case Value::Kind::None: return refuse("an absent value");
      case Value::Kind::Error: return refuse("an error object, which is not a property-list type");
      case Value::Kind::Uid: return refuse("a UID, which only binary property lists carry");
      case Value::Kind::Boolean:
        indent(level);
        append(*v.asBoolean() ? "<true/>\n" : "<false/>\n");
        return true;
      case Value::Kind::Integer: return leaf(level, "integer", codec::decimalText(*v.asInteger()));
      case Value::Kind::Real: return leaf(level, "real", codec::formatReal(*v.asReal()));
      case Value::Kind::String: return text(level, "string", *v.asString());
      case Value::Kind::Date: {
        const double t = v.asDate()->unixTime();
        if (std::isnan(t)) return refuse("a date that is not a number, which has no calendar form");
        if (!(t >= kEarliestDate && t < kEndOfDates)) return refuse("a date outside the years 0000 to 9999");
        return leaf(level, "date", codec::formatIsoDate(*v.asDate()));
      }
      case Value::Kind::Data: data(*v.asData(), level); return true;
      case Value::Kind::Array: return array(*v.asArray(), level);
      case Value::Kind::Dictionary: return dictionary(*v.asDictionary(), level);
    }
    return refuse("an unknown kind of value");
  }

 private:
  void indent(std::size_t level) { std::memset(room(level), '\t', level); }

  // `n` bytes more at the end of what is written. The buffer grows ahead of the
  // text in steps, since a vector's insertion of a few bytes costs many times a copy.
  std::uint8_t* room(std::size_t n) {
    if (n > out_.size() - written_) out_.resize(std::max(2 * out_.size(), written_ + n));
    std::uint8_t* at = out_.data() + written_;
    written_ += n;
    return at;
  }

  bool leaf(std::size_t level, std::string_view tag, std::string_view body) {
    indent(level);
    append("<", tag, ">", body, "</", tag, ">\n");
    return true;
  }

  bool text(std::size_t level, std::string_view tag, std::string_view body) {
    if (!xmlCanCarry(body)) return refuse("text with a character that XML cannot carry");
    indent(level);
    append("<", tag, ">");
    // Runs without a character to escape go in whole.
    for (auto at = body.begin(); at != body.end();) {
      const auto escaped = std::find_if(at, body.end(), [](char c) { return needsEscape(c); });
      append(std::string_view(at, escaped));
      if (escaped == body.end()) break;
      append(escapeOf(*escaped));
      at = escaped + 1;
    }
    append("</", tag, ">\n");
    return true;
  }

  void data(const Bytes& bytes, std::size_t level) {
    const std::string encoded = codec::encodeBase64(bytes);
    const long width = std::max(16L, 76L - 8L * static_cast<long>(level));
    indent(level);
    append("<data>\n");
    for (std::size_t at = 0; at < encoded.size(); at += static_cast<std::size_t>(width)) {
      indent(level);
      append(std::string_view(encoded).substr(at, static_cast<std::size_t>(width)), "\n");
    }
    indent(level);
    append("</data>\n");
  }

  bool array(const Array& items, std::size_t level) {
    if (!enter(level)) return false;
    indent(level);
    if (items.empty()) {
      append("<array/>\n");
      return true;
    }
    append("<array>\n");
    for (std::size_t i = 0; i < items.size(); ++i) {
      if (!value(items[i], level + 1)) {
        route_.prependIndex(i);
        return false;
      }
    }
    indent(level);
    append("</array>\n");
    return true;
  }

  bool dictionary(const Dictionary& entries, std::size_t level) {
    if (!enter(level)) return false;
    indent(level);
    if (entries.empty()) {
      append("<dict/>\n");
      return true;
    }
    append("<dict>\n");
    for (const auto& [key, item] : entries) {
      if (!text(level + 1, "key", key) || !value(item, level + 1)) {
        route_.prependKey(key);
        return false;
      }
    }
    indent(level);
    append("</dict>\n");
    return true;
  }

  void appendOne(std::string_view text) { std::memcpy(room(text.size()), text.data(), text.size()); }

  Bytes out_;
  std::size_t written_ = 0;
};

}  // namespace

std::optional<Bytes> write(const Value& plist, std::string& problem) {
  Writer writer;
  writer.append(kDeclaration, kDocumentType, "<plist", kPlistAttributes, ">\n");
  if (!writer.value(plist, 0)) {
    problem = writer.problem("XML property list");
    return std::nullopt;
  }
  writer.append(kEpilogue);
  return writer.take();
}

}  // namespace platform::xml_plist
