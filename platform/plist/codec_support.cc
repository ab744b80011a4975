#include "platform/plist/codec_support.h"

#include <algorithm>
#include <array>
#include <charconv>
#include <cmath>
#include <cstdio>
#include <cstring>

namespace platform::codec {
namespace {

// Days since 1970-01-01 of a proleptic Gregorian date, and back (the classic
// era-based conversion, exact for every representable year).
std::int64_t daysFromCivil(std::int64_t y, unsigned m, unsigned d) {
  y -= m <= 2;
  const std::int64_t era = (y >= 0 ? y : y - 399) / 400;
  const auto yoe = static_cast<unsigned>(y - era * 400);
  const unsigned doy = (153 * (m > 2 ? m - 3 : m + 9) + 2) / 5 + d - 1;
  const unsigned doe = yoe * 365 + yoe / 4 - yoe / 100 + doy;
  return era * 146097 + static_cast<std::int64_t>(doe) - 719468;
}

struct Civil {
  std::int64_t year;
  unsigned month, day, hour, minute, second;
};

// The calendar form is computed for dates up to this many seconds either side
// of 2001, where the whole seconds and days fit 64-bit integers with room to spare.
constexpr double kCalendarLimit = 1e15;

// `date` must have a calendar form.
Civil civilFromDate(Date date) {
  const auto seconds = static_cast<std::int64_t>(std::floor(date.unixTime()));
  std::int64_t days = seconds / 86400;
  std::int64_t rest = seconds % 86400;
  if (rest < 0) {
    rest += 86400;
    --days;
  }
  days += 719468;
  const std::int64_t era = (days >= 0 ? days : days - 146096) / 146097;
  const auto doe = static_cast<unsigned>(days - era * 146097);
  const unsigned yoe = (doe - doe / 1460 + doe / 36524 - doe / 146096) / 365;
  const unsigned doy = doe - (365 * yoe + yoe / 4 - yoe / 100);
  const unsigned mp = (5 * doy + 2) / 153;
  const unsigned day = doy - (153 * mp + 2) / 5 + 1;
  const unsigned month = mp < 10 ? mp + 3 : mp - 9;
  const std::int64_t year = static_cast<std::int64_t>(yoe) + era * 400 + (month <= 2);
  return {year, month, day, static_cast<unsigned>(rest / 3600),
          static_cast<unsigned>(rest / 60 % 60), static_cast<unsigned>(rest % 60)};
}

void appendTwoDigits(std::string& out, unsigned value) {
  out.push_back(static_cast<char>('0' + value / 10));
  out.push_back(static_cast<char>('0' + value % 10));
}

// "YYYY-MM-DD" + `middle` + "HH:MM:SS" + `end`, or the seconds of a date that
// has no calendar form. The year takes four places at least, a minus sign among
// them ("0005", "-001", "12345"). Spelled by hand: through printf, the spelling
// cost more than the rest of writing a date.
std::string formatCivil(Date date, std::string_view middle, std::string_view end) {
  if (!hasCalendarForm(date)) return formatReal(date.sinceReferenceDate);
  const Civil c = civilFromDate(date);
  char digits[24];
  const std::uint64_t magnitude = c.year < 0 ? 0 - static_cast<std::uint64_t>(c.year) : static_cast<std::uint64_t>(c.year);
  const auto digitsEnd = std::to_chars(digits, digits + sizeof digits, magnitude).ptr;
  const auto digitCount = static_cast<std::size_t>(digitsEnd - digits);
  const std::size_t places = c.year < 0 ? 3 : 4;
  std::string out;
  out.reserve(32);
  if (c.year < 0) out.push_back('-');
  if (digitCount < places) out.append(places - digitCount, '0');
  out.append(digits, digitCount);
  out.push_back('-');
  appendTwoDigits(out, c.month);
  out.push_back('-');
  appendTwoDigits(out, c.day);
  out.append(middle);
  appendTwoDigits(out, c.hour);
  out.push_back(':');
  appendTwoDigits(out, c.minute);
  out.push_back(':');
  appendTwoDigits(out, c.second);
  out.append(end);
  return out;
}

bool readDigits(std::string_view text, std::size_t at, std::size_t count, unsigned& out) {
  if (at + count > text.size()) return false;
  out = 0;
  for (std::size_t i = at; i < at + count; ++i) {
    if (text[i] < '0' || text[i] > '9') return false;
    out = out * 10 + static_cast<unsigned>(text[i] - '0');
  }
  return true;
}

constexpr std::string_view kBase64Alphabet =
    "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789+/";

constexpr std::array<std::int8_t, 256> makeBase64Values() {
  std::array<std::int8_t, 256> values{};
  for (auto& v : values) v = -1;
  for (std::size_t i = 0; i < kBase64Alphabet.size(); ++i) {
    values[static_cast<unsigned char>(kBase64Alphabet[i])] = static_cast<std::int8_t>(i);
  }
  return values;
}
constexpr std::array<std::int8_t, 256> kBase64Values = makeBase64Values();

bool isAsciiSpace(char c) { return c == ' ' || c == '\t' || c == '\n' || c == '\r' || c == '\f' || c == '\v'; }

}  // namespace

ExpansionBudget::ExpansionBudget(std::size_t storedBytes) {
  // Capped far above any real document, so that the limit itself never overflows.
  constexpr std::uint64_t kCeiling = std::uint64_t{1} << 62;
  const std::uint64_t bytes = std::min<std::uint64_t>(storedBytes, (kCeiling - kFloor) / kWeightPerByte);
  limit_ = kFloor + kWeightPerByte * bytes;
}

std::uint64_t ExpansionBudget::payload(const Value& v) {
  if (const std::string* text = v.asString()) return text->size();
  if (const Bytes* bytes = v.asData()) return bytes->size();
  return 0;
}

std::string ExpansionBudget::refusal(std::string_view whole) const {
  return std::string(kRefusalPhrase) + " " + std::string(whole) + " describes more than " + std::to_string(limit_) +
         " objects, levels of nesting and bytes of text and data";
}

std::string formatReal(double d) {
  if (std::isnan(d)) return "nan";
  if (std::isinf(d)) return d < 0 ? "-inf" : "inf";
  // to_chars gives the shortest round-trip digits; only the layout is ours.
  char sci[64];
  const auto result = std::to_chars(sci, sci + sizeof sci, d, std::chars_format::scientific);
  const std::string_view text(sci, static_cast<std::size_t>(result.ptr - sci));
  const std::size_t e = text.find('e');
  std::string_view mantissa = text.substr(0, e);
  int exponent = 0;
  std::from_chars(text.data() + e + 1 + (text[e + 1] == '+'), text.data() + text.size(), exponent);
  std::string out;
  if (mantissa.front() == '-') {
    out.push_back('-');
    mantissa.remove_prefix(1);
  }
  std::string digits;
  for (char c : mantissa) {
    if (c != '.') digits.push_back(c);
  }
  if (exponent < -4 || exponent >= 16) {
    out.push_back(digits[0]);
    if (digits.size() > 1) {
      out.push_back('.');
      out.append(digits, 1);
    }
    char exp[16];
    std::snprintf(exp, sizeof exp, "e%c%02d", exponent < 0 ? '-' : '+', std::abs(exponent));
    out.append(exp);
  } else if (exponent < 0) {
    out.append("0.");
    out.append(static_cast<std::size_t>(-exponent - 1), '0');
    out.append(digits);
  } else {
    const auto intDigits = static_cast<std::size_t>(exponent) + 1;
    if (digits.size() <= intDigits) {
      out.append(digits);
      out.append(intDigits - digits.size(), '0');
    } else {
      out.append(digits, 0, intDigits);
      out.push_back('.');
      out.append(digits, intDigits);
    }
  }
  return out;
}

std::optional<double> parseReal(std::string_view text) {
  bool negative = false;
  if (!text.empty() && (text.front() == '+' || text.front() == '-')) {
    negative = text.front() == '-';
    text.remove_prefix(1);
  }
  // from_chars takes no sign of its own here, so "+-1" and "--1" stay errors.
  if (text.empty() || text.front() == '+' || text.front() == '-') return std::nullopt;
  double value = 0;
  const auto result = std::from_chars(text.data(), text.data() + text.size(), value);
  if (result.ec == std::errc::invalid_argument || result.ptr != text.data() + text.size()) {
    return std::nullopt;
  }
  // Out of range: from_chars leaves the value alone; overflow reads as infinity
  // and underflow as zero, as strtod gives them.
  if (result.ec == std::errc::result_out_of_range) {
    std::string copy(text);
    value = std::strtod(copy.c_str(), nullptr);
  }
  return negative ? -value : value;
}

bool hasCalendarForm(Date date) { return std::fabs(date.sinceReferenceDate) <= kCalendarLimit; }

std::string formatIsoDate(Date date) {
  return formatCivil(date, "T", "Z");
}

std::string formatDescriptionDate(Date date) {
  return formatCivil(date, " ", " +0000");
}

std::optional<Date> parseIsoDate(std::string_view text) {
  unsigned year, month, day, hour, minute, second;
  if (text.size() < 20 || !readDigits(text, 0, 4, year) || text[4] != '-' ||
      !readDigits(text, 5, 2, month) || text[7] != '-' || !readDigits(text, 8, 2, day) ||
      text[10] != 'T' || !readDigits(text, 11, 2, hour) || text[13] != ':' ||
      !readDigits(text, 14, 2, minute) || text[16] != ':' || !readDigits(text, 17, 2, second)) {
    return std::nullopt;
  }
  double fraction = 0;
  std::size_t at = 19;
  if (text[at] == '.') {
    double scale = 0.1;
    for (++at; at < text.size() && text[at] >= '0' && text[at] <= '9'; ++at, scale /= 10) {
      fraction += (text[at] - '0') * scale;
    }
  }
  if (at + 1 != text.size() || text[at] != 'Z') return std::nullopt;
  if (month < 1 || month > 12 || day < 1 || day > 31 || hour > 23 || minute > 59 || second > 60) {
    return std::nullopt;
  }
  const std::int64_t days = daysFromCivil(year, month, day);
  const double unix = static_cast<double>(days * 86400 + hour * 3600 + minute * 60 + second) + fraction;
  return Date::fromUnixTime(unix);
}

std::string encodeBase64(std::span<const std::uint8_t> bytes) {
  std::string out;
  out.reserve((bytes.size() + 2) / 3 * 4);
  std::size_t i = 0;
  for (; i + 3 <= bytes.size(); i += 3) {
    const std::uint32_t group = bytes[i] << 16 | bytes[i + 1] << 8 | bytes[i + 2];
    out.push_back(kBase64Alphabet[group >> 18]);
    out.push_back(kBase64Alphabet[group >> 12 & 63]);
    out.push_back(kBase64Alphabet[group >> 6 & 63]);
    out.push_back(kBase64Alphabet[group & 63]);
  }
  if (const std::size_t rest = bytes.size() - i; rest > 0) {
    const std::uint32_t group = bytes[i] << 16 | (rest == 2 ? bytes[i + 1] << 8 : 0);
    out.push_back(kBase64Alphabet[group >> 18]);
    out.push_back(kBase64Alphabet[group >> 12 & 63]);
    out.push_back(rest == 2 ? kBase64Alphabet[group >> 6 & 63] : '=');
    out.push_back('=');
  }
  return out;
}

std::optional<Bytes> decodeBase64(std::string_view text) {
  Bytes out;
  out.reserve(text.size() / 4 * 3);
  std::uint32_t group = 0;
  int filled = 0;   // sextets in the current group
  int padding = 0;  // '=' seen so far; only more '=' and white space may follow
  for (char c : text) {
    if (isAsciiSpace(c)) continue;
    if (c == '=') {
      if (filled + padding < 2) return std::nullopt;
      ++padding;
      if (filled + padding > 4) return std::nullopt;
      continue;
    }
    const std::int8_t v = kBase64Values[static_cast<unsigned char>(c)];
    if (v < 0 || padding > 0) return std::nullopt;
    group = group << 6 | static_cast<std::uint32_t>(v);
    if (++filled == 4) {
      out.push_back(static_cast<std::uint8_t>(group >> 16));
      out.push_back(static_cast<std::uint8_t>(group >> 8));
      out.push_back(static_cast<std::uint8_t>(group));
      group = 0;
      filled = 0;
    }
  }
  if (padding > 0 && filled + padding != 4) return std::nullopt;
  if (filled == 1) return std::nullopt;
  if (filled >= 2) out.push_back(static_cast<std::uint8_t>(group >> (filled == 2 ? 4 : 10)));
  if (filled == 3) out.push_back(static_cast<std::uint8_t>(group >> 2));
  return out;
}

void appendUtf8(std::string& out, char32_t cp) {
  if (cp < 0x80) {
    out.push_back(static_cast<char>(cp));
  } else if (cp < 0x800) {
    out.push_back(static_cast<char>(0xC0 | cp >> 6));
    out.push_back(static_cast<char>(0x80 | (cp & 0x3F)));
  } else if (cp < 0x10000) {
    out.push_back(static_cast<char>(0xE0 | cp >> 12));
    out.push_back(static_cast<char>(0x80 | (cp >> 6 & 0x3F)));
    out.push_back(static_cast<char>(0x80 | (cp & 0x3F)));
  } else {
    out.push_back(static_cast<char>(0xF0 | cp >> 18));
    out.push_back(static_cast<char>(0x80 | (cp >> 12 & 0x3F)));
    out.push_back(static_cast<char>(0x80 | (cp >> 6 & 0x3F)));
    out.push_back(static_cast<char>(0x80 | (cp & 0x3F)));
  }
}

bool Utf16ToUtf8::push(char16_t unit) {
  if (pendingHigh_ != 0) {
    if (unit < 0xDC00 || unit > 0xDFFF) return false;
    appendUtf8(out_, 0x10000 + ((static_cast<char32_t>(pendingHigh_) - 0xD800) << 10) + (unit - 0xDC00));
    pendingHigh_ = 0;
  } else if (unit >= 0xD800 && unit <= 0xDBFF) {
    pendingHigh_ = unit;
  } else if (unit >= 0xDC00 && unit <= 0xDFFF) {
    return false;
  } else {
    appendUtf8(out_, unit);
  }
  return true;
}

std::size_t asciiPrefixLength(std::string_view text) {
  // Eight bytes at a time while no high bit is set; the word that has one is looked at bytewise.
  constexpr std::uint64_t kHighBits = 0x8080808080808080ULL;
  std::size_t at = 0;
  for (std::uint64_t word; at + 8 <= text.size(); at += 8) {
    std::memcpy(&word, text.data() + at, 8);
    if (word & kHighBits) break;
  }
  while (at < text.size() && static_cast<unsigned char>(text[at]) < 0x80) ++at;
  return at;
}

std::size_t decodeUtf8(std::string_view text, std::size_t i, char32_t& cp) {
  const auto lead = static_cast<unsigned char>(text[i]);
  if (lead < 0x80) {
    cp = lead;
    return 1;
  }
  std::size_t length;
  if (lead >= 0xC2 && lead <= 0xDF) {
    length = 2;
    cp = lead & 0x1F;
  } else if (lead >= 0xE0 && lead <= 0xEF) {
    length = 3;
    cp = lead & 0x0F;
  } else if (lead >= 0xF0 && lead <= 0xF4) {
    length = 4;
    cp = lead & 0x07;
  } else {
    return 0;
  }
  if (i + length > text.size()) return 0;
  for (std::size_t k = 1; k < length; ++k) {
    const auto next = static_cast<unsigned char>(text[i + k]);
    if ((next & 0xC0) != 0x80) return 0;
    cp = cp << 6 | (next & 0x3F);
  }
  const char32_t minimum = length == 2 ? 0x80 : length == 3 ? 0x800 : 0x10000;
  if (cp < minimum || cp > 0x10FFFF || (cp >= 0xD800 && cp <= 0xDFFF)) return 0;
  return length;
}

std::optional<std::u16string> utf16FromUtf8(std::string_view text) {
  std::u16string out;
  out.reserve(text.size());
  for (std::size_t i = 0; i < text.size();) {
    char32_t cp;
    const std::size_t length = decodeUtf8(text, i, cp);
    if (length == 0) return std::nullopt;
    if (cp >= 0x10000) {
      out.push_back(static_cast<char16_t>(0xD800 + ((cp - 0x10000) >> 10)));
      out.push_back(static_cast<char16_t>(0xDC00 + ((cp - 0x10000) & 0x3FF)));
    } else {
      out.push_back(static_cast<char16_t>(cp));
    }
    i += length;
  }
  return out;
}

}  // namespace platform::codec
