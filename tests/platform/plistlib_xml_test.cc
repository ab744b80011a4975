// XML property lists checked against an independent implementation: Python's
// standard plistlib reads what the writer writes, and the reader reads what
// plistlib writes. Both sides build the same values, each in its own language.
#include <gtest/gtest.h>

#include <string>

#include "harness/python_runner.h"
#include "harness/temp_dir.h"
#include "platform/property_list.h"

namespace platform {
namespace {

// argv: the value's name, "write" (plistlib's XML to a file) or "check" (read a
// file with plistlib and compare), the file.
constexpr const char* kScript = R"(
import datetime, plistlib, sys
D = datetime.datetime

def nested(levels):
    v = "bottom"
    for i in range(levels):
        v = [v] if i % 2 else {"k": v}
    return v

values = {
    "kinds": {
        "array": [True, False, 0, -1, 9223372036854775807, -9223372036854775808,
                  18446744073709551615],
        "reals": [0.5, -2.5e-300, 1e+16, 0.1],
        "dates": [D(1900, 1, 1), D(1969, 12, 31, 23, 59, 59), D(2000, 6, 15, 12),
                  D(2001, 1, 1), D(2038, 1, 19, 3, 14, 8), D(2100, 1, 1)],
        "data": [b"", bytes(range(256)), [[[[[[[[[bytes(range(40))]]]]]]]]]],
        "strings": ["", "a & b < c > d", "caf\u00e9", "\u20ac \U0001F600 \u65e5\u672c",
                    "tab\tnew\nline", "  spaced  "],
        "unicod\u00e9": {"\u043a\u043b\u044e\u0447": "\u0437\u043d\u0430\u0447\u0435\u043d\u0438\u0435"},
        "empty": [{}, []],
    },
    "deep": nested(200),
}
name, mode, path = sys.argv[1:4]
if mode == "write":
    with open(path, "wb") as f:
        plistlib.dump(values[name], f, fmt=plistlib.FMT_XML)
else:
    with open(path, "rb") as f:
        read = plistlib.load(f)
    print("equal" if read == values[name] else "differs: %r" % (read,))
)";

Value s(const char* text) { return Value::string(text); }

Value date(double unixTime) { return Value::date(Date::fromUnixTime(unixTime)); }

Value kinds() {
  Value deepData = Value::data([] {
    Bytes bytes(40);
    for (std::size_t i = 0; i < bytes.size(); ++i) bytes[i] = static_cast<std::uint8_t>(i);
    return bytes;
  }());
  for (int i = 0; i < 9; ++i) deepData = Value::array({deepData});
  Bytes all(256);
  for (std::size_t i = 0; i < all.size(); ++i) all[i] = static_cast<std::uint8_t>(i);
  return Value::dictionary({
      {"array", Value::array({Value::boolean(true), Value::boolean(false), Value::integer(0),
                              Value::integer(-1), Value::integer(INT64_MAX), Value::integer(INT64_MIN),
                              Value::unsignedInteger(UINT64_MAX)})},
      {"reals", Value::array({Value::real(0.5), Value::real(-2.5e-300), Value::real(1e16), Value::real(0.1)})},
      {"dates", Value::array({date(-2208988800), date(-1), date(961070400), date(978307200),
                              date(2147483648), date(4102444800)})},
      {"data", Value::array({Value::data({}), Value::data(all), deepData})},
      {"strings", Value::array({s(""), s("a & b < c > d"), s("caf\xC3\xA9"),
                                s("\xE2\x82\xAC \xF0\x9F\x98\x80 \xE6\x97\xA5\xE6\x9C\xAC"), s("tab\tnew\nline"),
                                s("  spaced  ")})},
      {"unicod\xC3\xA9", Value::dictionary({{"\xD0\xBA\xD0\xBB\xD1\x8E\xD1\x87",
                                             s("\xD0\xB7\xD0\xBD\xD0\xB0\xD1\x87\xD0\xB5\xD0\xBD\xD0\xB8\xD0\xB5")}})},
      {"empty", Value::array({Value::dictionary({}), Value::array({})})},
  });
}

Value nested(int levels) {
  Value v = s("bottom");
  for (int i = 0; i < levels; ++i) v = i % 2 ? Value::array({v}) : Value::dictionary({{"k", v}});
  return v;
}

class PlistlibXml : public ::testing::TestWithParam<const char*> {
 protected:
  void SetUp() override {
    if (!testing_support::pythonHasModule("plistlib")) {
      GTEST_SKIP() << "python3 with plistlib not found: XML interop not checked";
    }
  }

  Value expected() const { return std::string(GetParam()) == "kinds" ? kinds() : nested(200); }

  testing_support::PythonRun python(const char* mode, const std::string& path) const {
    const auto run = testing_support::runPython(kScript, {GetParam(), mode, path});
    EXPECT_TRUE(run && run->status == 0) << (run ? run->err : "python3 did not start");
    return run.value_or(testing_support::PythonRun{});
  }

  testing_support::TempDir dir_;
};

TEST_P(PlistlibXml, PlistlibReadsWhatWeWrite) {
  const auto ours = dataWithPropertyList(expected(), PropertyListFormat::XML, nullptr);
  ASSERT_TRUE(ours);
  dir_.write("ours.plist", std::string(ours->begin(), ours->end()));
  EXPECT_EQ(python("check", dir_.file("ours.plist")).out, "equal\n");
}

TEST_P(PlistlibXml, WeReadWhatPlistlibWrites) {
  python("write", dir_.file("theirs.plist"));
  const std::string theirs = dir_.read("theirs.plist");
  ErrorRef error;
  PropertyListFormat format{};
  const Value read = propertyListWithData(Bytes(theirs.begin(), theirs.end()), &format, &error);
  ASSERT_TRUE(read) << (error ? error->localizedDescription() : "");
  EXPECT_EQ(format, PropertyListFormat::XML);
  EXPECT_EQ(read, expected());
}

// Both follow the platform's layout, so for these values the bytes agree too.
TEST_P(PlistlibXml, SameBytesAsPlistlib) {
  python("write", dir_.file("theirs.plist"));
  const auto ours = dataWithPropertyList(expected(), PropertyListFormat::XML, nullptr);
  ASSERT_TRUE(ours);
  EXPECT_EQ(std::string(ours->begin(), ours->end()), dir_.read("theirs.plist"));
}

INSTANTIATE_TEST_SUITE_P(Values, PlistlibXml, ::testing::Values("kinds", "deep"));

}  // namespace
}  // namespace platform
