// The operating-system version test, on injected systems and on this machine.
#include "support/system_version.h"

#include <gtest/gtest.h>

#include "harness/installed.h"
#include "platform/foundation/process_info.h"

namespace {

using Version = platform::OperatingSystemVersion;
constexpr std::optional<Version> kNoVersionQuery;  // the oldest supported system, 10.9

// Each case asks a system either for a named version (`value`) or for `wanted`.
struct Case {
  std::optional<Version> running;
  std::optional<unsigned> value;
  Version wanted;
  bool expected;
};

TEST(SystemVersion, NamedVersionsAskForTenPointTenPlusTheirValueAndExplicitOnesCompareInOrder) {
  const Case cases[] = {
      {{{10, 11, 6}}, LKSSystemVersion10_12, {}, false},  // no unified log yet
      {{{10, 12, 0}}, LKSSystemVersion10_12, {}, true},
      {{{10, 15, 0}}, LKSSystemVersion10_15, {}, true},
      {{{10, 0, 0}}, 6, {}, true},  // from 6 on: 10.0.0
      {{{9, 99, 0}}, 1000, {}, false},
      {kNoVersionQuery, LKSSystemVersion10_10, {}, false},
      {kNoVersionQuery, 6, {}, false},  // no named version at all without the query
      {{{10, 12, 3}}, {}, {10, 12, 4}, false},
      {{{10, 12, 3}}, {}, {10, 11, 99}, true},
      {{{10, 99, 9}}, {}, {11, 0, 0}, false},
      {kNoVersionQuery, {}, {10, 9, 5}, true},  // 10.9 whatever the patch, and nothing else
      {kNoVersionQuery, {}, {10, 8, 0}, false},
      {kNoVersionQuery, {}, {11, 9, 0}, false},
  };
  for (const Case& c : cases) {
    const platform::FixedProcessInfo system(c.running);
    const testing_support::Installed<platform::ProcessInfo> installed(&system);
    const LKSSystemVersionManager& manager = LKSSystemVersionManager::sharedManager();
    EXPECT_EQ(c.value ? manager.runningAtLeast(LKSSystemVersion(*c.value)) : manager.runningAtLeastVersion(c.wanted),
              c.expected)
        << "case " << &c - cases;
  }
  EXPECT_TRUE(LKSSystemVersionManager::sharedManager().runningAtLeast(LKSSystemVersion10_15)) << "this machine";
}

}  // namespace
