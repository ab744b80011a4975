#include "platform/value.h"

#include <gtest/gtest.h>

#include <cmath>
#include <cstdint>

namespace platform {
namespace {

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
