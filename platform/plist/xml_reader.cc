#include "platform/plist/xml_reader.h"

#include <expat.h>

#include <algorithm>
#include <array>
#include <climits>
#include <iterator>
#include <cstdio>
#include <optional>
#include <string_view>
#include <vector>

#include "platform/plist/codec_support.h"
#include "platform/plist/xml_format.h"

namespace platform::xml_plist {
namespace {

enum class Element : std::uint8_t {
  Plist, Dict, Array, Key, String, Integer, Real, Date, Data, True, False
};

struct ElementName {
  std::string_view name;
  Element element;
};

constexpr std::array<ElementName, 11> kElements{{
    {"plist", Element::Plist}, {"dict", Element::Dict},       {"array", Element::Array},
    {"key", Element::Key},     {"string", Element::String},   {"integer", Element::Integer},
    {"real", Element::Real},   {"date", Element::Date},       {"data", Element::Data},
    {"true", Element::True},   {"false", Element::False},
}};

bool isContainer(Element e) { return e == Element::Plist || e == Element::Dict || e == Element::Array; }

bool isXmlSpace(char c) { return c == ' ' || c == '\t' || c == '\n' || c == '\r'; }

// Text the plain reader takes as it stands: printable ASCII, tabs and newlines,
// without the '&' of a reference or the ']' of a stray "]]>".
bool isPlain(char c) { return (c >= 0x20 && c < 0x7F && c != '&' && c != ']') || c == '\t' || c == '\n'; }

// The element named `name`; nullptr for an unknown name. Five of the names have
// four letters: the first letter tells them apart before their bytes are compared.
const ElementName* find(std::string_view name) {
  const auto* known = std::find_if(kElements.begin(), kElements.end(), [&](const ElementName& e) {
    return !name.empty() && e.name.front() == name.front() && e.name == name;
  });
  return known == kElements.end() ? nullptr : known;
}

// A byte-order mark, the encoding it names for libexpat and the width of a code
// unit after it. The last row, without a mark, matches any document.
struct ByteOrderMark {
  std::string_view bytes;
  const char* encoding;
  std::size_t unitBytes;
  bool bigEndian;
};

constexpr std::array<ByteOrderMark, 4> kMarks{{
    {"\xEF\xBB\xBF", "UTF-8", 1, false},
    {"\xFF\xFE", "UTF-16", 2, false},
    {"\xFE\xFF", "UTF-16", 2, true},
    {"", nullptr, 1, false},
}};

const ByteOrderMark& markOf(std::span<const std::uint8_t> data) {
  const std::string_view start(reinterpret_cast<const char*>(data.data()), data.size());
  return *std::find_if(kMarks.begin(), kMarks.end(), [&](const ByteOrderMark& m) { return start.starts_with(m.bytes); });
}

unsigned codeUnit(std::span<const std::uint8_t> data, std::size_t at, const ByteOrderMark& mark) {
  if (mark.unitBytes == 1) return data[at];
  const unsigned first = data[at], second = data[at + 1];
  return mark.bigEndian ? first << 8 | second : second << 8 | first;
}

// libexpat takes a high surrogate and whatever unit follows it for a pair, so an
// unpaired surrogate would silently become another character: refuse it, and a
// last character cut in half, before parsing. Returns what is wrong, or nothing.
std::optional<std::string> utf16Problem(std::span<const std::uint8_t> data, const ByteOrderMark& mark) {
  if (data.size() % 2 != 0) return "UTF-16 text ends inside a character at byte " + std::to_string(data.size() - 1);
  const auto unpaired = [](std::size_t at) { return "unpaired surrogate at byte " + std::to_string(at); };
  const auto isLow = [](unsigned unit) { return unit >= 0xDC00 && unit <= 0xDFFF; };
  for (std::size_t at = mark.bytes.size(); at < data.size(); at += 2) {
    const unsigned unit = codeUnit(data, at, mark);
    if (isLow(unit)) return unpaired(at);
    if (unit >= 0xD800 && unit <= 0xDBFF) {
      if (at + 2 == data.size() || !isLow(codeUnit(data, at + 2, mark))) return unpaired(at);
      at += 2;  // the pair's low half
    }
  }
  return std::nullopt;
}

std::string_view trimmed(std::string_view text) {
  while (!text.empty() && isXmlSpace(text.front())) text.remove_prefix(1);
  while (!text.empty() && isXmlSpace(text.back())) text.remove_suffix(1);
  return text;
}

// Decimal or "0x" hexadecimal, optionally signed; from -2^63 to 2^64-1.
std::optional<Value> parseInteger(std::string_view text) {
  bool negative = false;
  if (!text.empty() && (text.front() == '-' || text.front() == '+')) {
    negative = text.front() == '-';
    text.remove_prefix(1);
  }
  unsigned base = 10;
  if (text.size() > 2 && text[0] == '0' && (text[1] == 'x' || text[1] == 'X')) {
    base = 16;
    text.remove_prefix(2);
  }
  if (text.empty()) return std::nullopt;
  std::uint64_t magnitude = 0;
  for (char c : text) {
    unsigned digit;
    if (c >= '0' && c <= '9') {
      digit = static_cast<unsigned>(c - '0');
    } else if (base == 16 && c >= 'a' && c <= 'f') {
      digit = static_cast<unsigned>(c - 'a' + 10);
    } else if (base == 16 && c >= 'A' && c <= 'F') {
      digit = static_cast<unsigned>(c - 'A' + 10);
    } else {
      return std::nullopt;
    }
    if (magnitude > (UINT64_MAX - digit) / base) return std::nullopt;
    magnitude = magnitude * base + digit;
  }
  if (!negative) return Value::unsignedInteger(magnitude);
  if (magnitude > static_cast<std::uint64_t>(INT64_MAX) + 1) return std::nullopt;
  return Value::integer(static_cast<std::int64_t>(0 - magnitude));
}

// One open element. A container's children wait on the reader's shared stacks
// from `firstChild` on until it closes, when they move into storage of exactly
// their number; a leaf's text gathers in the reader's one text buffer, as
// leaves hold no elements.
struct Frame {
  Element element;
  std::size_t firstChild = 0;
  // A dictionary's last entry has its key and waits for its value.
  bool keyPending = false;
};

class Reader {
 public:
  // Without a parser, the reader reads plain documents itself (readPlain).
  explicit Reader(XML_Parser parser = nullptr) : parser_(parser) {
    if (!parser) return;
    XML_SetUserData(parser, this);
    XML_SetElementHandler(parser, &Reader::onStart, &Reader::onEnd);
    XML_SetCharacterDataHandler(parser, &Reader::onText);
    // Entities are the road to expansion bombs and external fetches; property
    // lists never need them beyond the five predefined ones.
    XML_SetEntityDeclHandler(parser, &Reader::onEntityDeclaration);
    XML_SetSkippedEntityHandler(parser, &Reader::onSkippedEntity);
    XML_SetParamEntityParsing(parser, XML_PARAM_ENTITY_PARSING_NEVER);
  }

