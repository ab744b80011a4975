#include <gtest/gtest.h>

#include <cmath>
#include <string>

#include "platform/property_list.h"
#include "platform/xml_plist_writer.h"

namespace platform {
namespace {

const std::string kHead =
    "<?xml version=\"1.0\" encoding=\"UTF-8\"?>\n"
    "<!DOCTYPE plist PUBLIC \"-//Apple//DTD PLIST 1.0//EN\" "
    "\"http://www.apple.com/DTDs/PropertyList-1.0.dtd\">\n"
    "<plist version=\"1.0\">\n";

std::string written(const Value& v, std::string* problem = nullptr) {
  std::string ignored;
  const auto bytes = xml_plist::write(v, problem ? *problem : ignored);
  return bytes ? std::string(bytes->begin(), bytes->end()) : std::string("<failed>");
}

Value readBack(const Value& v) {
  ErrorRef error;
  const auto bytes = dataWithPropertyList(v, PropertyListFormat::XML, &error);
  if (!bytes) return {};
  PropertyListFormat format{};
  Value read = propertyListWithData(*bytes, &format, &error);
  EXPECT_EQ(format, PropertyListFormat::XML);
  return read;
}

Value nestedArrays(int depth) {
  Value v = Value::array({});
  for (int i = 1; i < depth; ++i) v = Value::array({v});
  return v;
}

Bytes counting(std::size_t n) {
  Bytes bytes(n);
  for (std::size_t i = 0; i < n; ++i) bytes[i] = static_cast<std::uint8_t>(i * 7);
  return bytes;
}

TEST(XmlPlistWriter, EveryKindInThePlatformLayout) {
  const Value v = Value::dictionary({
      {"array", Value::array({Value::boolean(true), Value::boolean(false), Value::integer(1),
                              Value::real(-2.5)})},
      {"data", Value::data({0, 1, 2, 0xff})},
      {"date", Value::date(Date::fromUnixTime(1609837623))},
      {"empty array", Value::array({})},
      {"empty dict", Value::dictionary({})},
      {"int", Value::integer(-42)},
      {"max", Value::unsignedInteger(UINT64_MAX)},
      {"nested", Value::dictionary({{"k", Value::string("v")}})},
      {"real", Value::real(0.1)},
      {"text", Value::string("a & b <c> \"q\"\r")},
  });
  EXPECT_EQ(written(v), kHead +
                            "<dict>\n"
                            "\t<key>array</key>\n"
                            "\t<array>\n"
                            "\t\t<true/>\n"
                            "\t\t<false/>\n"
                            "\t\t<integer>1</integer>\n"
                            "\t\t<real>-2.5</real>\n"
                            "\t</array>\n"
                            "\t<key>data</key>\n"
                            "\t<data>\n"
                            "\tAAEC/w==\n"
                            "\t</data>\n"
                            "\t<key>date</key>\n"
                            "\t<date>2021-01-05T09:07:03Z</date>\n"
                            "\t<key>empty array</key>\n"
                            "\t<array/>\n"
                            "\t<key>empty dict</key>\n"
                            "\t<dict/>\n"
                            "\t<key>int</key>\n"
                            "\t<integer>-42</integer>\n"
                            "\t<key>max</key>\n"
                            "\t<integer>18446744073709551615</integer>\n"
                            "\t<key>nested</key>\n"
                            "\t<dict>\n"
                            "\t\t<key>k</key>\n"
                            "\t\t<string>v</string>\n"
                            "\t</dict>\n"
                            "\t<key>real</key>\n"
                            "\t<real>0.1</real>\n"
                            "\t<key>text</key>\n"
                            "\t<string>a &amp; b &lt;c&gt; \"q\"&#13;</string>\n"
                            "</dict>\n"
                            "</plist>\n");
}

TEST(XmlPlistWriter, ScalarRootsAndEmptyValues) {
  EXPECT_EQ(written(Value::string("")), kHead + "<string></string>\n</plist>\n");
  EXPECT_EQ(written(Value::data({})), kHead + "<data>\n</data>\n</plist>\n");
  EXPECT_EQ(written(Value::array({})), kHead + "<array/>\n</plist>\n");
  EXPECT_EQ(written(Value::integer(INT64_MIN)), kHead + "<integer>-9223372036854775808</integer>\n</plist>\n");
  EXPECT_EQ(written(Value::real(1e100)), kHead + "<real>1e+100</real>\n</plist>\n");
  EXPECT_EQ(written(Value::real(-INFINITY)), kHead + "<real>-inf</real>\n</plist>\n");
  // Fractions of seconds are dropped, towards the past.
  EXPECT_EQ(written(Value::date(Date{-0.5})), kHead + "<date>2000-12-31T23:59:59Z</date>\n</plist>\n");
}

// Base64 lines are 76 characters wide, 8 fewer per level, never under 16.
TEST(XmlPlistWriter, DataLinesNarrowWithIndentation) {
  const std::string line76(76, 'A');
  EXPECT_EQ(written(Value::data(Bytes(57))), kHead + "<data>\n" + line76 + "\n</data>\n</plist>\n");
  EXPECT_EQ(written(Value::data(Bytes(58))),
            kHead + "<data>\n" + line76 + "\nAA==\n</data>\n</plist>\n");
  EXPECT_EQ(written(Value::array({Value::data(Bytes(52))})),
            kHead + "<array>\n\t<data>\n\t" + std::string(68, 'A') + "\n\tAA==\n\t</data>\n</array>\n</plist>\n");

  Value deep = Value::data(counting(13));
  for (int i = 0; i < 10; ++i) deep = Value::array({deep});
  const std::string text = written(deep);
  const std::string tabs(10, '\t');
  // 13 bytes are 20 base64 characters: one line of 16, then the rest.
  EXPECT_NE(text.find(tabs + "<data>\n" + tabs + "AAcOFRwjKjE4P0ZN\n" + tabs + "VA==\n" + tabs + "</data>\n"),
            std::string::npos)
      << text;
}

// Each value holds something XML property lists cannot carry; the problem names it and where.
TEST(XmlPlistWriter, RefusesWhatXmlCannotCarry) {
  const struct {
    Value value;
    const char* problem;
  } kRefused[] = {
      {Value(), "cannot write an absent value at root"},
      {Value::dictionary({{"e", Value::error(Error::make("d", 1))}}),
       "cannot write an error object, which is not a property-list type at root[\"e\"]"},
      {Value::array({Value::integer(1), Value::uid(3)}), "UID, which only binary property lists carry at root[1]"},
      {Value::array({Value::array({}), Value::array({Value()})}), "absent value at root[1][0]"},
      {Value::string(std::string("nul\0here", 8)), "character that XML cannot carry at root"},
      {Value::string("bell\a"), "character that XML cannot carry"},
      {Value::string("\xC3("), "character that XML cannot carry"},          // invalid UTF-8
      {Value::string("\xEF\xBF\xBF"), "character that XML cannot carry"},   // U+FFFF
      {Value::dictionary({{"k\x01", Value::integer(1)}}), "character that XML cannot carry at root[\"k\x01\"]"},
      {Value::date(Date::fromUnixTime(253402300800.0)), "date outside the years 0000 to 9999"},
      {Value::date(Date::fromUnixTime(-62167219201.0)), "date outside the years 0000 to 9999"},
      {Value::date(Date{NAN}), "date outside the years 0000 to 9999"},
      {nestedArrays(513), "nesting deeper than 512 levels"},
  };
  for (const auto& refused : kRefused) {
    std::string problem;
    EXPECT_EQ(written(refused.value, &problem), "<failed>") << refused.problem;
    EXPECT_NE(problem.find(refused.problem), std::string::npos) << problem;
  }
}

TEST(XmlPlistWriter, RegistryReportsWriteInvalidError) {
  ErrorRef error;
  EXPECT_FALSE(dataWithPropertyList(Value::array({Value()}), PropertyListFormat::XML, &error));
  ASSERT_TRUE(error);
  EXPECT_EQ(error->domain, NSCocoaErrorDomain);
  EXPECT_EQ(error->code, NSPropertyListWriteInvalidError);
  EXPECT_EQ(error->localizedDescription(), "XML property list: cannot write an absent value at root[0]");
  EXPECT_FALSE(dataWithPropertyList(Value(), PropertyListFormat::XML, nullptr));
}

TEST(XmlPlistWriter, RoundTripsThroughTheReader) {
  const Value v = Value::dictionary({
      {"", Value::string("")},
      {"<&>", Value::string("line\nbreak\ttab\rreturn ]]> &amp; \"'")},
      {"caf\xC3\xA9 \xF0\x9F\x98\x80", Value::string("\xE2\x82\xAC 100")},
      {"edges", Value::array({Value::integer(INT64_MIN), Value::integer(INT64_MAX),
                              Value::unsignedInteger(UINT64_MAX), Value::integer(0)})},
      {"reals", Value::array({Value::real(-0.0), Value::real(5e-324), Value::real(1.7976931348623157e308),
                              Value::real(INFINITY), Value::real(1.0 / 3)})},
      {"dates", Value::array({Value::date(Date::fromUnixTime(-2208988800.0)),  // 1900
                              Value::date(Date{0}), Value::date(Date::fromUnixTime(4102444800.0))})},
      {"data", Value::array({Value::data({}), Value::data(counting(1000))})},
      {"nested", Value::array({Value::dictionary({{"a", Value::array({Value::dictionary({})})}})})},
  });
  EXPECT_EQ(readBack(v), v);
  EXPECT_TRUE(std::signbit(*readBack(Value::real(-0.0)).asReal()));
  EXPECT_TRUE(std::isnan(*readBack(Value::real(NAN)).asReal()));
}

// The deepest nesting the writer accepts is also the deepest the reader accepts.
TEST(XmlPlistWriter, NestingCapMatchesTheReader) {
  const Value deepest = nestedArrays(512);
  EXPECT_EQ(readBack(deepest), deepest);

  std::string tooDeep = kHead;
  for (int i = 0; i < 513; ++i) tooDeep += "<array>";
  for (int i = 0; i < 513; ++i) tooDeep += "</array>";
  ErrorRef error;
  EXPECT_FALSE(propertyListWithData(Bytes(tooDeep.begin(), tooDeep.end()), nullptr, &error));
  ASSERT_TRUE(error);
  EXPECT_NE(error->localizedDescription().find("nesting deeper than 512 levels"), std::string::npos);
}

}  // namespace
}  // namespace platform
