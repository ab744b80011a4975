#include "platform/plist/openstep_reader.h"

#include <algorithm>
#include <cstdio>
#include <string_view>
#include <utility>
#include <vector>

#include "platform/foundation/strings.h"
#include "platform/plist/codec_support.h"

namespace platform::openstep_plist {
namespace {

constexpr std::string_view kByteOrderMark = "\xEF\xBB\xBF";

bool isSpace(char c) {
  return c == ' ' || c == '\t' || c == '\n' || c == '\r' || c == '\f' || c == '\v';
}

bool isUnquotedCharacter(char c) {
  return (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z') || (c >= '0' && c <= '9') || c == '_' ||
         c == '$' || c == '/' || c == ':' || c == '.' || c == '-';
}

int hexValue(char c) {
  if (c >= '0' && c <= '9') return c - '0';
  if (c >= 'a' && c <= 'f') return c - 'a' + 10;
  if (c >= 'A' && c <= 'F') return c - 'A' + 10;
  return -1;
}

char unescaped(char c) {
  switch (c) {
    case 'a': return '\a';
    case 'b': return '\b';
    case 'f': return '\f';
    case 'n': return '\n';
    case 'r': return '\r';
    case 't': return '\t';
    case 'v': return '\v';
    default: return c;  // \" and \\ among them
  }
}

// 'x' for a printable character, byte 0xNN for anything else.
std::string shown(char c) {
  char buffer[16];
  if (c > ' ' && c < 0x7F) {
    std::snprintf(buffer, sizeof buffer, "'%c'", c);
  } else {
    std::snprintf(buffer, sizeof buffer, "byte 0x%02X", static_cast<unsigned char>(c));
  }
  return buffer;
}

// Recursive descent; each step returns false once a problem is recorded.
class Parser {
 public:
  explicit Parser(std::string_view text) : text_(text) {
    if (text_.starts_with(kByteOrderMark)) pos_ = kByteOrderMark.size();
  }

  // The first meaningful character, or '\0' when there is none.
  char firstMeaningful() { return skip() && !atEnd() ? peek() : '\0'; }

  bool document(Value& out) {
    if (!skip()) return false;
    if (atEnd()) return fail("no value", pos_);
    const std::size_t start = pos_;
    if (!value(1, out) || !skip()) return false;
    if (atEnd()) return true;
    if (out.asString() && peek() == '=') {
      // The strings-file form: the whole text is a dictionary's entries.
      pos_ = start;
      std::vector<Dictionary::Entry> entries;
      if (!dictionaryEntries(1, start, false, entries)) return false;
      out = Value::dictionary(Dictionary(std::move(entries)));
      return true;
    }
    return fail("unexpected " + shown(peek()) + " after the value", pos_);
  }

  const std::string& problem() const { return problem_; }

 private:
  bool atEnd() const { return pos_ >= text_.size(); }
  char peek() const { return text_[pos_]; }

  bool fail(const std::string& what, std::size_t at) {
    const std::size_t line = 1 + static_cast<std::size_t>(std::count(text_.begin(), text_.begin() + at, '\n'));
    const std::size_t lineStart = at == 0 ? 0 : text_.rfind('\n', at - 1) + 1;  // npos + 1 is 0
    char where[96];
    std::snprintf(where, sizeof where, " at line %zu, column %zu (byte %zu)", line, at - lineStart + 1, at);
    problem_ = "Old-style property list: " + what + where;
    return false;
  }

  // Skips white space and comments; an unterminated /* comment is a problem.
  bool skip() {
    while (!atEnd()) {
      const char c = peek();
      if (isSpace(c)) {
        ++pos_;
      } else if (c == '/' && pos_ + 1 < text_.size() && text_[pos_ + 1] == '/') {
        pos_ = std::min(text_.find('\n', pos_), text_.size());
      } else if (c == '/' && pos_ + 1 < text_.size() && text_[pos_ + 1] == '*') {
        const std::size_t end = text_.find("*/", pos_ + 2);
        if (end == std::string_view::npos) return fail("unterminated comment", pos_);
        pos_ = end + 2;
      } else {
        break;
      }
    }
    return true;
  }

  // A value whose containers, if it is one, sit at nesting level `depth`.
  bool value(std::size_t depth, Value& out) {
    if (atEnd()) return fail("missing value at the end of the text", pos_);
    const char c = peek();
    if (c == '{' || c == '(') {
      if (depth > codec::kMaxNestingDepth) {
        return fail("nesting deeper than " + std::to_string(codec::kMaxNestingDepth) + " levels", pos_);
      }
      return c == '{' ? dictionary(depth, out) : array(depth, out);
    }
    if (c == '<') return data(out);
    std::string text;
    if (c != '"' && !isUnquotedCharacter(c)) return fail("unexpected " + shown(c), pos_);
    if (!string(text)) return false;
    out = Value::string(std::move(text));
    return true;
  }

  bool dictionary(std::size_t depth, Value& out) {
    const std::size_t openedAt = pos_++;
    std::vector<Dictionary::Entry> entries;
    if (!dictionaryEntries(depth, openedAt, true, entries)) return false;
    out = Value::dictionary(Dictionary(std::move(entries)));
    return true;
  }

  // key = value; entries up to '}' when `braced`, else up to the end of the text.
  bool dictionaryEntries(std::size_t depth, std::size_t openedAt, bool braced,
                         std::vector<Dictionary::Entry>& entries) {
    for (;;) {
      if (!skip()) return false;
      if (atEnd()) return braced ? fail("unterminated dictionary", openedAt) : true;
      if (braced && peek() == '}') {
        ++pos_;
        return true;
      }
      std::string key;
      if (peek() != '"' && !isUnquotedCharacter(peek())) {
        return fail("expected a key, found " + shown(peek()), pos_);
      }
      if (!string(key) || !skip()) return false;
      if (atEnd() || peek() != '=') return fail("missing '=' after key \"" + key + "\"", pos_);
      ++pos_;
      Value item;
      if (!skip() || !value(depth + 1, item) || !skip()) return false;
      if (atEnd() || peek() != ';') return fail("missing ';' after the value of \"" + key + "\"", pos_);
      ++pos_;
      entries.emplace_back(std::move(key), std::move(item));
    }
  }

  bool array(std::size_t depth, Value& out) {
    const std::size_t openedAt = pos_++;
    std::vector<Value> items;
    if (!skip()) return false;
    for (;;) {
      if (atEnd()) return fail("unterminated array", openedAt);
      if (peek() == ')') break;
      Value item;
      if (!value(depth + 1, item) || !skip()) return false;
      items.push_back(std::move(item));
      if (atEnd()) return fail("unterminated array", openedAt);
      if (peek() == ',') {
        ++pos_;
        if (!skip()) return false;
      } else if (peek() != ')') {
        return fail("missing ',' before " + shown(peek()) + " in array", pos_);
      }
    }
    ++pos_;
    out = Value::array(Array(std::move(items)));
    return true;
  }

  bool data(Value& out) {
    const std::size_t openedAt = pos_++;
    Bytes bytes;
    int high = -1;  // the first digit of a byte, while waiting for its second
    for (;; ++pos_) {
      if (atEnd()) return fail("unterminated data", openedAt);
      const char c = peek();
      if (c == '>') break;
      if (isSpace(c)) continue;
      const int digit = hexValue(c);
      if (digit < 0) return fail("unexpected " + shown(c) + " in data", pos_);
      if (high < 0) {
        high = digit;
      } else {
        bytes.push_back(static_cast<std::uint8_t>(high << 4 | digit));
        high = -1;
      }
    }
    if (high >= 0) return fail("odd number of hex digits in data", openedAt);
    ++pos_;
    out = Value::data(std::move(bytes));
    return true;
  }

  bool string(std::string& out) {
    if (peek() == '"') return quoted(out);
    const std::size_t start = pos_;
    while (!atEnd() && isUnquotedCharacter(peek())) ++pos_;
    out.assign(text_.substr(start, pos_ - start));
    return true;
  }

  bool quoted(std::string& out) {
    const std::size_t openedAt = pos_++;
    // \U escapes are UTF-16 units; a high surrogate must be followed at once by
    // the \U escape of a low one.
    codec::Utf16ToUtf8 units(out);
    const auto unpaired = [&](std::size_t at) { return fail("unpaired surrogate in a \\U escape", at); };
    for (;;) {
      if (atEnd()) return fail("unterminated quoted string", openedAt);
      if (peek() == '"') {
        if (!units.finish()) return unpaired(pos_);
        ++pos_;
        break;
      }
      if (peek() != '\\') {
        if (!units.finish()) return unpaired(pos_);
        const std::size_t end = std::min(text_.find_first_of("\"\\", pos_), text_.size());
        out.append(text_.substr(pos_, end - pos_));
        pos_ = end;
        continue;
      }
      const std::size_t escapeAt = pos_++;
      if (atEnd()) return fail("unterminated quoted string", openedAt);
      const char c = text_[pos_++];
      if (c == 'U') {
        unsigned unit = 0;
        int digits = 0;
        for (; digits < 4 && !atEnd() && hexValue(peek()) >= 0; ++digits) {
          unit = unit << 4 | static_cast<unsigned>(hexValue(text_[pos_++]));
        }
        if (digits == 0) return fail("\\U escape without hex digits", escapeAt);
        if (!units.push(static_cast<char16_t>(unit))) return unpaired(escapeAt);
        continue;
      }
      if (!units.finish()) return unpaired(escapeAt);
      if (c >= '0' && c <= '7') {
        unsigned code = static_cast<unsigned>(c - '0');
        for (int digits = 1; digits < 3 && !atEnd() && peek() >= '0' && peek() <= '7'; ++digits) {
          code = code << 3 | static_cast<unsigned>(text_[pos_++] - '0');
        }
        if (code > 0377) return fail("octal escape above \\377", escapeAt);
        codec::appendUtf8(out, code);
        continue;
      }
      out.push_back(unescaped(c));
    }
    if (!isValidUtf8(out)) return fail("quoted string is not valid UTF-8", openedAt);
    return true;
  }

  std::string_view text_;
  std::size_t pos_ = 0;
  std::string problem_;
};

std::string_view textOf(std::span<const std::uint8_t> data) {
  return {reinterpret_cast<const char*>(data.data()), data.size()};
}

}  // namespace

bool looksLikeOpenStep(std::span<const std::uint8_t> data) {
  const char first = Parser(textOf(data)).firstMeaningful();
  return first == '{' || first == '(' || first == '<' || first == '"' || isUnquotedCharacter(first);
}

Value read(std::span<const std::uint8_t> data, std::string& problem) {
  Parser parser(textOf(data));
  Value result;
  if (!parser.document(result)) {
    problem = parser.problem();
    return {};
  }
  return result;
}

}  // namespace platform::openstep_plist
