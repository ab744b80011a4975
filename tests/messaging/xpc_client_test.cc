// LKSXPCClient over real sockets: when it connects, when it reconnects, and
// what it logs about it.
#include "messaging/xpc_client.h"

#include <gtest/gtest.h>

#include <future>
#include <thread>

#include "harness/test_service.h"
#include "log/log_test_fixture.h"
#include "support/queue.h"

namespace {

using platform::Value;
using platform::XPCObject;

constexpr const char* kService = "com.example.client-test";

platform::Dictionary request(std::int64_t number) { return {{"message", Value::integer(number)}}; }

class XPCClientTest : public log_testing::LogFacilityTest {
 protected:
  // Waits until the connection's events so far have been handled, then cancels.
  static void finish(LKSXPCClient& client) {
    LKSQueueMain()->sync([] {});
    client.cancel();
    LKSQueueMain()->sync([] {});
  }

  testing_support::PrivateServiceDirectory directory_;
  std::shared_ptr<LKSXPCClient> client_ = LKSXPCClient::initWithServiceName(kService);
};

TEST_F(XPCClientTest, OpensOneConnectionOnFirstUse) {
  init();
  testing_support::TestService service(kService, testing_support::TestService::echo());
  EXPECT_EQ(service.connections(), 0) << "making a client opens nothing";
  const auto send = [this](int i) { return client_->sendSynchronousXPCMessage(request(i)); };
  std::vector<std::future<XPCObject>> replies;
  for (int i = 0; i < 8; ++i) replies.push_back(std::async(std::launch::async, send, i));
  for (int i = 0; i < 8; ++i) EXPECT_EQ(replies[i].get().asDictionary().get("echo"), Value::integer(i));
  EXPECT_EQ(service.connections(), 1);
  finish(*client_);
}

TEST_F(XPCClientTest, ACancelledConnectionsInvalidationSparesTheNextOne) {
  init();
  // The invalidations of cancelled connections wait until a new one exists,
  // which likely sits where one of them was in memory.
  std::promise<void> release;
  LKSQueueMain()->async([held = release.get_future().share()] { held.wait(); });
  for (int i = 0; i < 4; ++i) {
    client_->connection();
    client_->cancel();
  }
  const platform::XPCConnectionRef next = client_->connection();
  release.set_value();
  LKSQueueMain()->sync([] {});
  EXPECT_EQ(client_->connection(), next);
  finish(*client_);
}

TEST_F(XPCClientTest, ReplacedAfterInvalidationKeptAfterInterruption) {
  init();
  const platform::XPCConnectionRef first = client_->connection();
  EXPECT_EQ(client_->sendSynchronousXPCMessage(request(1)).type(), XPCObject::Type::ConnectionInvalid);
  LKSQueueMain()->sync([] {});

  testing_support::TestService service(kService, [](const auto& peer, platform::XPCFrame frame) {
    if (frame.message.get("message") == Value::integer(1)) return peer->close();
    peer->reply(frame.messageId, {{"echo", frame.message.get("message")}}, nullptr);
  });
  EXPECT_EQ(client_->sendSynchronousXPCMessage(request(1)).type(), XPCObject::Type::ConnectionInterrupted);
  const platform::XPCConnectionRef second = client_->connection();
  EXPECT_NE(second, first);
  LKSQueueMain()->sync([] {});
  EXPECT_EQ(client_->sendSynchronousXPCMessage(request(2)).asDictionary().get("echo"), Value::integer(2));
  EXPECT_EQ(client_->connection(), second);

  // The invalidation at the error level, the interruption at the debug level, which no legacy log sees.
  EXPECT_EQ(unified_.entries(), (log_testing::Lines{"ctl 16 Connection became invalid with server.",
                                                    "ctl 2 Connection interrupted with server."}));
  EXPECT_EQ(readLog("ctl.log"),
            expectedLine("Connection became invalid with server.") + expectedLine("Connection interrupted with server."));
  finish(*client_);
}

}  // namespace
