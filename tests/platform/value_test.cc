#include "platform/value.h"

#include <gtest/gtest.h>

#include "platform/format.h"

namespace platform {
namespace {

TEST(Value, IntegersCompareByNumericValue) {
  EXPECT_EQ(Value::integer(5), Value::unsignedInteger(5));
  EXPECT_FALSE(Value::integer(-1) == Value::unsignedInteger(UINT64_MAX));
  EXPECT_TRUE(Value::unsignedInteger(UINT64_MAX).asInteger()->isUnsigned);
}

TEST(Format, ObjectsAndPrintfConversions) {
  EXPECT_EQ(stringWithFormat("%@ (%d) %s %lu %%", Value::string("a"), -3, "c", 7UL), "a (-3) c 7 %");
  EXPECT_EQ(stringWithFormat("%@", Value()), "(null)");
  EXPECT_EQ(stringWithFormat("%d", 4294967295LL), "-1");  // narrowed to int like printf
  EXPECT_EQ(stringWithFormat("%s", 3), std::nullopt);      // wrong kind fails, never crashes
  EXPECT_EQ(stringWithFormat("%d %d", 1), std::nullopt);   // missing argument
  EXPECT_EQ(stringWithFormat("%-6@|", Value::string("ab")), "ab    |");
}

}  // namespace
}  // namespace platform
