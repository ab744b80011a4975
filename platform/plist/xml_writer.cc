#include "platform/plist/xml_writer.h"

#include <algorithm>
#include <cmath>
#include <string_view>

#include "platform/foundation/strings.h"
#include "platform/plist/codec_support.h"
#include "platform/plist/writer_support.h"

namespace platform::xml_plist {
namespace {

constexpr std::string_view kPrologue =
    "<?xml version=\"1.0\" encoding=\"UTF-8\"?>\n"
    "<!DOCTYPE plist PUBLIC \"-//Apple//DTD PLIST 1.0//EN\" "
    "\"http://www.apple.com/DTDs/PropertyList-1.0.dtd\">\n"
    "<plist version=\"1.0\">\n";
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
  return isValidUtf8(text) && text.find("\xEF\xBF\xBE") == std::string_view::npos &&
         text.find("\xEF\xBF\xBF") == std::string_view::npos;
}

class Writer : public codec::RefusingWriter {
 public:
  explicit Writer(std::string& out) : out_(out) {}

  // Appends `value` at indentation `level`; false with problem() set when it cannot.
  bool value(const Value& v, std::size_t level) {
    switch (v.kind()) {
      case Value::Kind::None: return refuse("an absent value");
      case Value::Kind::Error: return refuse("an error object, which is not a property-list type");
      case Value::Kind::Uid: return refuse("a UID, which only binary property lists carry");
      case Value::Kind::Boolean:
        indent(level);
        out_.append(*v.asBoolean() ? "<true/>\n" : "<false/>\n");
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
  void indent(std::size_t level) { out_.append(level, '\t'); }

  bool leaf(std::size_t level, std::string_view tag, std::string_view body) {
    indent(level);
    out_.append("<").append(tag).append(">").append(body).append("</").append(tag).append(">\n");
    return true;
  }

  bool text(std::size_t level, std::string_view tag, std::string_view body) {
    if (!xmlCanCarry(body)) return refuse("text with a character that XML cannot carry");
    indent(level);
    out_.append("<").append(tag).append(">");
    for (char c : body) {
      switch (c) {
        case '&': out_.append("&amp;"); break;
        case '<': out_.append("&lt;"); break;
        case '>': out_.append("&gt;"); break;
        // A literal one would come back as a newline: XML readers normalize line ends.
        case '\r': out_.append("&#13;"); break;
        default: out_.push_back(c);
      }
    }
    out_.append("</").append(tag).append(">\n");
    return true;
  }

  void data(const Bytes& bytes, std::size_t level) {
    const std::string encoded = codec::encodeBase64(bytes);
    const long width = std::max(16L, 76L - 8L * static_cast<long>(level));
    indent(level);
    out_.append("<data>\n");
    for (std::size_t at = 0; at < encoded.size(); at += static_cast<std::size_t>(width)) {
      indent(level);
      out_.append(encoded, at, static_cast<std::size_t>(width)).push_back('\n');
    }
    indent(level);
    out_.append("</data>\n");
  }

  bool array(const Array& items, std::size_t level) {
    if (!enter(level)) return false;
    indent(level);
    if (items.empty()) {
      out_.append("<array/>\n");
      return true;
    }
    out_.append("<array>\n");
    for (std::size_t i = 0; i < items.size(); ++i) {
      if (!value(items[i], level + 1)) {
        route_.prependIndex(i);
        return false;
      }
    }
    indent(level);
    out_.append("</array>\n");
    return true;
  }

  bool dictionary(const Dictionary& entries, std::size_t level) {
    if (!enter(level)) return false;
    indent(level);
    if (entries.empty()) {
      out_.append("<dict/>\n");
      return true;
    }
    out_.append("<dict>\n");
    for (const auto& [key, item] : entries) {
      if (!text(level + 1, "key", key) || !value(item, level + 1)) {
        route_.prependKey(key);
        return false;
      }
    }
    indent(level);
    out_.append("</dict>\n");
    return true;
  }

  std::string& out_;
};

}  // namespace

std::optional<Bytes> write(const Value& plist, std::string& problem) {
  std::string out(kPrologue);
  Writer writer(out);
  if (!writer.value(plist, 0)) {
    problem = writer.problem("XML property list");
    return std::nullopt;
  }
  out.append(kEpilogue);
  return Bytes(out.begin(), out.end());
}

}  // namespace platform::xml_plist
