// The service side when its process runs out of descriptors: the peer that
// waited longest gives its descriptor to a new one, and serving goes on.
#include "platform/xpc_listener.h"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <poll.h>
#include <sys/resource.h>
#include <sys/socket.h>
#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <filesystem>
#include <future>
#include <string>
#include <thread>
#include <vector>

#include "harness/test_service.h"
#include "platform/serial_queue.h"
#include "platform/xpc_connection.h"

namespace platform {
namespace {

constexpr const char* kService = "com.example.listener-test";
constexpr auto kPatience = std::chrono::seconds(10);

// This process's descriptor limit, lowered so that only `room` more
// descriptors can be opened, until it goes.
class LoweredDescriptorLimit {
 public:
  explicit LoweredDescriptorLimit(int room) {
    ::getrlimit(RLIMIT_NOFILE, &saved_);
    // New descriptors take the lowest free number: the free ones below the
    // highest in use are filled, so that the next ones are counted from there.
    int highest = 0;
    for (const auto& entry : std::filesystem::directory_iterator("/proc/self/fd")) {
      highest = std::max(highest, std::stoi(entry.path().filename().string()));
    }
    int filler = -1;
    while ((filler = ::open("/dev/null", O_RDONLY | O_CLOEXEC)) >= 0 && filler <= highest) fillers_.push_back(filler);
    if (filler >= 0) ::close(filler);
    rlimit lowered = saved_;
    lowered.rlim_cur = static_cast<rlim_t>(filler + room);
    lowered_ = filler >= 0 && ::setrlimit(RLIMIT_NOFILE, &lowered) == 0;
  }
  ~LoweredDescriptorLimit() {
    ::setrlimit(RLIMIT_NOFILE, &saved_);
    for (const int filler : fillers_) ::close(filler);
  }
  LoweredDescriptorLimit(const LoweredDescriptorLimit&) = delete;
  LoweredDescriptorLimit& operator=(const LoweredDescriptorLimit&) = delete;

  bool lowered() const { return lowered_; }

 private:
  rlimit saved_{};
  std::vector<int> fillers_;
  bool lowered_ = false;
};

// True when the service closed `socket` within `wait`.
bool closedByService(const XPCSocket& socket, std::chrono::milliseconds wait) {
  pollfd readable{socket.fd(), POLLIN, 0};
  char byte = 0;
  return ::poll(&readable, 1, static_cast<int>(wait.count())) == 1 && ::recv(socket.fd(), &byte, 1, 0) <= 0;
}

TEST(XPCListener, OutOfDescriptorsTheLongestIdlePeerMakesRoomForANewOne) {
  testing_support::PrivateServiceDirectory directory;
  testing_support::TestService service(kService, testing_support::TestService::echo());
  // Two peers that the service took in, idle since their one-way message.
  const Bytes body = *encodeXPCFrameBody({{"message", Value::integer(0)}}, nullptr);
  std::unique_ptr<XPCSocket> idle[2];
  for (int i = 0; i < 2; ++i) {
    idle[i] = XPCSocket::connectToService(kService, nullptr);
    ASSERT_TRUE(idle[i] && idle[i]->sendFrame({static_cast<std::uint32_t>(body.size()), 0, 0}, body, nullptr));
    while (service.connections() <= i) std::this_thread::yield();
  }

  const auto reply = std::make_shared<std::promise<XPCObject::Type>>();
  std::future<XPCObject::Type> answered = reply->get_future();
  {
    // The client's socket takes the last descriptor; the service's accept finds none.
    const LoweredDescriptorLimit limit(1);
    ASSERT_TRUE(limit.lowered());
    const XPCConnectionRef connection = XPCConnection::createMachService(kService, nullptr, 0);
    connection->resume();
    connection->sendMessageWithReply({{"message", Value::integer(1)}}, SerialQueue::create("replies"),
                                     [reply](const XPCObject& answer) { reply->set_value(answer.type()); });
    ASSERT_EQ(answered.wait_for(kPatience), std::future_status::ready) << "no answer";
    EXPECT_EQ(answered.get(), XPCObject::Type::Dictionary);
  }
  EXPECT_TRUE(closedByService(*idle[0], kPatience));
  EXPECT_FALSE(closedByService(*idle[1], std::chrono::milliseconds(0)));
}

}  // namespace
}  // namespace platform
