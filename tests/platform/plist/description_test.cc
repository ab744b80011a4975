#include <gtest/gtest.h>

#include <cmath>
#include <string>
#include <utility>

#include "platform/foundation/date_style.h"
#include "platform/foundation/format.h"
#include "platform/plist/codec_support.h"
#include "platform/plist/value.h"

namespace platform {
namespace {

Value s(const char* text) { return Value::string(text); }

TEST(Description, ContainersInThePlatformLayout) {
  Bytes bytes(25);
  for (std::size_t i = 0; i < bytes.size(); ++i) bytes[i] = static_cast<std::uint8_t>(i);
  const Value v = Value::dictionary({
      {"Offset", Value::integer(-1)},
      {"Owner", Value::dictionary({{"a", Value::dictionary({{"b", s("x y")}})}})},
      {"Ratio", Value::real(0.5)},
      {"LastRun", Value::date(Date::fromUnixTime(1609837623))},
      // Up to 24 bytes in full; beyond, the first 16 and the last 8 in groups of four.
      {"Blob", Value::array({Value::data(Bytes(bytes.begin(), bytes.end() - 1)), Value::data(bytes)})},
      {"com.larkspan.key", Value::array({s("plain_Word_09"), s("quote\"back\\slash\t\n\x01\x7f"), s("caf\u00e9 \U0001F600"),
                                         Value::dictionary({{"a", Value::boolean(true)}}), Value::array({})})},
  });
  EXPECT_EQ(v.description(), R"({
    Blob =     (
        {length = 24, bytes = 0x000102030405060708090a0b0c0d0e0f1011121314151617},
        {length = 25, bytes = 0x00010203 04050607 08090a0b 0c0d0e0f ... 11121314 15161718 }
    );
    LastRun = "2021-01-05 09:07:03 +0000";
    Offset = "-1";
    Owner =     {
        a =         {
            b = "x y";
        };
    };
    Ratio = "0.5";
    "com.larkspan.key" =     (
        plain_Word_09,
        "quote\"back\\slash\t\n\001\177",
        "caf\U00e9 \Ud83d\Ude00",
                {
            a = 1;
        },
                (
        )
    );
})");
  // Nesting beyond the cap is elided.
  Value deep = Value::array({s("bottom")});
  for (int i = 0; i < 600; ++i) deep = Value::array({deep});
  EXPECT_EQ(deep.description().find("bottom"), std::string::npos);
  EXPECT_NE(deep.description().find(std::string(4 * 512, ' ') + "...\n"), std::string::npos);
}

TEST(Description, ErrorsAndTheFormatter) {
  const ErrorRef error = Error::make("com.larkspan.messager", 7, {{"message", Value::integer(5)},
                                     {NSUnderlyingErrorKey, Value::error(Error::make("inner", -2))}});
  EXPECT_EQ(stringWithFormat("%@ (%d) %s %-4@| %@", Value::error(error), -3, "c", s("ab"), Value()),
            "Error Domain=com.larkspan.messager Code=7 \"The operation couldn\u2019t be completed. "
            "(com.larkspan.messager error 7.)\" UserInfo={NSUnderlyingError=Error Domain=inner Code=-2 "
            "\"The operation couldn\u2019t be completed. (inner error -2.)\", message=5} (-3) c ab  | (null)");
  // Every byte of a description is kept, a NUL too, under a width and a precision.
  const Value nul = Value::string(std::string("a\0b", 3));
  EXPECT_EQ(stringWithFormat("%@|%-5@|%4.2@|%.1s", nul, nul, nul, "xy"), std::string("a\0b|a\0b  |  a\0|x", 16));
  EXPECT_EQ(stringWithFormat("%s", 3), std::nullopt);     // wrong kind fails, never crashes
  EXPECT_EQ(stringWithFormat("%d %d", 1), std::nullopt);  // missing argument
}

// A calendar year takes four places at least, a minus sign among them.
TEST(Description, CalendarYearsArePadded) {
  const std::tuple<double, const char*, const char*> kDates[] = {
      {-62982298433.0, "0005-03-04T05:06:07Z", "0005-03-04 05:06:07 +0000"},
      {-63145526401.0, "-001-12-31T23:59:59Z", "-001-12-31 23:59:59 +0000"},
      {-452715944155.0, "-12345-01-02T03:04:05Z", "-12345-01-02 03:04:05 +0000"},
  };
  for (const auto& [seconds, iso, description] : kDates) {
    EXPECT_EQ(codec::formatIsoDate({seconds}), iso);
    EXPECT_EQ(Value::date({seconds}).description(), description);
  }
}

// A date within about 31 million years of 2001 prints as a calendar date; any
// other one as its seconds since 2001, never as a made-up year.
TEST(Description, DatesWithoutACalendarForm) {
  EXPECT_EQ(Value::date({1e15}).description(), "31690739-07-06 01:46:40 +0000");
  EXPECT_EQ(Value::date({-1e15}).description(), "-31686738-06-29 22:13:20 +0000");
  const std::pair<double, const char*> kBeyond[] = {
      {std::nextafter(1e15, INFINITY), "1000000000000000.1"}, {1e300, "1e+300"}, {-INFINITY, "-inf"}, {NAN, "nan"},
  };
  for (const auto& [seconds, text] : kBeyond) {
    EXPECT_EQ(Value::date({seconds}).description(), text);
    EXPECT_EQ(codec::formatIsoDate({seconds}), text);
    EXPECT_EQ(localizedShortDateTime({seconds}), text);
  }
  EXPECT_EQ(Value::array({Value::date({NAN})}).description(), "(\n    nan\n)");
}

}  // namespace
}  // namespace platform
