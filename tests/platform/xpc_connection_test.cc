// XPC connections against real listeners in a private socket directory:
// replies, the invalid and interrupted states, hostile services.
#include "platform/xpc_connection.h"

#include <gtest/gtest.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/un.h>
#include <unistd.h>

#include <condition_variable>
#include <cstdio>
#include <future>
#include <mutex>
#include <thread>
#include <vector>

#include "harness/test_service.h"
#include "platform/property_list.h"
#include "platform/xpc_frame.h"
#include "platform/xpc_listener.h"

namespace platform {
namespace {

using testing_support::PrivateServiceDirectory;
using testing_support::TestService;

constexpr const char* kService = "com.example.test-service";

Dictionary request(std::int64_t number) { return {{"message", Value::integer(number)}}; }

// Records the events of a connection and lets a test wait for them. The
// handler shares the record, since a connection delivers its last event
// (after cancel, when it goes) later, on its queue.
class EventLog {
 public:
  XPCConnection::Handler handler() {
    return [record = record_](const XPCObject& event) {
      std::lock_guard lock(record->mutex);
      record->events.push_back(event.type());
      record->changed.notify_all();
    };
  }
  // Waits up to ten seconds for `count` events; returns them.
  std::vector<XPCObject::Type> waitFor(std::size_t count) {
    std::unique_lock lock(record_->mutex);
    record_->changed.wait_for(lock, std::chrono::seconds(10), [&] { return record_->events.size() >= count; });
    return record_->events;
  }

 private:
  struct Record {
    std::mutex mutex;
    std::condition_variable changed;
    std::vector<XPCObject::Type> events;
  };
  std::shared_ptr<Record> record_ = std::make_shared<Record>();
};

class XPCConnectionTest : public ::testing::Test {
 protected:
  XPCConnectionRef connect(EventLog* events = nullptr) {
    XPCConnectionRef connection =
        XPCConnection::createMachService(kService, queue_, XPC_CONNECTION_MACH_SERVICE_PRIVILEGED);
    if (events) connection->setEventHandler(events->handler());
    connection->resume();
    return connection;
  }

