// XPC connections against real listeners in a private socket directory:
// replies, the invalid state, hostile services.
#include "platform/xpc/connection.h"

#include <gtest/gtest.h>
#include <unistd.h>

#include <atomic>
#include <future>
#include <mutex>
#include <thread>

#include "harness/shared_arrays.h"
#include "harness/test_service.h"
#include "platform/plist/property_list.h"
#include "platform/xpc/frame.h"

namespace platform {
namespace {

using testing_support::TestService;
using Types = std::vector<XPCObject::Type>;

constexpr const char* kService = "com.example.test-service";
constexpr XPCObject::Type kInvalid = XPCObject::Type::ConnectionInvalid;

Dictionary request(std::int64_t number) { return {{"message", Value::integer(number)}}; }

class XPCConnectionTest : public ::testing::Test {
 protected:
  // A resumed connection to the test service whose events are recorded.
  XPCConnectionRef connect() {
    XPCConnectionRef connection = XPCConnection::createMachService(kService, queue_, 0);
    connection->setEventHandler([events = events_](const XPCObject& event) {
      std::lock_guard lock(events->mutex);
      events->types.push_back(event.type());
    });
    connection->resume();
    return connection;
  }
  // The events so far: a request learns of a failure only after the event handler ran.
  Types events() {
    std::lock_guard lock(events_->mutex);
    return std::exchange(events_->types, {});
  }

