#include <gtest/gtest.h>

#include <bit>
#include <cmath>
#include <limits>
#include <string>

#include "platform/binary_plist_reader.h"
#include "platform/binary_plist_writer.h"
#include "platform/property_list.h"

namespace platform {
namespace {

// Writes `v` (UIDs allowed), reads it back, and checks that writing what was
// read gives the same bytes again.
Value roundTrip(const Value& v) {
  std::string problem;
  const std::optional<Bytes> bytes = binary_plist::writeWithUids(v, problem);
  EXPECT_TRUE(bytes) << problem;
  if (!bytes) return {};
  const Value read = binary_plist::read(*bytes, problem);
  EXPECT_TRUE(read) << problem;
  EXPECT_EQ(binary_plist::writeWithUids(read, problem), bytes);
  return read;
}

TEST(BinaryPlistRoundTrip, IntegerEdges) {
  const Value kIntegers[] = {
      Value::integer(0),          Value::integer(1),          Value::integer(-1),
      Value::integer(255),        Value::integer(256),        Value::integer(65535),
      Value::integer(65536),      Value::integer(4294967295), Value::integer(4294967296),
      Value::integer(INT64_MAX),  Value::integer(INT64_MIN),  Value::integer(-256),
      Value::unsignedInteger(1ULL << 63), Value::unsignedInteger(UINT64_MAX),
  };
  for (const Value& v : kIntegers) {
    const Value back = roundTrip(v);
    EXPECT_EQ(back, v) << v.description();
    ASSERT_TRUE(back.asInteger());
    EXPECT_EQ(back.asInteger()->isUnsigned, v.asInteger()->isUnsigned) << v.description();
  }
}

TEST(BinaryPlistRoundTrip, RealsKeepTheirBits) {
  const double kReals[] = {0.0, -0.0, 0.1, -1.5, 1e300, 5e-324,
                           std::numeric_limits<double>::infinity(),
                           -std::numeric_limits<double>::infinity(),
                           std::numeric_limits<double>::quiet_NaN()};
  for (double d : kReals) {
    const std::optional<double> back = roundTrip(Value::real(d)).asReal();
    ASSERT_TRUE(back) << d;
    EXPECT_EQ(std::bit_cast<std::uint64_t>(*back), std::bit_cast<std::uint64_t>(d)) << d;
  }
}

TEST(BinaryPlistRoundTrip, DatesBeforeAndAfter2001) {
  for (double seconds : {-3187296000.0, -978307200.0, -0.5, 0.0, 0.25, 631530423.0, 1e12}) {
    EXPECT_EQ(roundTrip(Value::date({seconds})), Value::date({seconds})) << seconds;
  }
}

TEST(BinaryPlistRoundTrip, StringsAndData) {
  const char* const kStrings[] = {"", "plain", "a string longer than fourteen", "caf\u00e9",
                                  "\u65e5\u672c\u8a9e", "astral \U0001F600 and \U0001D11E"};
  for (const char* s : kStrings) EXPECT_EQ(roundTrip(Value::string(s)), Value::string(s)) << s;
  const std::string withNul("nul\0inside", 10);
  EXPECT_EQ(roundTrip(Value::string(withNul)), Value::string(withNul));
  Bytes all;
  for (int i = 0; i < 256; ++i) all.push_back(static_cast<std::uint8_t>(i));
  EXPECT_EQ(roundTrip(Value::data(all)), Value::data(all));
  EXPECT_EQ(roundTrip(Value::data({})), Value::data({}));
}

TEST(BinaryPlistRoundTrip, Containers) {
  const Value empties = Value::array({Value::array({}), Value::dictionary({})});
  EXPECT_EQ(roundTrip(empties), empties);
  const Value archive = Value::dictionary({
      {"$top", Value::dictionary({{"root", Value::uid(1)}})},
      {"$objects", Value::array({Value::string("$null"), Value::uid(70000)})},
      {"caf\u00e9", Value::boolean(false)},
  });
  EXPECT_EQ(roundTrip(archive), archive);
  Value deep = Value::string("bottom");
  for (int i = 0; i < 511; ++i) deep = Value::array({deep, Value::integer(i)});
  EXPECT_EQ(roundTrip(deep), deep);
}

TEST(BinaryPlistRoundTrip, ThroughTheRegistry) {
  const Value plist = Value::dictionary({{"Enabled", Value::boolean(true)},
                                         {"Interval", Value::integer(3600)},
                                         {"Name", Value::string("\u00e9t\u00e9")}});
  ErrorRef error;
  const std::optional<Bytes> bytes = dataWithPropertyList(plist, PropertyListFormat::Binary, &error);
  ASSERT_TRUE(bytes);
  PropertyListFormat format{};
  EXPECT_EQ(propertyListWithData(*bytes, &format, &error), plist);
  EXPECT_EQ(format, PropertyListFormat::Binary);
}

}  // namespace
}  // namespace platform
