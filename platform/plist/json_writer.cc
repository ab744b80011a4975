#include "platform/plist/json_writer.h"

#include <cmath>
#include <cstdio>
#include <string_view>

#include "platform/foundation/strings.h"
#include "platform/plist/codec_support.h"
#include "platform/plist/property_list.h"
#include "platform/plist/writer_support.h"

namespace platform::json {
namespace {

class Writer : public codec::RefusingWriter {
 public:
  explicit Writer(std::string& out) : out_(out) {}

  // Appends `v`, whose first line the caller has already indented to `level`.
  bool value(const Value& v, std::size_t level) {
    switch (v.kind()) {
      case Value::Kind::Boolean:
        out_.append(*v.asBoolean() ? "true" : "false");
        return true;
      case Value::Kind::Integer:
        out_.append(codec::decimalText(*v.asInteger()));
        return true;
      case Value::Kind::Real:
        if (!std::isfinite(*v.asReal())) return refuse("a non-finite number");
        out_.append(codec::formatReal(*v.asReal()));
        return true;
      case Value::Kind::String: return string(*v.asString());
      case Value::Kind::Array: return array(*v.asArray(), level);
      case Value::Kind::Dictionary: return dictionary(*v.asDictionary(), level);
      case Value::Kind::Date: return refuse("a date");
      case Value::Kind::Data: return refuse("data");
      case Value::Kind::Error: return refuse("an error object");
      case Value::Kind::Uid: return refuse("a UID");
      case Value::Kind::None: return refuse("an absent value");
    }
    return refuse("an unknown kind of value");
  }

 private:
  void indent(std::size_t level) { out_.append(2 * level, ' '); }

  bool string(std::string_view text) {
    if (!isValidUtf8(text)) return refuse("text that is not valid UTF-8");
    out_.push_back('"');
    for (char c : text) {
      switch (c) {
        case '"': out_.append("\\\""); break;
        case '\\': out_.append("\\\\"); break;
        case '/': out_.append("\\/"); break;
        case '\b': out_.append("\\b"); break;
        case '\f': out_.append("\\f"); break;
        case '\n': out_.append("\\n"); break;
        case '\r': out_.append("\\r"); break;
        case '\t': out_.append("\\t"); break;
        default:
          if (static_cast<unsigned char>(c) < 0x20) {
            char escape[8];
            std::snprintf(escape, sizeof escape, "\\u%04x", static_cast<unsigned>(c));
            out_.append(escape);
          } else {
            out_.push_back(c);
          }
      }
    }
    out_.push_back('"');
    return true;
  }

  // Between the brackets: a newline, the entries joined by ",\n", a newline.
  void close(std::size_t level, char bracket) {
    out_.push_back('\n');
    indent(level);
    out_.push_back(bracket);
  }

  bool array(const Array& items, std::size_t level) {
    if (!enter(level)) return false;
    out_.append("[\n");
    for (std::size_t i = 0; i < items.size(); ++i) {
      if (i > 0) out_.append(",\n");
      indent(level + 1);
      if (!value(items[i], level + 1)) {
        route_.prependIndex(i);
        return false;
      }
    }
    close(level, ']');
    return true;
  }

  bool entry(std::string_view key, const Value& item, std::size_t level) {
    if (!string(key)) return false;
    out_.append(" : ");
    return value(item, level);
  }

  bool dictionary(const Dictionary& entries, std::size_t level) {
    if (!enter(level)) return false;
    out_.append("{\n");
    bool first = true;
    for (const auto& [key, item] : entries) {
      if (!first) out_.append(",\n");
      first = false;
      indent(level + 1);
      if (!entry(key, item, level + 1)) {
        route_.prependKey(key);
        return false;
      }
    }
    close(level, '}');
    return true;
  }

  std::string& out_;
};

}  // namespace

std::optional<Bytes> dataWithJSONObject(const Value& object, ErrorRef* error) {
  std::string out;
  Writer writer(out);
  std::string problem;
  if (!object.asDictionary() && !object.asArray()) {
    problem = "JSON: the top-level object must be a dictionary or an array";
  } else if (!writer.value(object, 0)) {
    problem = writer.problem("JSON");
  } else {
    return Bytes(out.begin(), out.end());
  }
  if (error) {
    *error = Error::make(NSCocoaErrorDomain, NSPropertyListWriteInvalidError,
                         {{NSLocalizedDescriptionKey, Value::string(std::move(problem))}});
  }
  return std::nullopt;
}

}  // namespace platform::json
