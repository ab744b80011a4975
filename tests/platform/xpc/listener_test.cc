// The service side when its process runs out of descriptors: an idle peer
// gives its descriptor to a new one, and serving goes on.
#include "platform/xpc/listener.h"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/resource.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <chrono>
#include <filesystem>
#include <future>
#include <optional>
#include <string>
#include <thread>
#include <vector>

#include "harness/test_service.h"
#include "platform/dispatch/serial_queue.h"
#include "platform/xpc/connection.h"

namespace platform {
namespace {

constexpr const char* kService = "com.example.listener-test";
constexpr auto kPatience = std::chrono::seconds(10);

// Whether the sanitizers' runtime is in: it needs descriptors of its own at
// moments nobody chooses, which a process at its descriptor limit has not.
#if defined(__SANITIZE_ADDRESS__)
constexpr bool kSanitized = true;
#elif defined(__has_feature)
#if __has_feature(address_sanitizer)
constexpr bool kSanitized = true;
#else
constexpr bool kSanitized = false;
#endif
#else
constexpr bool kSanitized = false;
#endif

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

// A client of the test service that notes when the service closes on it.
struct Client {
  Client() : connection(XPCConnection::createMachService(kService, nullptr, 0)) {
    connection->setEventHandler([interrupted = interrupted](const XPCObject& event) {
      if (event.type() == XPCObject::Type::ConnectionInterrupted) interrupted->store(true);
    });
    connection->resume();
  }

  // The type of the answer to one request, delivered on `queue`; nullopt when none came in time.
  std::optional<XPCObject::Type> roundTrip(const QueueRef& queue) {
    const auto reply = std::make_shared<std::promise<XPCObject::Type>>();
    std::future<XPCObject::Type> answered = reply->get_future();
    connection->sendMessageWithReply({{"message", Value::integer(1)}}, queue,
                                     [reply](const XPCObject& answer) { reply->set_value(answer.type()); });
    if (answered.wait_for(kPatience) != std::future_status::ready) return std::nullopt;
    return answered.get();
  }

  const std::shared_ptr<std::atomic<bool>> interrupted = std::make_shared<std::atomic<bool>>(false);
  const XPCConnectionRef connection;
};

TEST(XPCListener, OutOfDescriptorsAnIdlePeerMakesRoomForANewOne) {
  if (kSanitized) GTEST_SKIP() << "the sanitizers' runtime opens descriptors of its own while it checks";
  testing_support::PrivateServiceDirectory directory;
  testing_support::TestService service(kService, testing_support::TestService::echo());
  const QueueRef queue = SerialQueue::create("replies");
  Client idle[2];
  for (Client& client : idle) ASSERT_EQ(client.roundTrip(queue), XPCObject::Type::Dictionary);
  {
    // The new client's socket takes the last descriptor; the service's accept finds none.
    const LoweredDescriptorLimit limit(1);
    ASSERT_TRUE(limit.lowered());
    EXPECT_EQ(Client().roundTrip(queue), XPCObject::Type::Dictionary);
  }
  // One of the idle clients was shed for it, and one only.
  const auto shed = [&idle] { return int{idle[0].interrupted->load()} + int{idle[1].interrupted->load()}; };
  const auto deadline = std::chrono::steady_clock::now() + kPatience;
  while (shed() == 0 && std::chrono::steady_clock::now() < deadline) {
    std::this_thread::sleep_for(std::chrono::milliseconds(1));
  }
  EXPECT_EQ(shed(), 1);
}

}  // namespace
}  // namespace platform
