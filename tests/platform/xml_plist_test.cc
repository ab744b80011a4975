// Layout and interoperability of XML property lists are checked against plistlib elsewhere.
#include <gtest/gtest.h>

#include <string>

#include "platform/property_list.h"

namespace platform {
namespace {

Value parse(const std::string& xml, ErrorRef* error = nullptr) {
  return propertyListWithData(Bytes(xml.begin(), xml.end()), nullptr, error);
}

// `levels` nested arrays, left open unless `closed`.
std::string arrays(int levels, bool closed = true) {
  std::string text = "<plist>";
  for (int i = 0; i < levels; ++i) text += "<array>";
  for (int i = 0; closed && i < levels; ++i) text += "</array>";
  return closed ? text + "</plist>" : text;
}

// Each document must be refused with a read error, never crash, hang or expand.
TEST(XmlPlistReader, HostileInputs) {
  EXPECT_TRUE(parse(arrays(512)));
  const std::string kBad[] = {
      "<plist><dict><key>a</key></dict></plist>",                // key without value
      "<plist><dict><string>a</string></dict></plist>",          // value without key
      "<plist><string>a</string><string>b</string></plist>",     // two roots
      "<plist></plist>",                                         // no value at all
      "<plist><string>a</string></plist>junk",                   // trailing garbage
      "<plist><string>a</plist>",                                // mismatched tags
      "<plist><array>text</array></plist>",                      // text inside a container
      "<plist><integer>18446744073709551616</integer></plist>",  // above 2^64-1
      "<plist><integer>-9223372036854775809</integer></plist>",  // below -2^63
      "<plist><real>1.5.2</real></plist>",                       // not a number
      "<plist><date>2021-13-05T09:07:03Z</date></plist>",        // month out of range
      "<plist><data>AA!A</data></plist>",                        // not base64
      "<plist><data>A</data></plist>",                           // truncated base64 group
      "<plist><string>&foo;</string></plist>",                   // undefined entity
      "<!DOCTYPE plist [<!ENTITY a \"aaaaaaaaaa\"><!ENTITY b \"&a;&a;&a;&a;&a;&a;&a;\">]>"
      "<plist><string>&b;</string></plist>",                     // expansion bomb
      "<!DOCTYPE plist [<!ENTITY x SYSTEM \"file:///etc/passwd\">]><plist><string>&x;</string></plist>",  // external
      "<plist",                                                  // truncated tag
      arrays(513),                                               // one level past the cap
      arrays(10000, false),                                      // 10,000 levels
  };
  for (const std::string& input : kBad) {
    ErrorRef error;
    EXPECT_FALSE(parse(input, &error)) << input;
    EXPECT_TRUE(error && error->code == NSPropertyListReadCorruptError) << input;
  }
  ErrorRef error;
  EXPECT_FALSE(parse("<plist>\n<array>\n  <widget/>\n</array></plist>", &error));
  EXPECT_EQ(error->localizedDescription(), "XML property list: unknown element <widget> at line 3, column 3 (byte 18)");
}

// Each value holds what XML property lists cannot carry; the error names it and where.
TEST(XmlPlistWriter, RefusesWhatXmlCannotCarry) {
  const struct {
    Value value;
    const char* problem;
  } kRefused[] = {
      {Value::array({Value::integer(1), Value::uid(3)}), "UID, which only binary property lists carry at root[1]"},
      {Value::dictionary({{"k\x01", Value::integer(1)}}), "character that XML cannot carry at root[\"k\x01\"]"},
      {Value::date(Date::fromUnixTime(253402300800.0)), "date outside the years 0000 to 9999"},
      {Value::array({parse(arrays(512))}), "nesting deeper than 512 levels"},
  };
  for (const auto& c : kRefused) {
    ErrorRef failure;
    EXPECT_FALSE(dataWithPropertyList(c.value, PropertyListFormat::XML, &failure)) << c.problem;
    ASSERT_TRUE(failure) << c.problem;
    EXPECT_EQ(failure->code, NSPropertyListWriteInvalidError);
    EXPECT_NE(failure->localizedDescription().find(c.problem), std::string::npos) << failure->localizedDescription();
  }
}

}  // namespace
}  // namespace platform