  Value parse(std::span<const std::uint8_t> data, std::string& problem) {
    // XML_Parse takes an int length; feed large inputs in slices.
    constexpr std::size_t kSlice = 1 << 30;
    std::size_t at = 0;
    do {
      const std::size_t length = std::min(kSlice, data.size() - at);
      const bool last = at + length == data.size();
      const auto status = XML_Parse(parser_, reinterpret_cast<const char*>(data.data() + at),
                                    static_cast<int>(length), last);
      if (status != XML_STATUS_OK) {
        if (problem_.empty()) fail(XML_ErrorString(XML_GetErrorCode(parser_)));
        problem = problem_;
        return {};
      }
      at += length;
    } while (at < data.size());
    if (!result_) {
      problem = "XML property list holds no value";
      return {};
    }
    return std::move(result_);
  }

  // Reads a document made only of what writers write, without libexpat: the
  // declaration and document type as the platform writes them (or none),
  // elements without attributes but the plist's version, and text of printable
  // ASCII without references, carriage returns or ']'. Nullopt for any other
  // document, and for one the reader refuses, for libexpat to read again and to
  // say where it goes wrong.
  std::optional<Value> readPlain(std::string_view text) {
    std::size_t at = 0;
    const auto skip = [&](std::string_view literal) {
      if (text.substr(at, literal.size()) != literal) return false;
      at += literal.size();
      return true;
    };
    skip(kDeclaration);
    skip(kDocumentType);
    bool rootSeen = false;
    while (at < text.size() && problem_.empty()) {
      if (text[at] != '<') {
        const std::string_view chars = text.substr(at, text.find('<', at) - at);
        if (!std::all_of(chars.begin(), chars.end(), isPlain)) return std::nullopt;
        if (stack_.empty() && !std::all_of(chars.begin(), chars.end(), [](char c) { return isXmlSpace(c); })) {
          return std::nullopt;
        }
        characters(chars);
        at += chars.size();
        continue;
      }
      const bool closing = skip("</");
      if (!closing) ++at;
      const std::size_t nameAt = at;
      while (at < text.size() && text[at] >= 'a' && text[at] <= 'z') ++at;
      const std::string_view name = text.substr(nameAt, at - nameAt);
      const ElementName* known = find(name);
      if (!known) return std::nullopt;
      if (closing) {
        if (!skip(">") || stack_.empty() || stack_.back().element != known->element) return std::nullopt;
        end();
        continue;
      }
      if (rootSeen && stack_.empty()) return std::nullopt;
      rootSeen = true;
      if (known->element == Element::Plist) skip(kPlistAttributes);
      const bool empty = skip("/>");
      if (!empty && !skip(">")) return std::nullopt;
      start(name);
      if (empty) end();
    }
    if (!problem_.empty() || !stack_.empty() || !result_) return std::nullopt;
    return std::move(result_);
  }

