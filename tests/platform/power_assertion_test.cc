// Power assertions as the machine makes them, in a sandbox whose fresh /run
// has no system bus: assertions are still made and released by id, and
// malformed requests are refused.
#include "platform/power_assertion.h"

#include <gtest/gtest.h>

#include <set>

#include "harness/end_to_end.h"

namespace testing_support {
namespace {

using platform::IOPMAssertionCreateWithDescription;
using platform::IOPMAssertionID;
using platform::IOPMAssertionRelease;

constexpr const char* kName = "com.larkspan.quillhaven.update";

IOPMAssertionID create(const char* type, const char* name = kName, platform::IOReturn* result = nullptr) {
  IOPMAssertionID id = 0;
  const platform::IOReturn created =
      IOPMAssertionCreateWithDescription(type, name, nullptr, nullptr, nullptr, 0, nullptr, &id);
  if (result) *result = created;
  return id;
}

class PowerAssertions : public EndToEndTest {};

TEST_F(PowerAssertions, EachAssertionHasItsOwnIdUntilReleased) {
  std::set<IOPMAssertionID> ids;
  for (int i = 0; i < 3; ++i) {
    for (const char* type : {platform::kIOPMAssertionTypePreventUserIdleSystemSleep,
                             platform::kIOPMAssertionTypeBackgroundTask}) {
      platform::IOReturn result = -1;
      ids.insert(create(type, kName, &result));
      EXPECT_EQ(result, platform::kIOReturnSuccess) << type;
    }
  }
  EXPECT_EQ(ids.size(), 6u);
  EXPECT_EQ(ids.count(0), 0u) << "0 is never an id";
  for (IOPMAssertionID id : ids) {
    EXPECT_EQ(IOPMAssertionRelease(id), platform::kIOReturnSuccess);
    EXPECT_EQ(IOPMAssertionRelease(id), platform::kIOReturnNotFound) << "released once only";
  }
}

TEST_F(PowerAssertions, MalformedRequestsAreRefused) {
  platform::IOReturn result = 0;
  create("PreventSystemSleep", kName, &result);  // a type this stand-in does not know
  EXPECT_EQ(result, platform::kIOReturnBadArgument);
  create(nullptr, kName, &result);
  EXPECT_EQ(result, platform::kIOReturnBadArgument);
  create(platform::kIOPMAssertionTypeBackgroundTask, nullptr, &result);
  EXPECT_EQ(result, platform::kIOReturnBadArgument);
  EXPECT_EQ(IOPMAssertionCreateWithDescription(platform::kIOPMAssertionTypeBackgroundTask, kName, nullptr, nullptr,
                                               nullptr, 0, nullptr, nullptr),
            platform::kIOReturnBadArgument);
  EXPECT_EQ(IOPMAssertionRelease(0), platform::kIOReturnNotFound);
}

}  // namespace
}  // namespace testing_support