  PrivateServiceDirectory directory_;
  QueueRef queue_ = SerialQueue::create("events");
};

TEST_F(XPCConnectionTest, SynchronousAndAsynchronousReplies) {
  TestService service(kService, TestService::echo());
  XPCConnectionRef connection = connect();
  const XPCObject reply = connection->sendMessageWithReplySync(request(7));
  ASSERT_FALSE(reply.isError());
  EXPECT_EQ(reply.asDictionary().get("echo"), Value::integer(7));

  std::promise<std::pair<XPCObject, std::thread::id>> delivered;
  QueueRef replies = SerialQueue::create("replies");
  connection->sendMessageWithReply(request(8), replies, [&](const XPCObject& object) {
    delivered.set_value({object, std::this_thread::get_id()});
  });
  const auto [asyncReply, thread] = delivered.get_future().get();
  EXPECT_EQ(asyncReply.asDictionary().get("echo"), Value::integer(8));
  EXPECT_NE(thread, std::this_thread::get_id());
}

TEST_F(XPCConnectionTest, RepliesAreMatchedByIdWhateverTheirOrder) {
  // The service holds the first request back and answers it after the second,
  // and answers a request nobody sent in between.
  std::mutex mutex;
  std::vector<std::pair<std::shared_ptr<XPCPeer>, XPCFrame>> held;
  TestService service(kService, [&](const std::shared_ptr<XPCPeer>& peer, XPCFrame frame) {
    std::lock_guard lock(mutex);
    held.emplace_back(peer, std::move(frame));
    if (held.size() < 2) return;
    peer->reply(held[1].second.messageId + 1000, {{"stray", Value::boolean(true)}}, nullptr);
    for (auto it = held.rbegin(); it != held.rend(); ++it) {
      peer->reply(it->second.messageId, {{"echo", it->second.message.get("message")}}, nullptr);
    }
  });
  XPCConnectionRef connection = connect();
  auto first = std::async(std::launch::async, [&] { return connection->sendMessageWithReplySync(request(1)); });
  while (service.connections() == 0) std::this_thread::yield();
  const XPCObject second = connection->sendMessageWithReplySync(request(2));
  EXPECT_EQ(second.asDictionary().get("echo"), Value::integer(2));
  EXPECT_EQ(first.get().asDictionary().get("echo"), Value::integer(1));
}

TEST_F(XPCConnectionTest, ConcurrentSendsShareOneConnection) {
  TestService service(kService, TestService::echo());
  XPCConnectionRef connection = connect();
  std::vector<std::future<XPCObject>> replies;
  for (int i = 0; i < 16; ++i) {
    replies.push_back(std::async(std::launch::async, [&, i] { return connection->sendMessageWithReplySync(request(i)); }));
  }
  for (int i = 0; i < 16; ++i) EXPECT_EQ(replies[i].get().asDictionary().get("echo"), Value::integer(i));
  EXPECT_EQ(service.connections(), 1);
}

TEST_F(XPCConnectionTest, AMissingServiceMakesTheConnectionInvalidForGood) {
  EventLog events;
  XPCConnectionRef connection = connect(&events);
  EXPECT_EQ(connection->sendMessageWithReplySync(request(1)).type(), XPCObject::Type::ConnectionInvalid);
  // The event handler ran before the request learnt of the failure.
  EXPECT_EQ(events.waitFor(0), std::vector<XPCObject::Type>{XPCObject::Type::ConnectionInvalid});
  // Even once the service is there, this connection stays invalid.
  TestService service(kService, TestService::echo());
  EXPECT_EQ(connection->sendMessageWithReplySync(request(2)).type(), XPCObject::Type::ConnectionInvalid);
  EXPECT_EQ(service.connections(), 0);
}

TEST_F(XPCConnectionTest, AServiceThatGoesAwayInterruptsAndTheNextSendReconnects) {
  EventLog events;
  TestService service(kService, [](const std::shared_ptr<XPCPeer>& peer, XPCFrame frame) {
    if (frame.message.get("message") == Value::integer(1)) {
      peer->close();  // no reply: the request was pending when the service left
    } else {
      peer->reply(frame.messageId, {{"echo", frame.message.get("message")}}, nullptr);
    }
  });
  XPCConnectionRef connection = connect(&events);
  EXPECT_EQ(connection->sendMessageWithReplySync(request(1)).type(), XPCObject::Type::ConnectionInterrupted);
  EXPECT_EQ(events.waitFor(0), std::vector<XPCObject::Type>{XPCObject::Type::ConnectionInterrupted});
  EXPECT_EQ(connection->sendMessageWithReplySync(request(2)).asDictionary().get("echo"), Value::integer(2));
  EXPECT_EQ(service.connections(), 2);
}

TEST_F(XPCConnectionTest, CancelFailsWhatIsPendingAndEverythingAfter) {
  std::promise<void> received;
  TestService service(kService, [&](const std::shared_ptr<XPCPeer>&, XPCFrame) { received.set_value(); });
  EventLog events;
  XPCConnectionRef connection = connect(&events);
  auto pending = std::async(std::launch::async, [&] { return connection->sendMessageWithReplySync(request(1)); });
  received.get_future().wait();
  connection->cancel();
  EXPECT_EQ(pending.get().type(), XPCObject::Type::ConnectionInvalid);
  EXPECT_EQ(connection->sendMessageWithReplySync(request(2)).type(), XPCObject::Type::ConnectionInvalid);
  EXPECT_EQ(events.waitFor(1), std::vector<XPCObject::Type>{XPCObject::Type::ConnectionInvalid});
}

TEST_F(XPCConnectionTest, SendsBeforeResumeAndUnsendableMessagesFailAlone) {
  TestService service(kService, TestService::echo());
  XPCConnectionRef idle = XPCConnection::createMachService(kService, queue_, XPC_CONNECTION_MACH_SERVICE_PRIVILEGED);
  EXPECT_EQ(idle->sendMessageWithReplySync(request(1)).type(), XPCObject::Type::ConnectionInvalid);
  idle->resume();
  // An error object is not a property-list value: this request fails, the connection lives.
  const Dictionary unsendable{{"message", Value::error(Error::make("d", 1))}};
  EXPECT_EQ(idle->sendMessageWithReplySync(unsendable).type(), XPCObject::Type::ConnectionInvalid);
  EXPECT_EQ(idle->sendMessageWithReplySync(request(2)).asDictionary().get("echo"), Value::integer(2));
}

// A service that breaks the frame format: the connection becomes invalid.
struct HostileReply {
  const char* why;
  Bytes bytes;
};

Bytes frame(const char* magic, std::uint32_t length, std::uint64_t messageId, std::uint64_t replyTo,
            const Bytes& body) {
  const auto header = encodeXPCFrameHeader({length, messageId, replyTo});
  Bytes bytes(magic, magic + 4);
  for (std::size_t i = 4; i < header.size(); ++i) bytes.push_back(header[i]);
  for (std::uint8_t byte : body) bytes.push_back(byte);
  return bytes;
}

TEST_F(XPCConnectionTest, HostileFramesMakeTheConnectionInvalid) {
  const Bytes array = *dataWithPropertyList(Value::array({Value::boolean(true)}), PropertyListFormat::Binary, nullptr);
  const std::vector<HostileReply> table = {
      {"bad magic", frame("XPC2", 0, 0, 1, {})},
      {"body length over 16 MiB", frame("XPC1", 16'777'217, 0, 1, {})},
      {"a body that is not a binary property list", frame("XPC1", 5, 0, 1, {'h', 'e', 'l', 'l', 'o'})},
      {"a binary property list whose root is an array", frame("XPC1", static_cast<std::uint32_t>(array.size()), 0, 1, array)},
      {"a reply that also expects a reply", frame("XPC1", 0, 5, 1, {})},
      {"garbage", Bytes(64, 0xEE)},
  };
  for (const HostileReply& hostile : table) {
    TestService service(kService, [&](const std::shared_ptr<XPCPeer>& peer, XPCFrame) {
      peer->sendBytes(hostile.bytes, nullptr);
    });
    EventLog events;
    XPCConnectionRef connection = connect(&events);
    EXPECT_EQ(connection->sendMessageWithReplySync(request(1)).type(), XPCObject::Type::ConnectionInvalid)
        << hostile.why;
    EXPECT_EQ(events.waitFor(1), std::vector<XPCObject::Type>{XPCObject::Type::ConnectionInvalid}) << hostile.why;
  }
}

TEST(XPCListener, OwnsItsSocketAndKnowsItsPeers) {
  PrivateServiceDirectory directory;
  ErrorRef error;
  std::unique_ptr<XPCListener> listener = XPCListener::listen(kService, &error);
  ASSERT_TRUE(listener);
  struct stat st {};
  ASSERT_EQ(::stat(listener->path().c_str(), &st), 0);
  EXPECT_TRUE(S_ISSOCK(st.st_mode));
  EXPECT_EQ(st.st_mode & 0777, 0666u);

  // A second service of the same name is refused while the first one lives.
  EXPECT_FALSE(XPCListener::listen(kService, &error));
  EXPECT_EQ(error->code, EADDRINUSE);

  XPCPeerCredentials seen;
  std::thread server([&] {
    listener->run([&](const std::shared_ptr<XPCPeer>& peer, XPCFrame frame) {
      seen = peer->credentials();
      peer->reply(frame.messageId, {}, nullptr);
    }, nullptr);
  });
  XPCConnectionRef connection = XPCConnection::createMachService(kService, nullptr, 0);
  connection->resume();
  EXPECT_FALSE(connection->sendMessageWithReplySync(request(1)).isError());
  listener->stop();
  server.join();
  EXPECT_EQ(seen.pid, ::getpid());
  EXPECT_EQ(seen.uid, ::geteuid());

  const std::string path = listener->path();
  listener.reset();
  EXPECT_NE(::access(path.c_str(), F_OK), 0) << "the socket file is removed";
}

TEST(XPCListener, ReplacesTheSocketOfAServiceThatDied) {
  PrivateServiceDirectory directory;
  // A service that died leaves its socket file behind, and nobody answers it.
  const std::string path = *xpcServiceSocketPath(kService, nullptr);
  const int dead = ::socket(AF_UNIX, SOCK_STREAM, 0);
  sockaddr_un address{};
  address.sun_family = AF_UNIX;
  std::snprintf(address.sun_path, sizeof address.sun_path, "%s", path.c_str());
  ASSERT_EQ(::bind(dead, reinterpret_cast<const sockaddr*>(&address), sizeof address), 0);
  ::close(dead);
  ASSERT_EQ(::access(path.c_str(), F_OK), 0);

  TestService service(kService, TestService::echo());
  XPCConnectionRef connection = XPCConnection::createMachService(kService, nullptr, 0);
  connection->resume();
  EXPECT_EQ(connection->sendMessageWithReplySync(request(3)).asDictionary().get("echo"), Value::integer(3));
}

}  // namespace
}  // namespace platform
