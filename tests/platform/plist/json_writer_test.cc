#include <gtest/gtest.h>

#include <cmath>
#include <string>

#include "platform/plist/json_writer.h"
#include "platform/plist/property_list.h"

namespace platform {
namespace {

std::string json(const Value& v, ErrorRef* error = nullptr) {
  const auto bytes = json::dataWithJSONObject(v, error);
  return bytes ? std::string(bytes->begin(), bytes->end()) : std::string("<failed>");
}

TEST(JsonWriter, PrettyLayout) {
  EXPECT_EQ(json(Value::dictionary({
                {"Big", Value::unsignedInteger(UINT64_MAX)},
                {"List", Value::array({Value::boolean(true), Value::real(0.1), Value::array({}), Value::dictionary({})})},
                {"Text", Value::string("/say \"hi\"\\\n\r\t\b\f\x01\x1f caf\u00e9")},
            })),
            R"({
  "Big" : 18446744073709551615,
  "List" : [
    true,
    0.1,
    [

    ],
    {

    }
  ],
  "Text" : "\/say \"hi\"\\\n\r\t\b\f\u0001\u001f caf)"
            "\u00e9\"\n}");
  EXPECT_EQ(json(Value::array({})), "[\n\n]");
  Value deepest = Value::array({});
  for (int i = 1; i < 512; ++i) deepest = Value::array({deepest});
  EXPECT_NE(json(deepest), "<failed>");
  EXPECT_EQ(json(Value::array({deepest})), "<failed>");
}

// Each value holds what JSON cannot carry; the error names it and where.
TEST(JsonWriter, RefusesWhatJsonCannotCarry) {
  const struct {
    Value value;
    const char* problem;
  } kRefused[] = {
      {Value::string("scalar root"), "JSON: the top-level object must be a dictionary or an array"},
      {Value::dictionary({{"d", Value::date(Date{0})}}), "JSON: cannot write a date at root[\"d\"]"},
      {Value::array({Value::data({1})}), "JSON: cannot write data at root[0]"},
      {Value::array({Value::array({}), Value::array({Value::real(NAN)})}), "JSON: cannot write a non-finite number at root[1][0]"},
      {Value::dictionary({{"\xFF", Value::integer(1)}}), "text that is not valid UTF-8 at root[\"\xFF\"]"},
  };
  for (const auto& c : kRefused) {
    ErrorRef error;
    EXPECT_EQ(json(c.value, &error), "<failed>") << c.problem;
    ASSERT_TRUE(error) << c.problem;
    EXPECT_EQ(error->code, NSPropertyListWriteInvalidError);
    EXPECT_NE(error->localizedDescription().find(c.problem), std::string::npos) << error->localizedDescription();
  }
}

}  // namespace
}  // namespace platform
