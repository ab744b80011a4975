#include <gtest/gtest.h>

#include <string>

#include "platform/plist/json_writer.h"
#include "platform/plist/property_list.h"

namespace platform {
namespace {

std::string json(const Value& v) {
  const auto bytes = json::dataWithJSONObject(v, nullptr);
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
}

}  // namespace
}  // namespace platform
