#include <gtest/gtest.h>

#include <string>

#include "platform/property_list.h"

namespace platform {
namespace {

Value parse(const std::string& text, ErrorRef* error = nullptr, PropertyListFormat* format = nullptr) {
  return propertyListWithData(Bytes(text.begin(), text.end()), format, error);
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
  for (const auto& bad : kBad) {
    ErrorRef error;
    EXPECT_FALSE(parse(bad.input, &error)) << bad.input;
    ASSERT_TRUE(error) << bad.input;
    EXPECT_EQ(error->code, NSPropertyListReadCorruptError);
    EXPECT_NE(error->localizedDescription().find(bad.problem), std::string::npos)
        << bad.input << " -> " << error->localizedDescription();
  }
}

}  // namespace
}  // namespace platform
