#include "platform/plist/value.h"

#include <gtest/gtest.h>

#include <cmath>
#include <cstdint>
#include <string>
#include <vector>

namespace platform {
namespace {

// A real reads as an integer rounded towards zero, saturated at both ends, NaN as 0.
TEST(Value, EveryRealReadsAsAnInteger) {
  constexpr double kTwoTo63 = 9223372036854775808.0;
  const struct {
    double real;
    std::int64_t reading;
  } kReadings[] = {
      {-1.9, -1}, {1.9, 1}, {std::nextafter(kTwoTo63, 0), INT64_MAX - 1023}, {kTwoTo63, INT64_MAX},
      {1e300, INT64_MAX}, {INFINITY, INT64_MAX}, {-kTwoTo63, INT64_MIN}, {-1e300, INT64_MIN},
      {-INFINITY, INT64_MIN}, {NAN, 0},
  };
  for (const auto& r : kReadings) {
    EXPECT_EQ(Value::real(r.real).int64Value(), r.reading) << r.real;
    EXPECT_EQ(Value::real(r.real).uint64Value(), static_cast<std::uint64_t>(r.reading)) << r.real;
  }
}

// Every value equals itself: reals and dates that are not a number equal each other.
TEST(Value, EqualityOfNumbersThatAreNotNumbers) {
  EXPECT_EQ(Value::real(NAN), Value::real(-NAN));
  EXPECT_EQ(Value::date({NAN}), Value::date({NAN}));
  EXPECT_EQ(Value::array({Value::date({NAN})}), Value::array({Value::date({NAN})}));
  EXPECT_EQ(Value::real(0.0), Value::real(-0.0));
  EXPECT_NE(Value::real(NAN), Value::real(INFINITY));
  EXPECT_NE(Value::date({NAN}), Value::date({0}));
  EXPECT_NE(Value::date({NAN}), Value::real(NAN));
}

// Entries handed over at once, in any order, make the dictionary that setting
// each in turn makes: keys in ascending byte order, the last value of a repeated key.
TEST(Dictionary, EntriesInAnyOrderAsIfSetInTurn) {
  using Entries = std::vector<std::pair<std::string, int>>;
  const Entries kOrders[] = {
      {},
      {{"a", 1}},
      {{"a", 1}, {"b", 2}, {"c", 3}},
      {{"c", 3}, {"b", 2}, {"a", 1}},
      {{"b", 1}, {"b", 2}},
      {{"b", 1}, {"a", 2}, {"b", 3}, {"a", 4}, {"b", 5}},
      {{"x", 1}, {"x", 2}, {"x", 3}, {"a", 4}},
      {{"ab", 1}, {"", 2}, {"a", 3}, {"\xC3\xA9", 4}, {"z", 5}, {"", 6}},
  };
  for (const Entries& order : kOrders) {
    std::vector<Dictionary::Entry> entries;
    Dictionary expected;
    for (const auto& [key, number] : order) {
      entries.emplace_back(key, Value::integer(number));
      expected.set(key, Value::integer(number));
    }
    const Dictionary made(std::move(entries));
    EXPECT_EQ(made, expected) << order.size() << " entries";
    const std::string* previous = nullptr;
    for (const auto& [key, item] : made) {
      if (previous) {
        EXPECT_LT(*previous, key);
      }
      EXPECT_EQ(made.get(key), item);
      previous = &key;
    }
  }
}

TEST(Dictionary, SetGetAndEraseKeepKeyOrder) {
  Dictionary d{{"m", Value::integer(1)}};
  d.set("z", Value::integer(2));
  d.set("a", Value::integer(3));
  d.set("m", Value::integer(4));
  EXPECT_EQ(d, Dictionary({{"a", Value::integer(3)}, {"m", Value::integer(4)}, {"z", Value::integer(2)}}));
  EXPECT_TRUE(d.contains("a"));
  EXPECT_FALSE(d.contains("b"));
  EXPECT_TRUE(d.get("zz").isNone());
  d.erase("m");
  d.erase("absent");
  EXPECT_EQ(d, Dictionary({{"a", Value::integer(3)}, {"z", Value::integer(2)}}));
  d.erase("a");
  d.erase("z");
  EXPECT_TRUE(d.empty());
}

}  // namespace
}  // namespace platform
