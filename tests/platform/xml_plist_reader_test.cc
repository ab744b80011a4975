#include <gtest/gtest.h>

#include <cmath>
#include <string>

#include "platform/property_list.h"

namespace platform {
namespace {

Value parse(const std::string& text, ErrorRef* error = nullptr, PropertyListFormat* format = nullptr) {
  return propertyListWithData(
      std::span(reinterpret_cast<const std::uint8_t*>(text.data()), text.size()), format, error);
}

std::string inPlist(const std::string& body) {
  return "<?xml version=\"1.0\" encoding=\"UTF-8\"?>\n"
         "<!DOCTYPE plist PUBLIC \"-//Apple//DTD PLIST 1.0//EN\" "
         "\"http://www.apple.com/DTDs/PropertyList-1.0.dtd\">\n"
         "<plist version=\"1.0\">\n" + body + "\n</plist>\n";
}

TEST(XmlPlistReader, ReadsEveryKind) {
  PropertyListFormat format{};
  const Value v = parse(inPlist(R"(<dict>
    <key>b</key><array><true/><false/></array>
    <key>d</key><date>2021-01-05T09:07:03Z</date>
    <key>data</key><data>
      AAEC
      /w==
    </data>
    <key>i</key><integer>-42</integer>
    <key>r</key><real>2.5</real>
    <key>s</key><string>a &amp; b &lt;c&gt; <![CDATA[<raw>]]></string>
  </dict>)"), nullptr, &format);
  ASSERT_TRUE(v);
  EXPECT_EQ(format, PropertyListFormat::XML);
  const Dictionary& d = *v.asDictionary();
  EXPECT_EQ(d.get("b"), Value::array({Value::boolean(true), Value::boolean(false)}));
  EXPECT_EQ(d.get("d").asDate()->unixTime(), 1609837623.0);
  EXPECT_EQ(d.get("data"), Value::data({0, 1, 2, 0xff}));
  EXPECT_EQ(d.get("i"), Value::integer(-42));
  EXPECT_EQ(d.get("r"), Value::real(2.5));
  EXPECT_EQ(d.get("s"), Value::string("a & b <c> <raw>"));
}

TEST(XmlPlistReader, IntegerEdgesAndHex) {
  EXPECT_EQ(parse("<plist><integer>18446744073709551615</integer></plist>"),
            Value::unsignedInteger(UINT64_MAX));
  EXPECT_EQ(parse("<plist><integer>-9223372036854775808</integer></plist>"), Value::integer(INT64_MIN));
  EXPECT_EQ(parse("<plist><integer>0x1F</integer></plist>"), Value::integer(31));
  EXPECT_FALSE(parse("<plist><integer>18446744073709551616</integer></plist>"));
  EXPECT_FALSE(parse("<plist><integer>-9223372036854775809</integer></plist>"));
}

TEST(XmlPlistReader, RealSpellings) {
  EXPECT_TRUE(std::isnan(*parse("<plist><real>nan</real></plist>").asReal()));
  EXPECT_EQ(parse("<plist><real>-infinity</real></plist>"), Value::real(-INFINITY));
  EXPECT_EQ(parse("<plist><real>+inf</real></plist>"), Value::real(INFINITY));
  EXPECT_EQ(parse("<plist><real>1e3</real></plist>"), Value::real(1000));
}

TEST(XmlPlistReader, RootWithoutPlistElementAndEmptyContainers) {
  EXPECT_EQ(parse("<?xml version=\"1.0\"?><array><dict/><array/><string/></array>"),
            Value::array({Value::dictionary({}), Value::array({}), Value::string("")}));
}

TEST(XmlPlistReader, ErrorSaysWhatAndWhere) {
  ErrorRef error;
  EXPECT_FALSE(parse("<plist>\n<array>\n  <widget/>\n</array></plist>", &error));
  ASSERT_TRUE(error);
  EXPECT_EQ(error->domain, NSCocoaErrorDomain);
  EXPECT_EQ(error->code, NSPropertyListReadCorruptError);
  EXPECT_EQ(error->localizedDescription(),
            "XML property list: unknown element <widget> at line 3, column 3 (byte 18)");
}

TEST(XmlPlistReader, DeepNestingIsCappedNotCrashed) {
  std::string deep = "<plist>";
  for (int i = 0; i < 10000; ++i) deep += "<array>";
  ErrorRef error;
  EXPECT_FALSE(parse(deep, &error));
  ASSERT_TRUE(error);
  EXPECT_NE(error->localizedDescription().find("nesting deeper than 512 levels"), std::string::npos);
}

// Each input must fail cleanly with an error, never crash, hang or expand.
TEST(XmlPlistReader, BadInputs) {
  const char* const kBad[] = {
      "<plist><dict><key>a</key></dict></plist>",                // key without value
      "<plist><dict><string>a</string></dict></plist>",          // value without key
      "<plist><dict><key>a</key><key>b</key></dict></plist>",    // two keys in a row
      "<plist><array><key>a</key></array></plist>",              // key outside dict
      "<plist><string>a</string><string>b</string></plist>",     // two roots in plist
      "<plist></plist>",                                         // no value at all
      "<plist><foo/></plist>",                                   // unknown element
      "<plist><string>a</string></plist>junk",                   // trailing garbage
      "<plist><string>a</plist>",                                // mismatched tags
      "<plist><string>a<b/></string></plist>",                   // element inside a leaf
      "<plist><array>text</array></plist>",                      // text inside a container
      "<plist><true>yes</true></plist>",                         // text inside <true/>
      "<plist><integer>12x</integer></plist>",                   // trailing junk in integer
      "<plist><integer></integer></plist>",                      // empty integer
      "<plist><real>1.5.2</real></plist>",                       // not a number
      "<plist><date>2021-13-05T09:07:03Z</date></plist>",        // month out of range
      "<plist><date>2021-01-05 09:07:03</date></plist>",         // not ISO 8601 UTC
      "<plist><data>AA!A</data></plist>",                        // bad base64 character
      "<plist><data>A</data></plist>",                           // truncated base64 group
      "<plist><data>AA=A</data></plist>",                        // data after padding
      "<plist><plist><true/></plist></plist>",                   // nested plist
      "<plist><string>&foo;</string></plist>",                   // undefined entity
      "<!DOCTYPE plist [<!ENTITY a \"x\">]><plist><string>&a;</string></plist>",  // declared entity
      "<!DOCTYPE plist [<!ENTITY a \"aaaaaaaaaa\"><!ENTITY b \"&a;&a;&a;&a;&a;&a;&a;\">]>"
      "<plist><string>&b;</string></plist>",                     // expansion bomb
      "<!DOCTYPE plist [<!ENTITY x SYSTEM \"file:///etc/passwd\">]><plist><string>&x;</string></plist>",
                                                                 // external entity
      "<?xml version=\"1.0\"?>",                                 // declaration only
      "<plist",                                                  // truncated tag
  };
  for (const char* input : kBad) {
    ErrorRef error;
    EXPECT_FALSE(parse(input, &error)) << input;
    EXPECT_TRUE(error && error->code == NSPropertyListReadCorruptError) << input;
  }
}

}  // namespace
}  // namespace platform
