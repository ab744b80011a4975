// Power assertions as the machine makes them, in a sandbox whose fresh /run has
// no system bus: still made, each with its own id, and released once.
#include "platform/foundation/power_assertion.h"

#include <gtest/gtest.h>

#include <set>

#include "harness/end_to_end.h"

namespace testing_support {
namespace {

using namespace platform;

class PowerAssertions : public EndToEndTest {};

TEST_F(PowerAssertions, EachIsMadeWithItsOwnIdAndReleasedOnce) {
  const auto create = [](const char* type, const char* name, IOPMAssertionID* id) {
    return IOPMAssertionCreateWithDescription(type, name, nullptr, nullptr, nullptr, 0, nullptr, id);
  };
  std::set<IOPMAssertionID> ids;
  for (const char* type : {kIOPMAssertionTypePreventUserIdleSystemSleep, kIOPMAssertionTypeBackgroundTask,
                           kIOPMAssertionTypeBackgroundTask}) {
    IOPMAssertionID id = 0;
    EXPECT_EQ(create(type, "com.larkspan.quillhaven.update", &id), kIOReturnSuccess) << type;
    ids.insert(id);
  }
  EXPECT_EQ(ids.size(), 3u);
  EXPECT_FALSE(ids.contains(0)) << "0 is never an id";
  for (IOPMAssertionID id : ids) {
    EXPECT_EQ(IOPMAssertionRelease(id), kIOReturnSuccess);
    EXPECT_EQ(IOPMAssertionRelease(id), kIOReturnNotFound);
  }
  IOPMAssertionID id = 0;  // an unknown type, a missing name or a missing id is refused
  EXPECT_EQ(create("PreventSystemSleep", "n", &id), kIOReturnBadArgument);
  EXPECT_EQ(create(kIOPMAssertionTypeBackgroundTask, nullptr, &id), kIOReturnBadArgument);
  EXPECT_EQ(create(kIOPMAssertionTypeBackgroundTask, "n", nullptr), kIOReturnBadArgument);
}

}  // namespace
}  // namespace testing_support
