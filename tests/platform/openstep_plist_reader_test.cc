#include <gtest/gtest.h>

#include <string>

#include "platform/openstep_plist_reader.h"
#include "platform/property_list.h"

namespace platform {
namespace {

Bytes bytesOf(const std::string& text) { return Bytes(text.begin(), text.end()); }

Value parse(const std::string& text, ErrorRef* error = nullptr, PropertyListFormat* format = nullptr) {
  return propertyListWithData(bytesOf(text), format, error);
}

std::string problemOf(const std::string& text) {
  std::string problem;
  EXPECT_FALSE(openstep_plist::read(bytesOf(text), problem)) << text;
  return problem;
}

Value s(const char* text) { return Value::string(text); }

TEST(OpenStepPlistReader, ReadsEveryConstruct) {
  PropertyListFormat format{};
  const Value v = parse(R"(// a comment
    {
      name = "Quill haven";  /* a block
                                comment */
      path = /usr/local/bin:$PATH.d_x-1;
      list = ( a, "b c", <0fBD 77
                          1c>, ( ), {}, );
      "" = "";
      empty = <>;
    })", nullptr, &format);
  EXPECT_EQ(format, PropertyListFormat::OpenStep);
  EXPECT_EQ(v, Value::dictionary({
                   {"name", s("Quill haven")},
                   {"path", s("/usr/local/bin:$PATH.d_x-1")},
                   {"list", Value::array({s("a"), s("b c"), Value::data({0x0f, 0xbd, 0x77, 0x1c}),
                                          Value::array({}), Value::dictionary({})})},
                   {"", s("")},
                   {"empty", Value::data({})},
               }));
}

TEST(OpenStepPlistReader, TopLevelScalarsAndDetection) {
  PropertyListFormat format{};
  EXPECT_EQ(parse("\xEF\xBB\xBF  \"quoted\"  // trailing comment", nullptr, &format), s("quoted"));
  EXPECT_EQ(format, PropertyListFormat::OpenStep);
  EXPECT_EQ(parse("bare"), s("bare"));
  EXPECT_EQ(parse("<00ff>"), Value::data({0, 0xff}));
  EXPECT_EQ(parse("(1,2)"), Value::array({s("1"), s("2")}));
  // Nothing meaningful, or a first character that opens no old-style value.
  for (const char* unsupported : {"", "   ", "/* only a comment */", "#x", "=a;", ";"}) {
    ErrorRef error;
    EXPECT_FALSE(parse(unsupported, &error)) << unsupported;
    ASSERT_TRUE(error) << unsupported;
    EXPECT_EQ(error->localizedDescription(), "property list in an unsupported format") << unsupported;
  }
}

TEST(OpenStepPlistReader, StringsFileForm) {
  EXPECT_EQ(parse("/* greeting */\n\"hello\" = \"Hello, world\";\nbye = Bye;\n"),
            Value::dictionary({{"hello", s("Hello, world")}, {"bye", s("Bye")}}));
  EXPECT_EQ(parse("a = (x); a = { b = c; };"),  // a later key wins
            Value::dictionary({{"a", Value::dictionary({{"b", s("c")}})}}));
  EXPECT_EQ(problemOf("a = b; c = d"),
            "Old-style property list: missing ';' after the value of \"c\" at line 1, column 13 (byte 12)");
}

TEST(OpenStepPlistReader, Escapes) {
  EXPECT_EQ(parse(R"("\\ \" \n \t \r \b \f \a \v \q")"), s("\\ \" \n \t \r \b \f \a \v q"));
  EXPECT_EQ(parse(R"("\101\7\0123")"), Value::string(std::string("A\a\n3")));
  EXPECT_EQ(parse(R"("\000")"), Value::string(std::string(1, '\0')));
  EXPECT_EQ(parse(R"("caf\351 \U00e9 \U20AC\U41")"), s("caf\xC3\xA9 \xC3\xA9 \xE2\x82\xAC" "A"));
  EXPECT_EQ(parse(R"("\Ud83d\Ude00")"), s("\xF0\x9F\x98\x80"));  // a surrogate pair
  EXPECT_EQ(parse("\"raw \xF0\x9F\x98\x80 and\nnewline\""), s("raw \xF0\x9F\x98\x80 and\nnewline"));
}

TEST(OpenStepPlistReader, ProblemsSayWhereByLineColumnAndByte) {
  EXPECT_EQ(problemOf("{\n  a = b;\n  c = \"open\n}"),
            "Old-style property list: unterminated quoted string at line 3, column 7 (byte 17)");
  EXPECT_EQ(problemOf("(\n  a\n  b\n)"),
            "Old-style property list: missing ',' before 'b' in array at line 3, column 3 (byte 8)");
  EXPECT_EQ(problemOf("{ a = <0f1>; }"),
            "Old-style property list: odd number of hex digits in data at line 1, column 7 (byte 6)");
  EXPECT_EQ(problemOf("\"x\" junk"),
            "Old-style property list: unexpected 'j' after the value at line 1, column 5 (byte 4)");
}

// Each input must fail cleanly with a read error, never crash, hang or recurse unbounded.
TEST(OpenStepPlistReader, HostileInputs) {
  const std::string deep(10000, '(');
  const struct {
    std::string input;
    const char* problem;
  } kBad[] = {
      {"\"abc", "unterminated quoted string"},             // no closing quote
      {"\"abc\\", "unterminated quoted string"},           // ends inside an escape
      {"\"\\U\"", "\\U escape without hex digits"},        // \U needs at least one digit
      {"\"\\Ud800\"", "unpaired surrogate"},                // high surrogate alone
      {"\"\\Ud800x\"", "unpaired surrogate"},               // followed by a plain character
      {"\"\\Ud800\\n\"", "unpaired surrogate"},             // followed by another escape
      {"\"\\Udc00\"", "unpaired surrogate"},                // low surrogate alone
      {"\"\\400\"", "octal escape above \\377"},            // beyond one byte
      {"\"\xC3\x28\"", "not valid UTF-8"},                  // broken sequence
      {"\"\xED\xA0\x80\"", "not valid UTF-8"},              // encoded surrogate
      {"<0f1>", "odd number of hex digits"},               // half a byte
      {"<0g>", "unexpected 'g' in data"},                  // not hex
      {"<0f", "unterminated data"},                        // no '>'
      {"{ a = b }", "missing ';'"},                        // entry not closed
      {"{ a b; }", "missing '='"},                         // no '='
      {"{ a = ; }", "unexpected ';'"},                     // no value
      {"{ (x) = y; }", "expected a key, found '('"},       // keys are strings
      {"{ a = b;", "unterminated dictionary"},             // no '}'
      {"( a, b", "unterminated array"},                    // no ')'
      {"( a,, b )", "unexpected ','"},                     // empty item
      {"( a b )", "missing ','"},                          // no separator
      {"{ a = b; } }", "unexpected '}' after the value"},  // stray closer
      {"( a ) x", "unexpected 'x' after the value"},       // trailing garbage
      {"a = b; @", "expected a key, found '@'"},           // stray character in a strings file
      {"( a, # )", "unexpected '#'"},                      // stray character
      {"( \x01 )", "unexpected byte 0x01"},                // control character
      {"a = ", "missing value at the end of the text"},    // nothing after '='
      {"( /* never closed", "unterminated comment"},       // comment without end
      {deep, "nesting deeper than 512 levels"},            // recursion bomb
      {"{a={a={a=(" + deep, "nesting deeper than 512 levels"},
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

TEST(OpenStepPlistReader, NestingCapIsCheckedOnEntry) {
  std::string deepest(512, '(');
  deepest += std::string(512, ')');
  EXPECT_TRUE(parse(deepest));
  EXPECT_EQ(problemOf("(" + deepest + ")"),
            "Old-style property list: nesting deeper than 512 levels at line 1, column 513 (byte 512)");
}

// The "%@" text of strings, arrays and dictionaries is itself an old-style
// property list that reads back as the same value.
TEST(OpenStepPlistReader, ReadsDescriptionsBack) {
  const Value v = Value::dictionary({
      {"", Value::array({s(""), s("plain_word"), s("two words"), s("a/b.c-d:$")})},
      {"quotes \" and \\", s("tab\there\nnew line\r\a\b\f\v\x01\x7F")},
      {"unicode", s("caf\xC3\xA9 \xE2\x82\xAC \xF0\x9F\x98\x80")},
      {"nested", Value::array({Value::dictionary({{"k", Value::array({})}}), Value::dictionary({})})},
  });
  const std::string text = v.description();
  EXPECT_EQ(parse(text), v) << text;
}

}  // namespace
}  // namespace platform