 private:
  static Reader& self(void* data) { return *static_cast<Reader*>(data); }

  static void XMLCALL onStart(void* data, const XML_Char* name, const XML_Char**) {
    self(data).start(name);
  }
  static void XMLCALL onEnd(void* data, const XML_Char*) { self(data).end(); }
  static void XMLCALL onText(void* data, const XML_Char* text, int length) {
    self(data).characters(std::string_view(text, static_cast<std::size_t>(length)));
  }
  static void XMLCALL onEntityDeclaration(void* data, const XML_Char* name, int, const XML_Char*,
                                          int, const XML_Char*, const XML_Char*, const XML_Char*,
                                          const XML_Char*) {
    self(data).fail("entity declaration \"" + std::string(name) + "\" is not allowed");
  }
  static void XMLCALL onSkippedEntity(void* data, const XML_Char* name, int) {
    self(data).fail("unknown entity \"" + std::string(name) + "\"");
  }

  // Records the first problem, with where the parser stands, and stops parsing.
  void fail(const std::string& what) {
    if (!problem_.empty()) return;
    if (!parser_) {
      problem_ = what;  // the plain reader gives way to libexpat, which says where
      return;
    }
    char where[96];
    std::snprintf(where, sizeof where, " at line %lu, column %lu (byte %lld)",
                  static_cast<unsigned long>(XML_GetCurrentLineNumber(parser_)),
                  static_cast<unsigned long>(XML_GetCurrentColumnNumber(parser_)) + 1,
                  static_cast<long long>(XML_GetCurrentByteIndex(parser_)));
    problem_ = "XML property list: " + what + where;
    XML_StopParser(parser_, XML_FALSE);
  }

  void start(std::string_view name) {
    if (!problem_.empty()) return;
    const ElementName* known = find(name);
    if (!known) return fail("unknown element <" + std::string(name) + ">");
    if (!stack_.empty() && !isContainer(stack_.back().element)) {
      return fail("element <" + std::string(name) + "> inside <" + nameOf(stack_.back().element) + ">");
    }
    if (known->element == Element::Plist && !stack_.empty()) return fail("nested <plist>");
    // Only <dict> and <array> count towards the cap, as in every other codec;
    // below the <plist> root every open element is one of them.
    const bool insidePlist = !stack_.empty() && stack_.front().element == Element::Plist;
    const std::size_t openContainers = stack_.size() - (insidePlist ? 1 : 0);
    const bool opensContainer = known->element == Element::Dict || known->element == Element::Array;
    if (opensContainer && openContainers >= codec::kMaxNestingDepth) {
      return fail("nesting deeper than " + std::to_string(codec::kMaxNestingDepth) + " levels");
    }
    text_.clear();
    stack_.push_back(Frame{known->element, known->element == Element::Dict ? entries_.size() : items_.size()});
  }

  void characters(std::string_view text) {
    if (!problem_.empty() || stack_.empty()) return;
    const Frame& top = stack_.back();
    if (!isContainer(top.element)) {
      text_.append(text);
    } else if (!std::all_of(text.begin(), text.end(), [](char c) { return isXmlSpace(c); })) {
      fail("text inside <" + nameOf(top.element) + ">");
    }
  }