  struct Events {
    std::mutex mutex;
    Types types;
  };
  std::shared_ptr<Events> events_ = std::make_shared<Events>();
  testing_support::PrivateServiceDirectory directory_;
  QueueRef queue_ = SerialQueue::create("events");
};

TEST_F(XPCConnectionTest, RepliesAreMatchedByIdWhateverTheirOrder) {
  // The service holds the first request back, answers one nobody sent, then both in reverse order.
  std::mutex mutex;
  std::vector<XPCFrame> held;
  XPCPeerCredentials seen;
  TestService service(kService, [&](const std::shared_ptr<XPCPeer>& peer, XPCFrame frame) {
    std::lock_guard lock(mutex);
    seen = peer->credentials();
    held.push_back(std::move(frame));
    if (held.size() < 2) return;
    peer->reply(held[0].messageId + held[1].messageId, {{"stray", Value::boolean(true)}}, nullptr);
    for (int i : {1, 0}) peer->reply(held[i].messageId, {{"echo", held[i].message.get("message")}}, nullptr);
  });
  XPCConnectionRef connection = connect();
  auto first = std::async(std::launch::async, [&] { return connection->sendMessageWithReplySync(request(1)); });
  while (service.connections() == 0) std::this_thread::yield();
  EXPECT_EQ(connection->sendMessageWithReplySync(request(2)).asDictionary(), (Dictionary{{"echo", Value::integer(2)}}));
  EXPECT_EQ(first.get().asDictionary(), (Dictionary{{"echo", Value::integer(1)}}));
  std::lock_guard lock(mutex);
  EXPECT_EQ(seen.pid, getpid());
  EXPECT_EQ(seen.uid, geteuid());
}

TEST_F(XPCConnectionTest, AReplyDueOnAQueueStillComesWhenTheSynchronousSendBeforeItReturns) {
  // The service answers the synchronous request only once the queued one came, and the queued one after it.
  std::mutex mutex;
  std::vector<XPCFrame> held;
  TestService service(kService, [&](const std::shared_ptr<XPCPeer>& peer, XPCFrame frame) {
    std::lock_guard lock(mutex);
    held.push_back(std::move(frame));
    if (held.size() < 2) return;
    for (const XPCFrame& request : held) peer->reply(request.messageId, {{"echo", request.message.get("message")}}, nullptr);
  });
  XPCConnectionRef connection = connect();
  auto synchronous = std::async(std::launch::async, [&] { return connection->sendMessageWithReplySync(request(1)); });
  while (service.connections() == 0) std::this_thread::yield();
  auto queued = std::make_shared<std::promise<Value>>();
  std::future<Value> answered = queued->get_future();
  connection->sendMessageWithReply(request(2), queue_, [queued](const XPCObject& reply) {
    queued->set_value(reply.asDictionary().get("echo"));
  });
  EXPECT_EQ(synchronous.get().asDictionary().get("echo"), Value::integer(1));
  ASSERT_EQ(answered.wait_for(std::chrono::seconds(10)), std::future_status::ready);
  EXPECT_EQ(answered.get(), Value::integer(2));
}

TEST_F(XPCConnectionTest, WhatCameBetweenRequestsIsTakenUpAndAClosedStreamConnectsAgain) {
  // After the first reply the service sends a message of its own and closes the stream.
  std::atomic<bool> closed = false;
  TestService service(kService, [&](const std::shared_ptr<XPCPeer>& peer, XPCFrame frame) {
    peer->reply(frame.messageId, {{"echo", frame.message.get("message")}}, nullptr);
    if (frame.message.get("message") != Value::integer(1)) return;
    peer->reply(0, {{"notice", Value::boolean(true)}}, nullptr);
    peer->close();
    closed = true;
  });
  XPCConnectionRef connection = connect();
  EXPECT_EQ(connection->sendMessageWithReplySync(request(1)).asDictionary().get("echo"), Value::integer(1));
  while (!closed) std::this_thread::yield();
  EXPECT_EQ(connection->sendMessageWithReplySync(request(2)).asDictionary().get("echo"), Value::integer(2));
  queue_->sync([] {});
  EXPECT_EQ(events(), (Types{XPCObject::Type::Dictionary, XPCObject::Type::ConnectionInterrupted}));
  EXPECT_EQ(service.connections(), 2);
}

TEST_F(XPCConnectionTest, AMissingServiceMakesTheConnectionInvalidForGood) {
  XPCConnectionRef connection = connect();
  EXPECT_EQ(connection->sendMessageWithReplySync(request(1)).type(), kInvalid);
  EXPECT_EQ(events(), Types{kInvalid});
  TestService service(kService, TestService::echo());
  EXPECT_EQ(connection->sendMessageWithReplySync(request(2)).type(), kInvalid);
  EXPECT_EQ(service.connections(), 0);
}

TEST_F(XPCConnectionTest, AMessageThatCannotTravelFailsAloneAndSendsNothing) {
  std::mutex mutex;
  std::vector<Value> received;
  TestService service(kService, [&](const std::shared_ptr<XPCPeer>& peer, XPCFrame frame) {
    std::lock_guard lock(mutex);
    received.push_back(frame.message.get("message"));
    if (frame.messageId != 0) peer->reply(frame.messageId, {}, nullptr);
  });
  XPCConnectionRef connection = connect();
  Dictionary unencodable = request(1);
  unencodable.set("error", Value::error(Error::make("test", 1, {})));  // no property-list object
  connection->sendMessage(unencodable);
  EXPECT_EQ(connection->sendMessageWithReplySync(unencodable).type(), kInvalid);
  EXPECT_EQ(connection->sendMessageWithReplySync(request(2)).type(), XPCObject::Type::Dictionary);
  EXPECT_EQ(events(), Types{});
  std::lock_guard lock(mutex);
  EXPECT_EQ(received, std::vector<Value>{Value::integer(2)});
}

TEST_F(XPCConnectionTest, HostileFramesMakeTheConnectionInvalid) {
  const auto frame = [](std::uint32_t length, std::uint64_t messageId, Bytes body) {
    const auto header = encodeXPCFrameHeader({length, messageId, 1});
    body.insert(body.begin(), header.begin(), header.end());
    return body;
  };
  const auto binary = [](const Value& v) { return *dataWithPropertyList(v, PropertyListFormat::Binary, nullptr); };
  const Bytes array = binary(Value::array({}));
  const Bytes shared = testing_support::doubledArraysDocument(60);
  const std::pair<const char*, Bytes> rows[] = {
      {"a body over 16 MiB", frame(16'777'217, 0, {})},
      {"a body that is not a binary property list", frame(5, 0, {'h', 'e', 'l', 'l', 'o'})},
      {"a property list that is not a dictionary", frame(static_cast<std::uint32_t>(array.size()), 0, array)},
      {"2^60 paths to one array", frame(static_cast<std::uint32_t>(shared.size()), 0, shared)},
      {"a reply that also expects a reply", frame(0, 5, {})},
      {"garbage, without the magic", Bytes(64, 0xEE)},
  };
  for (const auto& [why, bytes] : rows) {
    TestService service(kService, [&sent = bytes](const auto& peer, XPCFrame) { peer->sendBytes(sent, nullptr); });
    EXPECT_EQ(connect()->sendMessageWithReplySync(request(1)).type(), kInvalid) << why;
    EXPECT_EQ(events(), Types{kInvalid}) << why;
  }
}

}  // namespace
}  // namespace platform
