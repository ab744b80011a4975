// Requests as the scheduler takes them: "auth" checked for every message that
// needs rights, malformed requests refused.
#include "scheduler_test_support.h"

namespace testing_support {
namespace {

using platform::Value;

class SchedulerRequests : public SchedulerClientTest {};

TEST_F(SchedulerRequests, WithoutAuthOnlyReadsAreAnswered) {
  const platform::Dictionary before = scheduler().settings();
  for (QHVHelperMessage message = 0; message <= QHVHelperMessageLast; ++message) {
    platform::ErrorRef error;
    sendWithoutAuthorization(message, &error);
    if (!QHVAuthorizationRightsForMessage(message).empty()) {
      expectError(error, LKSMessagerErrorDomain, LKSMessagerErrorMissingAuthorization, message);
    } else {
      EXPECT_TRUE(!error || error->domain != LKSMessagerErrorDomain) << message << ": " << error->code;
    }
  }
  EXPECT_EQ(scheduler().settings(), before);
}

TEST_F(SchedulerRequests, OnlyAnAuthRootMadeForTheRightsIsAccepted) {
  LKSAuthorizationManager& manager = LKSAuthorizationManager::sharedManager();
  const auto forUninstalling = manager.authorizationExternalDataWithRights({Value::string(QHVRightUninstall)}, nullptr);
  ASSERT_TRUE(forUninstalling);
  // Each "auth" names no authorization that root made for the settings rights.
  const Value forgeries[] = {
      Value::data(platform::Bytes(32, 0x5a)),  // made up
      Value::data(platform::Bytes(16, 0x5a)),  // too short
      Value::string("root"),                   // no data
      Value::data(*forUninstalling),           // made by root for another right
  };
  for (const Value& auth : forgeries) {
    expectError(sendRaw({{"message", Value::integer(QHVHelperMessageDisable)}, {"auth", auth}}),
                LKSMessagerErrorDomain, LKSMessagerErrorMissingAuthorization, QHVHelperMessageDisable);
  }
  EXPECT_EQ(scheduler().settings().get("Disabled"), Value::integer(0));

  platform::ErrorRef error;
  EXPECT_TRUE(send(QHVHelperMessageDisable, {}, &error));
  EXPECT_EQ(error, nullptr);
  EXPECT_EQ(scheduler().settings().get("Disabled"), Value::integer(1));
  // The record that end-to-end runs rely on tells the forgeries from the real one.
  const std::vector<RecordedRequest> requests = scheduler().requests();
  ASSERT_EQ(requests.size(), 5u);
  for (std::size_t i = 0; i < requests.size(); ++i) {
    EXPECT_TRUE(requests[i].authPresent);
    EXPECT_EQ(requests[i].authValid, i == 4) << i;
  }
}

TEST_F(SchedulerRequests, MalformedRequestsAreRefused) {
  const Value settings = Value::integer(QHVHelperMessageGetSettings);
  const Value past = Value::integer(QHVHelperMessageLast + 1);
  // Each is refused with messager code 3, "message" set when the request named one.
  const std::pair<platform::Dictionary, Value> malformed[] = {
      {{{"message", settings}, {"payload", Value::data({'{', '('})}}, settings},  // payload no property list
      {{{"message", past}}, past},                                                 // past the catalogue
      {{{"message", Value::integer(-1)}}, Value::integer(-1)},                     // before it
      {{{"message", Value::string("1")}}, Value()},                                // number as text
      {{}, Value()},                                                               // no message at all
  };
  for (const auto& [request, message] : malformed) {
    SCOPED_TRACE(Value::dictionary(request).description());
    const platform::ErrorRef error = sendRaw(request);
    expectError(error, LKSMessagerErrorDomain, LKSMessagerErrorDeserializeMessage);
    if (error) {
      EXPECT_EQ(error->userInfo.get("message"), message);
    }
  }
}

}  // namespace
}  // namespace testing_support
