// Replacing a stand-in that touches the machine: a guard inside another puts
// the outer replacement back, and the last one out puts the machine's back,
// for an interface used as const (the clock) and one that is not (a log sink).
#include "platform/foundation/machine_seam.h"

#include <gtest/gtest.h>

#include "harness/installed.h"
#include "platform/foundation/clock.h"
#include "platform/system_log/legacy_log.h"

namespace platform {
namespace {

using testing_support::Installed;

struct DroppingSink : LegacyLogSink {
  void send(const std::string&, const Dictionary&) override {}
};

TEST(MachineSeam, NestedReplacementsComeOffInTurnDownToTheMachines) {
  const Clock& machineClock = Clock::current();
  LegacyLogSink& machineSink = LegacyLogSink::current();
  const FixedClock outerClock(Date::fromUnixTime(1)), innerClock(Date::fromUnixTime(2));
  DroppingSink outerSink, innerSink;
  {
    const Installed<Clock> outerClockInstalled(&outerClock);
    const Installed<LegacyLogSink> outerSinkInstalled(&outerSink);
    {
      const Installed<Clock> innerClockInstalled(&innerClock);
      const Installed<LegacyLogSink> innerSinkInstalled(&innerSink);
      EXPECT_EQ(&Clock::current(), &innerClock);
      EXPECT_EQ(&LegacyLogSink::current(), &innerSink);
    }
    EXPECT_EQ(&Clock::current(), &outerClock);
    EXPECT_EQ(&LegacyLogSink::current(), &outerSink);
  }
  EXPECT_EQ(&Clock::current(), &machineClock);
  EXPECT_EQ(&LegacyLogSink::current(), &machineSink);
  EXPECT_EQ(dynamic_cast<const FixedClock*>(&machineClock), nullptr) << "the system clock at first";
}

}  // namespace
}  // namespace platform
