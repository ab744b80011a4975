// The operating-system version test, on injected systems and on this machine.
#include "support/system_version.h"

#include <gtest/gtest.h>

#include <latch>
#include <thread>
#include <vector>

namespace {

using platform::OperatingSystemVersion;

class SystemVersionTest : public ::testing::Test {
 protected:
  ~SystemVersionTest() override { platform::ProcessInfo::setForTesting(nullptr); }

  // The shared manager's answers on a system reporting `running`.
  const LKSSystemVersionManager& on(const platform::FixedProcessInfo& running) {
    platform::ProcessInfo::setForTesting(&running);
    return LKSSystemVersionManager::sharedManager();
  }
};

struct NamedVersionCase {
  OperatingSystemVersion running;
  unsigned value;
  bool expected;
};

TEST_F(SystemVersionTest, NamedVersionsAskForTenPointTenPlusTheirValue) {
  const NamedVersionCase cases[] = {
      {{10, 11, 6}, LKSSystemVersion10_12, false},  // no unified log yet
      {{10, 12, 0}, LKSSystemVersion10_12, true},
      {{10, 12, 6}, LKSSystemVersion10_12, true},
      {{11, 0, 0}, LKSSystemVersion10_12, true},
      {{12, 7, 1}, LKSSystemVersion10_12, true},
      {{10, 12, 6}, LKSSystemVersion10_13, false},
      {{10, 13, 0}, LKSSystemVersion10_13, true},
      {{10, 9, 5}, LKSSystemVersion10_10, false},
      {{10, 10, 0}, LKSSystemVersion10_10, true},
      {{10, 14, 9}, LKSSystemVersion10_15, false},
      {{10, 15, 0}, LKSSystemVersion10_15, true},
      {{10, 15, 7}, LKSSystemVersion10_11, true},
      // Values from 6 on ask for 10.0.0.
      {{10, 0, 0}, 6, true},
      {{10, 9, 0}, 7, true},
      {{10, 10, 0}, 1000, true},
      {{9, 99, 99}, 6, false},
  };
  for (const NamedVersionCase& c : cases) {
    const platform::FixedProcessInfo running(c.running);
    EXPECT_EQ(on(running).runningAtLeast(static_cast<LKSSystemVersion>(c.value)), c.expected)
        << c.running.majorVersion << "." << c.running.minorVersion << "." << c.running.patchVersion
        << " asked " << c.value;
  }
}

struct ExplicitVersionCase {
  OperatingSystemVersion running, wanted;
  bool expected;
};

TEST_F(SystemVersionTest, ExplicitVersionsCompareMajorThenMinorThenPatch) {
  const ExplicitVersionCase cases[] = {
      {{10, 12, 3}, {10, 12, 3}, true},  {{10, 12, 3}, {10, 12, 4}, false}, {{10, 12, 3}, {10, 12, 2}, true},
      {{10, 12, 3}, {10, 13, 0}, false}, {{10, 12, 3}, {10, 11, 99}, true}, {{11, 0, 0}, {10, 99, 99}, true},
      {{10, 99, 99}, {11, 0, 0}, false},
  };
  for (const ExplicitVersionCase& c : cases) {
    const platform::FixedProcessInfo running(c.running);
    EXPECT_EQ(on(running).runningAtLeastVersion(c.wanted), c.expected)
        << c.wanted.majorVersion << "." << c.wanted.minorVersion << "." << c.wanted.patchVersion;
  }
}

// The oldest supported system (10.9) has no version query.
TEST_F(SystemVersionTest, WithoutTheVersionQueryOnlyTenPointNineIsKnown) {
  const platform::FixedProcessInfo oldest(std::nullopt);
  const LKSSystemVersionManager& manager = on(oldest);
  for (unsigned value : {0u, 1u, 2u, 3u, 4u, 5u, 6u, 1000u}) {
    EXPECT_FALSE(manager.runningAtLeast(static_cast<LKSSystemVersion>(value))) << value;
  }
  const ExplicitVersionCase cases[] = {
      {{}, {10, 9, 0}, true},   {{}, {10, 9, 5}, true},  {{}, {10, 8, 0}, false},
      {{}, {10, 10, 0}, false}, {{}, {11, 9, 0}, false}, {{}, {9, 9, 0}, false},
  };
  for (const ExplicitVersionCase& c : cases) {
    EXPECT_EQ(manager.runningAtLeastVersion(c.wanted), c.expected)
        << c.wanted.majorVersion << "." << c.wanted.minorVersion << "." << c.wanted.patchVersion;
  }
}

TEST_F(SystemVersionTest, ThisMachineCountsAsACurrentSystem) {
  const LKSSystemVersionManager& manager = LKSSystemVersionManager::sharedManager();
  for (unsigned value : {0u, 1u, 2u, 3u, 4u, 5u, 6u}) {
    EXPECT_TRUE(manager.runningAtLeast(static_cast<LKSSystemVersion>(value))) << value;
  }
  EXPECT_TRUE(manager.runningAtLeastVersion({10, 15, 7}));
  EXPECT_TRUE(manager.runningAtLeastVersion({11, 0, 0}));
}

TEST_F(SystemVersionTest, SharedManagerIsOneInstanceEvenWhenFirstAskedConcurrently) {
  constexpr int kThreads = 8;
  std::latch start(kThreads);
  std::vector<const LKSSystemVersionManager*> seen(kThreads);
  std::vector<std::thread> threads;
  for (int i = 0; i < kThreads; ++i) {
    threads.emplace_back([&, i] {
      start.arrive_and_wait();
      seen[static_cast<std::size_t>(i)] = &LKSSystemVersionManager::sharedManager();
    });
  }
  for (std::thread& t : threads) t.join();
  for (const LKSSystemVersionManager* manager : seen) EXPECT_EQ(manager, seen[0]);
  EXPECT_EQ(&LKSSystemVersionManager::sharedManager(), seen[0]);
}

}  // namespace
