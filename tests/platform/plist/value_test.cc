#include "platform/plist/value.h"

#include <gtest/gtest.h>

#include <cmath>
#include <cstdint>

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

}  // namespace
}  // namespace platform
