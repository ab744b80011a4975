// Requests as they arrive: the record the scheduler keeps of each, and the
// answers to requests that are malformed or name no message it knows.
#include <unistd.h>

#include "scheduler_test_support.h"

namespace testing_support {
namespace {

using platform::Value;

class SchedulerRequests : public PrivateSocketSchedulerTest {};

TEST_F(SchedulerRequests, EveryRequestIsRecordedInOrder) {
  const Value enabledOff = Value::dictionary({{"Enabled", Value::boolean(false)}});
  client().send(QHVHelperMessageGetSettings);
  client().sendWithoutAuthorization(QHVHelperMessageSetBackupsEnabled, enabledOff);
  client().send(QHVHelperMessageGetInfo, Value::dictionary({}));
  client().sendRaw({{"message", Value::integer(QHVHelperMessageGetDryRun)}, {"payload", Value::data({1, 2, 3})}});

  const std::vector<RecordedRequest> requests = scheduler().requests();
  ASSERT_EQ(requests.size(), 4u);
  EXPECT_EQ(requests[0].message, QHVHelperMessageGetSettings);
  EXPECT_FALSE(requests[0].payload);
  EXPECT_EQ(requests[1].message, QHVHelperMessageSetBackupsEnabled);
  EXPECT_EQ(requests[1].payload, enabledOff);
  EXPECT_FALSE(requests[1].authPresent);
  EXPECT_FALSE(requests[1].authValid);
  EXPECT_EQ(requests[2].payload, Value::dictionary({}));  // an empty payload is still a payload
  EXPECT_EQ(requests[3].message, QHVHelperMessageGetDryRun);
  EXPECT_FALSE(requests[3].payload);
  EXPECT_TRUE(requests[3].payloadUnreadable);
  for (const RecordedRequest& request : requests) {
    EXPECT_EQ(request.uid, ::getuid());
    EXPECT_EQ(request.pid, ::getpid());
  }

  scheduler().clearRequests();
  client().send(QHVHelperMessageGetDryRun);
  ASSERT_EQ(scheduler().requests().size(), 1u);
  EXPECT_EQ(scheduler().requests()[0].message, QHVHelperMessageGetDryRun);
}

TEST_F(SchedulerRequests, MalformedRequestsAreRefused) {
  // Each request is refused with messager code 3; "message" is set when the request named one.
  const std::vector<std::pair<platform::Dictionary, std::optional<std::int64_t>>> malformed = {
      {{{"message", Value::integer(QHVHelperMessageGetSettings)}, {"payload", Value::data({'{', '('})}},
       QHVHelperMessageGetSettings},                                                     // payload no property list
      {{{"message", Value::integer(QHVHelperMessageGetSettings)}, {"payload", Value::string("{}")}},
       QHVHelperMessageGetSettings},                                                     // payload not data
      {{{"message", Value::integer(29)}}, 29},                                           // past the catalogue
      {{{"message", Value::integer(-1)}}, -1},                                           // before it
      {{{"message", Value::string("1")}}, std::nullopt},                                 // number as text
      {{}, std::nullopt},                                                                // no message at all
  };
  for (const auto& [request, message] : malformed) {
    SCOPED_TRACE(Value::dictionary(request).description());
    const platform::XPCObject reply = client().sendRaw(request);
    ASSERT_FALSE(reply.isError());
    const platform::ErrorRef error = client().errorOf(reply);
    expectError(error, LKSMessagerErrorDomain, LKSMessagerErrorDeserializeMessage);
    if (!error) continue;
    EXPECT_EQ(error->userInfo.get("message"), message ? Value::integer(*message) : Value());
  }
  // An unreadable payload of a changing message: its missing "auth" is what is refused first.
  const platform::XPCObject reply =
      client().sendRaw({{"message", Value::integer(QHVHelperMessageEnable)}, {"payload", Value::data({0})}});
  expectMessagerError(client().errorOf(reply), LKSMessagerErrorMissingAuthorization, QHVHelperMessageEnable);
}

TEST_F(SchedulerRequests, ServiceMessagesTheToolNeverSends) {
  const Value hello = client().send(0);
  ASSERT_TRUE(hello.asDictionary());
  EXPECT_EQ(hello.asDictionary()->get("ProcessIdentifier").int64Value(), scheduler().pid());
  EXPECT_TRUE(hello.asDictionary()->get("ServingSince").asDate());
}

TEST_F(SchedulerRequests, OneWayRequestsAreCarriedOutWithoutReply) {
  std::shared_ptr<LKSMessagerClient> oneWay = LKSMessagerClient::initWithServiceName(QHVHelperServiceName, {});
  ASSERT_TRUE(oneWay->sendMessage(QHVHelperMessageKickstartBackup, {}, nullptr));
  // Requests of one connection are answered in order: the backup runs by now.
  const Value info = oneWay->sendSynchronousMessage(QHVHelperMessageGetInfo, {}, nullptr);
  oneWay->cancel();
  ASSERT_TRUE(info.asDictionary());
  const platform::Dictionary* backups = info.asDictionary()->get("backups").asDictionary();
  ASSERT_TRUE(backups);
  EXPECT_EQ(backups->get("Running"), Value::boolean(true));
  ASSERT_EQ(scheduler().requests().size(), 2u);
  EXPECT_EQ(scheduler().requests()[0].message, QHVHelperMessageKickstartBackup);
}

}  // namespace
}  // namespace testing_support
