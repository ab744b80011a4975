// Reading the text property lists, XML and OpenStep. What the XML writer refuses is checked with
// the other writers; layout and interoperability against plistlib elsewhere.
#include <gtest/gtest.h>

#include <string>

#include "platform/plist/codec_support.h"
#include "platform/plist/property_list.h"
#include "platform/plist/xml_reader.h"

namespace platform {
namespace {

Value parse(const std::string& text, ErrorRef* error = nullptr, PropertyListFormat* format = nullptr) {
  return propertyListWithData(Bytes(text.begin(), text.end()), format, error);
}

// `input` must be refused with a read error that says `problem`.
void expectCorrupt(const std::string& input, const char* problem) {
  ErrorRef error;
  EXPECT_FALSE(parse(input, &error)) << input;
  ASSERT_TRUE(error) << input;
  EXPECT_EQ(error->code, NSPropertyListReadCorruptError) << input;
  EXPECT_NE(error->localizedDescription().find(problem), std::string::npos)
      << input << " -> " << error->localizedDescription();
}

// `levels` nested arrays, left open unless `closed`.
std::string arrays(int levels, bool closed = true) {
  std::string text = "<plist>";
  for (int i = 0; i < levels; ++i) text += "<array>";
  for (int i = 0; closed && i < levels; ++i) text += "</array>";
  return closed ? text + "</plist>" : text;
}

// Keys come in any order; of a repeated one the last value stays, in every
// container level, as the entries of each dictionary are sorted when it closes.
TEST(XmlPlistReader, KeysInAnyOrder) {
  EXPECT_EQ(parse("<plist><dict><key>b</key><integer>1</integer><key>a</key><dict><key>y</key><true/><key>x</key>"
                  "<string>x</string><key>y</key><false/></dict><key>b</key><array><integer>3</integer></array>"
                  "<key>c</key><dict/></dict></plist>"),
            Value::dictionary({{"a", Value::dictionary({{"x", Value::string("x")}, {"y", Value::boolean(false)}})},
                               {"b", Value::array({Value::integer(3)})},
                               {"c", Value::dictionary({})}}));
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
  for (const std::string& input : kBad) expectCorrupt(input, "XML property list");
  ErrorRef error;
  EXPECT_FALSE(parse("<plist>\n<array>\n  <widget/>\n</array></plist>", &error));
  EXPECT_EQ(error->localizedDescription(), "XML property list: unknown element <widget> at line 3, column 3 (byte 18)");
}

// Documents as writers make them are read without libexpat; whatever the
// document, the value or the refusal is the one libexpat's reading gives.
TEST(XmlPlistReader, ReadsAsLibexpatReads) {
  const std::string opening = "<?xml version=\"1.0\" encoding=\"UTF-8\"?>\n<!DOCTYPE plist PUBLIC \"-//Apple//DTD PLIST "
                              "1.0//EN\" \"http://www.apple.com/DTDs/PropertyList-1.0.dtd\">\n<plist version=\"1.0\">\n";
  const std::string body = "<dict>\n\t<key>a b</key>\n\t<array>\n\t\t<string> x > y </string>\n\t\t<true/>\n\t\t<dict/>"
                           "\n\t\t<integer>-7</integer>\n\t\t<data>AAEC</data>\n\t\t<string></string>\n\t</array>\n</dict>\n";
  const std::string kDocuments[] = {
      opening + body + "</plist>\n",                              // as the writer writes it
      body,                                                       // without <plist>
      "<plist>" + body + "</plist>",                              // without declaration and document type
      "\n\t" + opening + body + "</plist>",                       // the declaration not at the start
      opening + "<!-- a comment -->" + body + "</plist>",         // a comment
      opening + "<string>a\r\nb</string></plist>",                // a line end to normalize
      opening + "<string>&lt;&#65;</string></plist>",             // references
      opening + "<string>caf\u00e9</string></plist>",             // beyond ASCII
      opening + "<string>a\x7F]</string></plist>",                // DEL and ']'
      opening + "<string>a]]>b</string></plist>",                 // "]]>" in text
      opening + "<string>\x01</string></plist>",                  // a control character
      "<plist version=\"2.0\"><true/></plist>",                   // another version
      "<plist><string id=\"1\">a</string></plist>",               // an attribute
      "<plist><Dict/></plist>",                                   // a name in capitals
      "<plist><string>a</string ></plist>",                       // a space in a closing tag
      "<plist><string>a</integer></plist>",                       // mismatched tags
      "<true/><true/>",                                           // two roots
      "<plist><true/></plist> x",                                 // text after the root
      "x <plist><true/></plist>",                                 // text before the root
      "<plist><array>text</array></plist>",                       // text inside a container
      "<plist><dict><key>a</key></dict></plist>",                 // key without value
      "<plist><widget/></plist>",                                 // an unknown element
      "<plist/>",                                                 // no value
      "<plist><true></plist>",                                    // unclosed
      "",                                                         // nothing
      arrays(512),                                                // as deep as allowed
      arrays(513),                                                // one level deeper
  };
  EXPECT_EQ(parse(kDocuments[0]).asDictionary()->size(), 1u);
  for (const std::string& document : kDocuments) {
    const std::span bytes(reinterpret_cast<const std::uint8_t*>(document.data()), document.size());
    std::string problem, expatProblem;
    const Value value = xml_plist::read(bytes, problem);
    EXPECT_EQ(value, xml_plist::readThroughExpat(bytes, expatProblem)) << document;
    EXPECT_EQ(problem, expatProblem) << document;
  }
}

// UTF-8 `text` as UTF-16 in the given byte order, after its mark.
std::string utf16(const std::string& text, bool bigEndian) {
  std::string out = bigEndian ? "\xFE\xFF" : "\xFF\xFE";
  const std::u16string units = codec::utf16FromUtf8(text).value_or(u"");
  for (const char16_t unit : units) {
    const char high = static_cast<char>(unit >> 8), low = static_cast<char>(unit & 0xFF);
    out += bigEndian ? std::string{high, low} : std::string{low, high};
  }
  return out;
}

// A byte-order mark decides the encoding, whichever one the declaration names.
TEST(XmlPlistReader, ReadsTheEncodingItsMarkNames) {
  const std::string body = "\n<plist><array><string>caf\u00e9 \u65e5\u672c \U0001F600</string></array></plist>";
  const Value expected = Value::array({Value::string("caf\u00e9 \u65e5\u672c \U0001F600")});
  for (const std::string declaration : {"", "<?xml version=\"1.0\" encoding=\"UTF-16\"?>",
                                        "<?xml version=\"1.0\" encoding=\"UTF-8\"?>"}) {
    for (const bool bigEndian : {false, true}) {
      PropertyListFormat format{};
      ErrorRef error;
      EXPECT_EQ(parse(utf16(declaration + body, bigEndian), &error, &format), expected)
          << declaration << (bigEndian ? " big-endian: " : " little-endian: ") << (error ? error->localizedDescription() : "");
      EXPECT_EQ(format, PropertyListFormat::XML);
    }
  }
  EXPECT_EQ(parse("\xEF\xBB\xBF<?xml version=\"1.0\" encoding=\"ISO-8859-1\"?>" + body), expected);
}

// Each UTF-16 document must be refused with a read error that says what and where.
TEST(XmlPlistReader, RefusesBrokenUtf16) {
  // The smiley's surrogates stand at bytes 32 and 34.
  const std::string whole = utf16("<plist><string>\U0001F600</string></plist>", false);
  const struct {
    std::string input;
    const char* problem;
  } kBad[] = {
      {whole.substr(0, whole.size() - 1), "UTF-16 text ends inside a character at byte 68"},
      {whole.substr(0, 34), "unpaired surrogate at byte 32"},                      // cut inside the pair
      {whole.substr(0, 34) + whole.substr(36), "unpaired surrogate at byte 32"},   // high, then '<'
      {whole.substr(0, 32) + whole.substr(34), "unpaired surrogate at byte 32"},   // low alone
      {whole.substr(0, 40), "XML property list: unclosed token at line 1"},        // cut inside a tag
      {"\xFF\xFE", "property list in an unsupported format"},                      // the mark alone
      {"\xFF\xFE" + utf16("<plist/>", true).substr(2), "property list in an unsupported format"},  // the other order
  };
  for (const auto& bad : kBad) expectCorrupt(bad.input, bad.problem);
}

Value s(const char* text) { return Value::string(text); }

TEST(OpenStepPlistReader, ReadsEveryConstruct) {
  PropertyListFormat format{};
  EXPECT_EQ(parse("\xEF\xBB\xBF// a comment\n{ a = \"Quill haven\"; /* a block */ b = /usr/bin:$P.d_x-1; c = (x, <0fBD 7\n7>,"
                  " (), {},); \"\" = \"\\101\\351 \\U20AC\\Ud83d\\Ude00\\q\\n\"; }", nullptr, &format),
            Value::dictionary({{"a", s("Quill haven")}, {"b", s("/usr/bin:$P.d_x-1")},
                               {"c", Value::array({s("x"), Value::data({0x0f, 0xbd, 0x77}), Value::array({}), Value::dictionary({})})},
                               {"", s("A\u00e9 \u20ac\U0001F600q\n")}}));
  EXPECT_EQ(format, PropertyListFormat::OpenStep);
  // The strings-file form, where a later key wins.
  EXPECT_EQ(parse("\"k\" = \"v\";\nbye = Bye; bye = (x);"), Value::dictionary({{"k", s("v")}, {"bye", Value::array({s("x")})}}));
  EXPECT_TRUE(parse(std::string(512, '(') + std::string(512, ')')));
}

// Each document must be refused with a read error that says what and where,
// never crash, hang or recurse without bound.
TEST(OpenStepPlistReader, HostileInputs) {
  const struct {
    std::string input;
    const char* problem;
  } kBad[] = {
      {"", "property list in an unsupported format"},           // nothing meaningful
      {"\"abc\\", "unterminated quoted string"},                // ends inside an escape
      {"\"\\Ud800x\"", "unpaired surrogate"},                   // high surrogate alone
      {"\"\xED\xA0\x80\"", "not valid UTF-8"},                  // encoded surrogate
      {"<0g>", "unexpected 'g' in data"},                       // not hex
      {"{ a b; }", "missing '='"},                              // no '='
      {"{ (x) = y; }", "expected a key, found '('"},            // keys are strings
      {"( a ) x", "unexpected 'x' after the value"},            // trailing garbage
      {"( \x01 )", "unexpected byte 0x01"},                     // control character
      {"a = ", "missing value at the end of the text"},         // truncated
      {"{\n  a = b;\n  c = \"open\n}", "unterminated quoted string at line 3, column 7 (byte 17)"},
      {"( a b )", "missing ',' before 'b' in array at line 1, column 5 (byte 4)"},
      {"(" + std::string(512, '(') + std::string(513, ')'), "nesting deeper than 512 levels at line 1, column 513"},
      {std::string(10000, '('), "nesting deeper than 512 levels"},
      {"{a={a={a=(" + std::string(10000, '('), "nesting deeper than 512 levels"},
  };
  for (const auto& bad : kBad) expectCorrupt(bad.input, bad.problem);
}

}  // namespace
}  // namespace platform
