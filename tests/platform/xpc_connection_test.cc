// XPC connections against real listeners in a private socket directory:
// replies, the invalid state, hostile services, the listener.
#include "platform/xpc_connection.h"

#include <gtest/gtest.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/un.h>
#include <unistd.h>

#include <cstdio>
#include <future>
#include <mutex>
#include <thread>

#include "harness/test_service.h"
#include "platform/property_list.h"
#include "platform/xpc_frame.h"
#include "platform/xpc_listener.h"

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
  TestService service(kService, [&](const std::shared_ptr<XPCPeer>& peer, XPCFrame frame) {
    std::lock_guard lock(mutex);
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
}

TEST_F(XPCConnectionTest, AMissingServiceMakesTheConnectionInvalidForGood) {
  XPCConnectionRef connection = connect();
  EXPECT_EQ(connection->sendMessageWithReplySync(request(1)).type(), kInvalid);
  EXPECT_EQ(events(), Types{kInvalid});
  TestService service(kService, TestService::echo());
  EXPECT_EQ(connection->sendMessageWithReplySync(request(2)).type(), kInvalid);
  EXPECT_EQ(service.connections(), 0);
}

TEST_F(XPCConnectionTest, HostileFramesMakeTheConnectionInvalid) {
  const auto frame = [](const char* magic, std::uint32_t length, std::uint64_t messageId, const Bytes& body) {
    const auto header = encodeXPCFrameHeader({length, messageId, 1});
    Bytes bytes(magic, magic + 4);
    bytes.insert(bytes.end(), header.begin() + 4, header.end());
    bytes.insert(bytes.end(), body.begin(), body.end());
    return bytes;
  };
  const Bytes array = *dataWithPropertyList(Value::array({}), PropertyListFormat::Binary, nullptr);
  const std::pair<const char*, Bytes> rows[] = {
      {"bad magic", frame("XPC2", 0, 0, {})},
      {"a body over 16 MiB", frame("XPC1", 16'777'217, 0, {})},
      {"a body that is not a binary property list", frame("XPC1", 5, 0, {'h', 'e', 'l', 'l', 'o'})},
      {"a property list that is not a dictionary", frame("XPC1", static_cast<std::uint32_t>(array.size()), 0, array)},
      {"a reply that also expects a reply", frame("XPC1", 0, 5, {})},
      {"garbage", Bytes(64, 0xEE)},
  };
  for (const auto& [why, bytes] : rows) {
    TestService service(kService, [&](const auto& peer, XPCFrame) { peer->sendBytes(bytes, nullptr); });
    EXPECT_EQ(connect()->sendMessageWithReplySync(request(1)).type(), kInvalid) << why;
    EXPECT_EQ(events(), Types{kInvalid}) << why;
  }
}

TEST_F(XPCConnectionTest, TheListenerReplacesADeadServicesSocketAndKnowsItsPeers) {
  // A service that died leaves its socket file behind, and nobody answers it.
  const std::string path = *xpcServiceSocketPath(kService, nullptr);
  sockaddr_un address{AF_UNIX, {}};
  std::snprintf(address.sun_path, sizeof address.sun_path, "%s", path.c_str());
  const int dead = socket(AF_UNIX, SOCK_STREAM, 0);
  ASSERT_EQ(bind(dead, reinterpret_cast<const sockaddr*>(&address), sizeof address), 0);
  close(dead);

  ErrorRef error;
  std::unique_ptr<XPCListener> listener = XPCListener::listen(kService, &error);
  ASSERT_TRUE(listener);
  struct stat st {};
  ASSERT_EQ(stat(path.c_str(), &st), 0);
  EXPECT_EQ(st.st_mode & (S_IFMT | 0777), S_IFSOCK | 0666u);  // every user may connect
  EXPECT_FALSE(XPCListener::listen(kService, &error)) << "a living service's socket is not taken over";
  EXPECT_EQ(error->code, EADDRINUSE);

  XPCPeerCredentials seen;
  std::thread server([&] {
    listener->run([&](const std::shared_ptr<XPCPeer>& peer, XPCFrame frame) {
      seen = peer->credentials();
      peer->reply(frame.messageId, {}, nullptr);
    }, nullptr);
  });
  EXPECT_FALSE(connect()->sendMessageWithReplySync(request(1)).isError());
  listener->stop();
  server.join();
  EXPECT_EQ(seen.pid, getpid());
  EXPECT_EQ(seen.uid, geteuid());
  listener.reset();
  EXPECT_NE(access(path.c_str(), F_OK), 0) << "the socket file is removed";
}

}  // namespace
}  // namespace platform
