// LKSXPCClient over real sockets: when it connects, when it reconnects, and
// what it logs about it.
#include "messaging/xpc_client.h"

#include <gtest/gtest.h>

#include <chrono>
#include <future>
#include <thread>
#include <vector>

#include "harness/test_service.h"
#include "log/log_test_fixture.h"
#include "support/queue.h"

namespace {

using platform::Dictionary;
using platform::Value;
using platform::XPCObject;
using testing_support::PrivateServiceDirectory;
using testing_support::TestService;

constexpr const char* kService = "com.example.client-test";

Dictionary request(std::int64_t number) { return {{"message", Value::integer(number)}}; }

class XPCClientTest : public log_testing::LogFacilityTest {
 protected:
  void SetUp() override { init(); }

  // Waits up to ten seconds for `text` to appear in the log file.
  bool logged(const std::string& text) {
    for (int i = 0; i < 1000; ++i) {
      if (readLog("ctl.log").find(text) != std::string::npos) return true;
      std::this_thread::sleep_for(std::chrono::milliseconds(10));
    }
    return false;
  }

  // Cancels, and waits until the connection's last event has been handled,
  // so that nothing logs while the facility is taken down.
  static void finish(LKSXPCClient& client) {
    client.cancel();
    LKSQueueMain()->sync([] {});
  }

  PrivateServiceDirectory directory_;
};

TEST_F(XPCClientTest, ConnectsOnceOnFirstUse) {
  TestService service(kService, TestService::echo());
  auto client = LKSXPCClient::initWithServiceName(kService);
  EXPECT_EQ(client->serviceName(), kService);
  std::this_thread::sleep_for(std::chrono::milliseconds(50));
  EXPECT_EQ(service.connections(), 0) << "making a client opens nothing";

  std::vector<std::future<XPCObject>> replies;
  for (int i = 0; i < 8; ++i) {
    replies.push_back(std::async(std::launch::async, [&, i] { return client->sendSynchronousXPCMessage(request(i)); }));
  }
  for (int i = 0; i < 8; ++i) EXPECT_EQ(replies[i].get().asDictionary().get("echo"), Value::integer(i));
  EXPECT_EQ(service.connections(), 1);
  finish(*client);
}

TEST_F(XPCClientTest, AnInvalidConnectionIsLoggedAndReplaced) {
  auto client = LKSXPCClient::initWithServiceName(kService);
  const platform::XPCConnectionRef first = client->connection();
  EXPECT_EQ(client->sendSynchronousXPCMessage(request(1)).type(), XPCObject::Type::ConnectionInvalid);
  EXPECT_TRUE(logged("Connection became invalid with server.\n"));
  // At the error level: a unified entry with that type.
  bool unified = false;
  for (const log_testing::UnifiedEntry& entry : unified_.entries()) {
    unified |= entry.message == "Connection became invalid with server." && entry.type == LKSLogLevelError;
  }
  EXPECT_TRUE(unified);

  TestService service(kService, TestService::echo());
  EXPECT_EQ(client->sendSynchronousXPCMessage(request(2)).asDictionary().get("echo"), Value::integer(2));
  EXPECT_NE(client->connection(), first);
  finish(*client);
}

TEST_F(XPCClientTest, AnInterruptedConnectionIsKept) {
  TestService service(kService, [](const std::shared_ptr<platform::XPCPeer>& peer, platform::XPCFrame frame) {
    if (frame.message.get("message") == Value::integer(1)) {
      peer->close();
    } else {
      peer->reply(frame.messageId, {{"echo", frame.message.get("message")}}, nullptr);
    }
  });
  auto client = LKSXPCClient::initWithServiceName(kService);
  const platform::XPCConnectionRef first = client->connection();
  EXPECT_EQ(client->sendSynchronousXPCMessage(request(1)).type(), XPCObject::Type::ConnectionInterrupted);
  EXPECT_TRUE(logged("Connection interrupted with server.\n"));
  EXPECT_EQ(client->sendSynchronousXPCMessage(request(2)).asDictionary().get("echo"), Value::integer(2));
  EXPECT_EQ(client->connection(), first);
  finish(*client);
}

TEST_F(XPCClientTest, CancelDropsTheConnectionOnlyWhenThereIsOne) {
  TestService service(kService, TestService::echo());
  auto client = LKSXPCClient::initWithServiceName(kService);
  client->cancel();  // nothing to cancel
  EXPECT_EQ(service.connections(), 0);
  const platform::XPCConnectionRef first = client->connection();
  client->cancel();
  EXPECT_EQ(client->sendSynchronousXPCMessage(request(3)).asDictionary().get("echo"), Value::integer(3));
  EXPECT_NE(client->connection(), first);
  finish(*client);
}

TEST_F(XPCClientTest, InterruptionIsADebugEntryThatTheLegacyLogNeverSees) {
  LKSLogResetForTesting();
  init(false);
  TestService service(kService, [](const std::shared_ptr<platform::XPCPeer>& peer, platform::XPCFrame) { peer->close(); });
  auto client = LKSXPCClient::initWithServiceName(kService);
  EXPECT_EQ(client->sendSynchronousXPCMessage(request(1)).type(), XPCObject::Type::ConnectionInterrupted);
  EXPECT_TRUE(logged("Connection interrupted with server.\n"));
  _LKSLogSync();
  EXPECT_TRUE(legacy_.entries().empty());
  finish(*client);
}

}  // namespace
