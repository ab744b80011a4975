#include <gtest/gtest.h>

#include <cmath>
#include <string>

#include "harness/python_runner.h"
#include "harness/temp_dir.h"
#include "platform/json_writer.h"
#include "platform/property_list.h"

namespace platform {
namespace {

std::string json(const Value& v, ErrorRef* error = nullptr) {
  const auto bytes = json::dataWithJSONObject(v, error);
  return bytes ? std::string(bytes->begin(), bytes->end()) : std::string("<failed>");
}

Value s(const char* text) { return Value::string(text); }

const Value& sample() {
  static const Value v = Value::dictionary({
      {"Enabled", Value::boolean(true)},
      {"Off", Value::boolean(false)},
      {"Count", Value::integer(-42)},
      {"Big", Value::unsignedInteger(UINT64_MAX)},
      {"Small", Value::integer(INT64_MIN)},
      {"Ratio", Value::real(0.1)},
      {"Whole", Value::real(3)},
      {"Path", s("/Library/Logs")},
      {"Text", s("say \"hi\"\\\n\r\t\b\f\x01\x1f caf\xC3\xA9")},
      {"List", Value::array({Value::integer(1), Value::array({}), Value::dictionary({}),
                             Value::dictionary({{"k", s("v")}})})},
  });
  return v;
}

TEST(JsonWriter, PrettyLayoutByteForByte) {
  EXPECT_EQ(json(sample()),
            "{\n"
            "  \"Big\" : 18446744073709551615,\n"
            "  \"Count\" : -42,\n"
            "  \"Enabled\" : true,\n"
            "  \"List\" : [\n"
            "    1,\n"
            "    [\n"
            "\n"
            "    ],\n"
            "    {\n"
            "\n"
            "    },\n"
            "    {\n"
            "      \"k\" : \"v\"\n"
            "    }\n"
            "  ],\n"
            "  \"Off\" : false,\n"
            "  \"Path\" : \"\\/Library\\/Logs\",\n"
            "  \"Ratio\" : 0.1,\n"
            "  \"Small\" : -9223372036854775808,\n"
            "  \"Text\" : \"say \\\"hi\\\"\\\\\\n\\r\\t\\b\\f\\u0001\\u001f caf\xC3\xA9\",\n"
            "  \"Whole\" : 3\n"
            "}");
}

TEST(JsonWriter, EmptyRootsAndArrays) {
  EXPECT_EQ(json(Value::dictionary({})), "{\n\n}");
  EXPECT_EQ(json(Value::array({})), "[\n\n]");
  EXPECT_EQ(json(Value::array({s("a/b"), Value::real(-0.0), Value::real(1e300)})),
            "[\n  \"a\\/b\",\n  -0,\n  1e+300\n]");
}

// Each value holds what JSON cannot carry; the error names it and where.
TEST(JsonWriter, RefusesWhatJsonCannotCarry) {
  const struct {
    Value value;
    const char* problem;
  } kRefused[] = {
      {s("scalar root"), "JSON: the top-level object must be a dictionary or an array"},
      {Value(), "JSON: the top-level object must be a dictionary or an array"},
      {Value::dictionary({{"d", Value::date(Date{0})}}), "JSON: cannot write a date at root[\"d\"]"},
      {Value::array({Value::data({1})}), "JSON: cannot write data at root[0]"},
      {Value::array({Value::real(NAN)}), "JSON: cannot write a non-finite number at root[0]"},
      {Value::array({Value::real(-INFINITY)}), "JSON: cannot write a non-finite number at root[0]"},
      {Value::array({Value::array({}), Value::array({Value::error(Error::make("d", 1))})}),
       "JSON: cannot write an error object at root[1][0]"},
      {Value::dictionary({{"u", Value::uid(1)}}), "JSON: cannot write a UID at root[\"u\"]"},
      {Value::array({Value()}), "JSON: cannot write an absent value at root[0]"},
      {Value::array({s("\xC3")}), "JSON: cannot write text that is not valid UTF-8 at root[0]"},
      {Value::dictionary({{"\xFF", Value::integer(1)}}), "text that is not valid UTF-8 at root[\"\xFF\"]"},
  };
  for (const auto& refused : kRefused) {
    ErrorRef error;
    EXPECT_EQ(json(refused.value, &error), "<failed>") << refused.problem;
    ASSERT_TRUE(error) << refused.problem;
    EXPECT_EQ(error->domain, NSCocoaErrorDomain);
    EXPECT_EQ(error->code, NSPropertyListWriteInvalidError);
    EXPECT_NE(error->localizedDescription().find(refused.problem), std::string::npos)
        << error->localizedDescription();
  }
  EXPECT_FALSE(json::dataWithJSONObject(Value::array({Value()}), nullptr));
}

TEST(JsonWriter, NestingCap) {
  Value v = Value::array({});
  for (int i = 1; i < 512; ++i) v = Value::array({v});
  EXPECT_NE(json(v), "<failed>");
  ErrorRef error;
  EXPECT_EQ(json(Value::array({v}), &error), "<failed>");
  ASSERT_TRUE(error);
  EXPECT_NE(error->localizedDescription().find("nesting deeper than 512 levels"), std::string::npos);
}

// Python's json module reads the output back as the same values.
TEST(JsonWriter, PythonJsonReadsItBack) {
  if (!testing_support::pythonHasModule("json")) GTEST_SKIP() << "python3 not found: JSON output not checked by Python";
  testing_support::TempDir dir;
  dir.write("out.json", json(sample()));
  const auto run = testing_support::runPython(
      "import json, sys\n"
      "v = json.load(open(sys.argv[1], encoding='utf-8'))\n"
      "print(json.dumps(v, sort_keys=True, ensure_ascii=True))\n",
      {dir.file("out.json")});
  ASSERT_TRUE(run);
  ASSERT_EQ(run->status, 0) << run->err;
  EXPECT_EQ(run->out,
            "{\"Big\": 18446744073709551615, \"Count\": -42, \"Enabled\": true, "
            "\"List\": [1, [], {}, {\"k\": \"v\"}], \"Off\": false, \"Path\": \"/Library/Logs\", "
            "\"Ratio\": 0.1, \"Small\": -9223372036854775808, "
            "\"Text\": \"say \\\"hi\\\"\\\\\\n\\r\\t\\b\\f\\u0001\\u001f caf\\u00e9\", \"Whole\": 3}\n");
}

}  // namespace
}  // namespace platform
