#include <gtest/gtest.h>

#include <cmath>
#include <string>

#include "platform/format.h"
#include "platform/value.h"

namespace platform {
namespace {

Value s(const char* text) { return Value::string(text); }

Bytes counting(std::size_t n) {
  Bytes bytes(n);
  for (std::size_t i = 0; i < n; ++i) bytes[i] = static_cast<std::uint8_t>(i);
  return bytes;
}

TEST(Description, ScalarsPrintAsThemselves) {
  EXPECT_EQ(Value().description(), "(null)");
  EXPECT_EQ(s("two words \"as is\"").description(), "two words \"as is\"");
  EXPECT_EQ(Value::boolean(true).description(), "1");
  EXPECT_EQ(Value::boolean(false).description(), "0");
  EXPECT_EQ(Value::integer(INT64_MIN).description(), "-9223372036854775808");
  EXPECT_EQ(Value::unsignedInteger(UINT64_MAX).description(), "18446744073709551615");
  EXPECT_EQ(Value::real(0.1).description(), "0.1");
  EXPECT_EQ(Value::real(2).description(), "2");
  EXPECT_EQ(Value::real(-1.5e-7).description(), "-1.5e-07");
  EXPECT_EQ(Value::date(Date::fromUnixTime(1609837623)).description(), "2021-01-05 09:07:03 +0000");
  EXPECT_EQ(Value::uid(7).description(), "{value = 7}");
}

// Up to 24 bytes in full; beyond, the first 16 and the last 8 in groups of four.
TEST(Description, DataShortAndLong) {
  EXPECT_EQ(Value::data({}).description(), "{length = 0, bytes = 0x}");
  EXPECT_EQ(Value::data({0, 1, 0xfe, 0xff}).description(), "{length = 4, bytes = 0x0001feff}");
  EXPECT_EQ(Value::data(counting(24)).description(),
            "{length = 24, bytes = 0x000102030405060708090a0b0c0d0e0f1011121314151617}");
  EXPECT_EQ(Value::data(counting(25)).description(),
            "{length = 25, bytes = 0x00010203 04050607 08090a0b 0c0d0e0f ... 11121314 15161718 }");
}

TEST(Description, ErrorsReadLikeThePlatformsOwn) {
  const ErrorRef cause = Error::make("inner", -2);
  const ErrorRef error = Error::make("com.larkspan.messager", 7,
                                     {{"message", Value::integer(5)}, {NSUnderlyingErrorKey, Value::error(cause)}});
  EXPECT_EQ(Value::error(cause).description(),
            "Error Domain=inner Code=-2 \"The operation couldn\u2019t be completed. (inner error -2.)\"");
  EXPECT_EQ(Value::error(error).description(),
            "Error Domain=com.larkspan.messager Code=7 \"The operation couldn\u2019t be completed. "
            "(com.larkspan.messager error 7.)\" UserInfo={NSUnderlyingError=Error Domain=inner Code=-2 "
            "\"The operation couldn\u2019t be completed. (inner error -2.)\", message=5}");
  // Inside a container an error is one more text to quote.
  EXPECT_EQ(Value::array({Value::error(Error::make("d", 1, {{NSLocalizedDescriptionKey, s("Bad \"x\".")}}))})
                .description(),
            "(\n    \"Error Domain=d Code=1 \\\"Bad \\\"x\\\".\\\" UserInfo={NSLocalizedDescription=Bad \\\"x\\\".}\"\n)");
}

TEST(Description, EmptyContainers) {
  EXPECT_EQ(Value::dictionary({}).description(), "{\n}");
  EXPECT_EQ(Value::array({}).description(), "(\n)");
  EXPECT_EQ(Value::array({Value::array({}), Value::dictionary({})}).description(),
            "(\n        (\n    ),\n        {\n    }\n)");
}

TEST(Description, NestedContainersInThePlatformLayout) {
  const Value v = Value::dictionary({
      {"Enabled", Value::boolean(true)},
      {"Interval", Value::integer(3600)},
      {"Ratio", Value::real(0.5)},
      {"Offset", Value::integer(-1)},
      {"LastRun", Value::date(Date::fromUnixTime(1609837623))},
      {"Blob", Value::data({0xde, 0xad})},
      {"Name", s("Quillhaven")},
      {"com.larkspan.key", s("")},
      {"Rights", Value::array({s("com.larkspan.quillhaven.settings.modify-1"), s("two"),
                               Value::dictionary({{"a", Value::integer(1)}}), Value::array({s("x")})})},
      {"Sub", Value::dictionary({{"Inner", Value::dictionary({{"k", s("v")}})}})},
  });
  EXPECT_EQ(v.description(),
            "{\n"
            "    Blob = {length = 2, bytes = 0xdead};\n"
            "    Enabled = 1;\n"
            "    Interval = 3600;\n"
            "    LastRun = \"2021-01-05 09:07:03 +0000\";\n"
            "    Name = Quillhaven;\n"
            "    Offset = \"-1\";\n"
            "    Ratio = \"0.5\";\n"
            "    Rights =     (\n"
            "        \"com.larkspan.quillhaven.settings.modify-1\",\n"
            "        two,\n"
            "                {\n"
            "            a = 1;\n"
            "        },\n"
            "                (\n"
            "            x\n"
            "        )\n"
            "    );\n"
            "    Sub =     {\n"
            "        Inner =         {\n"
            "            k = v;\n"
            "        };\n"
            "    };\n"
            "    \"com.larkspan.key\" = \"\";\n"
            "}");
}

TEST(Description, QuotesAndEscapesOnlyWhereNeeded) {
  const Value v = Value::array({
      s("plain_Word_09"), s("with space"), s("quote\"back\\slash"),
      s("\t\n\r\a\b\f\v"), s("\x01\x1f\x7f"), s("caf\xC3\xA9 \xF0\x9F\x98\x80"), s("bad \xFF utf8"),
  });
  EXPECT_EQ(v.description(), R"((
    plain_Word_09,
    "with space",
    "quote\"back\\slash",
    "\t\n\r\a\b\f\v",
    "\001\037\177",
    "caf\U00e9 \Ud83d\Ude00",
    "bad \U00ff utf8"
))");
}

TEST(Description, FormatPrintsArraysInTheMultiLineForm) {
  const Value rights = Value::array({s("right.one"), s("right.two")});
  EXPECT_EQ(stringWithFormat("Could not validate rights: %@.", rights),
            "Could not validate rights: (\n    \"right.one\",\n    \"right.two\"\n).");
  EXPECT_EQ(stringWithFormat("%@ and %@", Value::integer(-3), Value()), "-3 and (null)");
}

TEST(Description, NestingBeyondTheCapIsElided) {
  Value v = Value::array({s("bottom")});
  for (int i = 0; i < 600; ++i) v = Value::array({v});
  const std::string text = v.description();
  EXPECT_EQ(text.find("bottom"), std::string::npos);
  EXPECT_NE(text.find(std::string(4 * 512, ' ') + "...\n"), std::string::npos);
}

}  // namespace
}  // namespace platform