  void end() {
    if (!problem_.empty()) return;
    const Frame frame = stack_.back();
    stack_.pop_back();
    switch (frame.element) {
      case Element::Plist:
        if (!result_) fail("empty <plist>");
        return;
      case Element::Dict: {
        if (frame.keyPending) return fail("key \"" + entries_.back().first + "\" without a value");
        const auto first = entries_.begin() + static_cast<std::ptrdiff_t>(frame.firstChild);
        std::vector<Dictionary::Entry> entries(std::make_move_iterator(first), std::make_move_iterator(entries_.end()));
        entries_.erase(first, entries_.end());
        return deliver(Value::dictionary(Dictionary(std::move(entries))));
      }
      case Element::Array: {
        const auto first = items_.begin() + static_cast<std::ptrdiff_t>(frame.firstChild);
        std::vector<Value> items(std::make_move_iterator(first), std::make_move_iterator(items_.end()));
        items_.erase(first, items_.end());
        return deliver(Value::array(Array(std::move(items))));
      }
      case Element::Key:
        return deliverKey();
      // The text buffer is copied rather than moved so that it keeps its room for the next leaf.
      case Element::String:
        return deliver(Value::string(text_));
      case Element::Integer:
        if (auto v = parseInteger(trimmed(text_))) return deliver(std::move(*v));
        return fail("bad <integer> \"" + text_ + "\"");
      case Element::Real:
        if (auto v = codec::parseReal(trimmed(text_))) return deliver(Value::real(*v));
        return fail("bad <real> \"" + text_ + "\"");
      case Element::Date:
        if (auto v = codec::parseIsoDate(trimmed(text_))) return deliver(Value::date(*v));
        return fail("bad <date> \"" + text_ + "\"");
      case Element::Data:
        if (auto v = codec::decodeBase64(text_)) return deliver(Value::data(std::move(*v)));
        return fail("bad base64 in <data>");
      case Element::True:
      case Element::False:
        if (!trimmed(text_).empty()) return fail("text inside <" + nameOf(frame.element) + "/>");
        return deliver(Value::boolean(frame.element == Element::True));
    }
  }

  void deliver(Value value) {
    if (stack_.empty()) {
      result_ = std::move(value);
      return;
    }
    Frame& parent = stack_.back();
    switch (parent.element) {
      case Element::Plist:
        if (result_) return fail("more than one value in <plist>");
        result_ = std::move(value);
        return;
      case Element::Array:
        items_.push_back(std::move(value));
        return;
      default:  // a dictionary: the only other container
        if (!parent.keyPending) return fail("value without a <key> in <dict>");
        entries_.back().second = std::move(value);
        parent.keyPending = false;
        return;
    }
  }

  void deliverKey() {
    if (stack_.empty() || stack_.back().element != Element::Dict) return fail("<key> outside <dict>");
    Frame& parent = stack_.back();
    if (parent.keyPending) return fail("key \"" + entries_.back().first + "\" without a value");
    entries_.emplace_back(text_, Value());
    parent.keyPending = true;
  }

  static std::string nameOf(Element element) {
    for (const auto& e : kElements) {
      if (e.element == element) return std::string(e.name);
    }
    return {};
  }

  XML_Parser parser_;
  std::vector<Frame> stack_;
  // The children of every open array, and the entries of every open dictionary, in document order.
  std::vector<Value> items_;
  std::vector<Dictionary::Entry> entries_;
  std::string text_;
  Value result_;
  std::string problem_;
};

}  // namespace

bool looksLikeXml(std::span<const std::uint8_t> data) {
  const ByteOrderMark& mark = markOf(data);
  // The opening markup is ASCII: gather it, after white space, in whichever width the mark sets.
  constexpr std::size_t kLongestOpening = std::string_view("<!DOCTYPE").size();
  std::string opening;
  for (std::size_t at = mark.bytes.size(); at + mark.unitBytes <= data.size() && opening.size() < kLongestOpening;
       at += mark.unitBytes) {
    const unsigned unit = codeUnit(data, at, mark);
    if (unit >= 0x80) break;
    if (opening.empty() && isXmlSpace(static_cast<char>(unit))) continue;
    opening += static_cast<char>(unit);
  }
  return opening.starts_with("<?xml") || opening.starts_with("<!DOCTYPE") || opening.starts_with("<plist");
}

Value read(std::span<const std::uint8_t> data, std::string& problem) {
  if (markOf(data).bytes.empty()) {
    const std::string_view text(reinterpret_cast<const char*>(data.data()), data.size());
    if (std::optional<Value> plain = Reader().readPlain(text)) return std::move(*plain);
  }
  return readThroughExpat(data, problem);
}

Value readThroughExpat(std::span<const std::uint8_t> data, std::string& problem) {
  const ByteOrderMark& mark = markOf(data);
  if (mark.unitBytes == 2) {
    if (auto invalid = utf16Problem(data, mark)) {
      problem = "XML property list: " + *invalid;
      return {};
    }
  }
  // A mark decides the encoding, whatever the XML declaration names.
  XML_Parser parser = XML_ParserCreate(mark.encoding);
  if (!parser) {
    problem = "XML property list: out of memory";
    return {};
  }
  Value result = Reader(parser).parse(data, problem);
  XML_ParserFree(parser);
  return result;
}

}  // namespace platform::xml_plist
