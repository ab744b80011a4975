// What the property-list and JSON codecs share: the nesting cap, and the text
// forms of reals, dates and base64 data.
#pragma once

#include <cstddef>
#include <cstdint>
#include <optional>
#include <span>
#include <string>
#include <string_view>

#include "platform/plist/value.h"

namespace platform::codec {

// Containers nested deeper than this are refused by every reader and writer, so
// that hostile input cannot exhaust the stack or build absurd structures.
inline constexpr std::size_t kMaxNestingDepth = 512;

// What a value weighs where it stands: each object at nesting depth d (the top
// at 0) weighs 1 + d plus the bytes of its string or data, since whatever
// prints it writes a line indented that deep. A shared object weighs that at
// every reference, so it is kept as its weight standing at the top and the
// number of objects it spans, itself included: at depth d it weighs d more for
// each of them. Sums saturate at the largest weight rather than overflow, since
// sharing can describe far more than 2^64.
struct Weight {
  std::uint64_t atTop = 0;
  std::uint64_t objects = 0;

  // One object carrying `payload` bytes of text or data, holding nothing yet.
  static Weight object(std::uint64_t payload) { return {1 + payload, 1}; }

  // What it weighs standing `depth` levels down.
  std::uint64_t at(std::size_t depth) const { return saturatingSum(atTop, saturatingProduct(depth, objects)); }

  // Takes `item`, which stands `levels` below this object, into this object's weight.
  // Inline, as readers and writers call it for every object.
  void hold(const Weight& item, std::size_t levels) {
    atTop = saturatingSum(atTop, item.at(levels));
    objects = saturatingSum(objects, item.objects);
  }

 private:
  static std::uint64_t saturatingSum(std::uint64_t a, std::uint64_t b) {
    std::uint64_t sum;
    return __builtin_add_overflow(a, b, &sum) ? UINT64_MAX : sum;
  }
  static std::uint64_t saturatingProduct(std::uint64_t a, std::uint64_t b) {
    std::uint64_t product;
    return __builtin_mul_overflow(a, b, &product) ? UINT64_MAX : product;
  }
};

// A document that shares objects (a binary property list through its object
// references, a keyed archive through its UIDs) stands for more than it stores:
// a few hundred bytes can describe 2^60 objects, or a few thousand nested a few
// hundred deep. Its readers weigh what they build and refuse a document heavier
// than a bound linear in its stored size; whatever walks the value they return
// (writers, descriptions, checks) then costs time linear in what was read.
// Its writers weigh what they write the same way and refuse a value heavier than
// the budget of the document they made of it, so that what they write reads.
class ExpansionBudget {
 public:
  // Weight admitted per stored byte, and for any document however small. Plain
  // documents weigh a few times their size; sharing keys and strings, as writers
  // do, multiplies that by a few at most. The floor admits a small document
  // that repeats one string thousands of times, as writers store it once.
  static constexpr std::uint64_t kWeightPerByte = 16;
  static constexpr std::uint64_t kFloor = std::uint64_t{1} << 20;

  // How every refusal for weight begins, by which it is told from other refusals.
  static constexpr std::string_view kRefusalPhrase = "through shared references";

  explicit ExpansionBudget(std::size_t storedBytes);

  // The heaviest value a document of the given size may describe.
  std::uint64_t limit() const { return limit_; }

  // The bytes of a string or data, which an object carries beside its own weight; 0 for other kinds.
  static std::uint64_t payload(const Value& v);

  // True when a document of this size may describe a value of `weight`.
  bool admits(std::uint64_t weight) const { return weight <= limit_; }

  // Why a document of this kind ("the document", "the archive", "it") was refused:
  // kRefusalPhrase, then what was too heavy.
  std::string refusal(std::string_view whole) const;

 private:
  std::uint64_t limit_;
};

// The shortest text that reads back as exactly `d`, laid out like printf's %g:
// "1", "0.5", "1e+16", "1e-05", "-0", "nan", "inf", "-inf".
std::string formatReal(double d);

// Reads a real as the text property lists write it: decimal or exponent form,
// an optional sign, "nan", "inf" and "infinity" in any case. Nullopt unless the
// whole text is one number.
std::optional<double> parseReal(std::string_view text);

// True when `date` is a number of seconds within about 31 million years of
// 2001, the span whose calendar form the formatters below compute exactly. Any
// other date (not a number, infinite or further out) has no calendar form: they
// print its seconds since 2001 as formatReal does ("nan", "inf", "1e+300").
bool hasCalendarForm(Date date);

// The UTC calendar form "2021-01-05T09:07:03Z" (fractions of seconds dropped,
// rounding towards the past).
std::string formatIsoDate(Date date);

// The description form "2021-01-05 09:07:03 +0000".
std::string formatDescriptionDate(Date date);

// Reads "YYYY-MM-DDTHH:MM:SSZ" (with an optional fraction of seconds); nullopt
// for anything else, out-of-range fields included.
std::optional<Date> parseIsoDate(std::string_view text);

// Standard base64 with padding, as one unbroken line.
std::string encodeBase64(std::span<const std::uint8_t> bytes);

// Decodes base64, skipping ASCII white space anywhere. Nullopt on a character
// outside the alphabet, on misplaced padding or on a truncated final group.
std::optional<Bytes> decodeBase64(std::string_view text);

// How many bytes `text` starts with below 0x80: its size when it is all ASCII.
std::size_t asciiPrefixLength(std::string_view text);

// Decodes the UTF-8 sequence that starts at text[i] into `cp`. Returns its
// length, or 0 when it is malformed: overlong, a surrogate, beyond U+10FFFF or
// cut short.
std::size_t decodeUtf8(std::string_view text, std::size_t i, char32_t& cp);

// Appends code point `cp` as UTF-8.
void appendUtf8(std::string& out, char32_t cp);

// Turns UTF-16 code units, fed one at a time, into UTF-8. push() and finish()
// return false on an unpaired surrogate.
class Utf16ToUtf8 {
 public:
  explicit Utf16ToUtf8(std::string& out) : out_(out) {}
  bool push(char16_t unit);
  bool finish() const { return pendingHigh_ == 0; }

 private:
  std::string& out_;
  char16_t pendingHigh_ = 0;
};

// The UTF-16 code units of UTF-8 `text`; nullopt when it is not valid UTF-8.
std::optional<std::u16string> utf16FromUtf8(std::string_view text);

}  // namespace platform::codec
