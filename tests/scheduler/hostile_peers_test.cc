// The development scheduler against local users who try to wear it down: more
// idle connections than its descriptors allow, frames that stop partway,
// lengths announced and never sent. Whatever they do, an ordinary client is
// answered, the scheduler closes what goes nowhere, and it goes on serving.
#include <poll.h>
#include <sys/socket.h>

#include <chrono>
#include <vector>

#include "platform/xpc/frame.h"
#include "platform/xpc/socket.h"
#include "scheduler_test_support.h"

namespace testing_support {
namespace {

using std::chrono::steady_clock;
using Peers = std::vector<std::unique_ptr<platform::XPCSocket>>;

// Far more peers than the 64 descriptors that the scheduler is given leave room for.
constexpr int kIdlePeers = 300;
// Closing the peers takes the scheduler a fraction of a second; this is only how long a test waits at most.
constexpr auto kPatience = std::chrono::seconds(10);

class HostilePeers : public SchedulerClientTest {
 protected:
  // The scheduler of the state directory serving again, with few descriptors and short timeouts.
  void SetUp() override {
    SchedulerClientTest::SetUp();
    if (IsSkipped()) return;
    ASSERT_TRUE(scheduler().stop());
    const RunResult started = runScheduler({"start", "--state", scheduler().stateDirectory(), "--max-open-files",
                                            "64", "--stall-seconds", "0.2", "--idle-seconds", "1"});
    ASSERT_EQ(started.exitStatus, 0) << started.err;
  }
  void TearDown() override {
    if (!IsSkipped()) scheduler().stop();
    SchedulerClientTest::TearDown();
  }

  // An ordinary client's request on a fresh connection, so that no timeout of an older one interferes.
  bool answered() {
    reconnect();
    platform::ErrorRef error;
    const bool replied = static_cast<bool>(send(QHVHelperMessageGetSettings, {}, &error));
    EXPECT_FALSE(error) << LKSError::localizedDescriptionForError(error);
    return replied;
  }

  // A connection that the test writes raw bytes to, appended to `peers`; false when none can be made.
  static bool connectRaw(Peers* peers) {
    std::unique_ptr<platform::XPCSocket> peer = platform::XPCSocket::connectToService(QHVHelperServiceName, nullptr);
    if (!peer) return false;
    peers->push_back(std::move(peer));
    return true;
  }

  // How many of `peers` the scheduler closed, reading and dropping what it sent them, by the deadline.
  static std::size_t closedByScheduler(const Peers& peers) {
    const steady_clock::time_point deadline = steady_clock::now() + kPatience;
    std::size_t closed = 0;
    for (const auto& peer : peers) {
      for (;;) {
        const auto left = std::chrono::ceil<std::chrono::milliseconds>(deadline - steady_clock::now()).count();
        pollfd readable{peer->fd(), POLLIN, 0};
        if (left <= 0 || ::poll(&readable, 1, static_cast<int>(left)) <= 0) return closed;
        char buffer[4096];
        if (::recv(peer->fd(), buffer, sizeof buffer, 0) <= 0) break;
      }
      ++closed;
    }
    return closed;
  }

  // While `peers` hang on, an ordinary client is answered; then the scheduler
  // closes every one of them, and still serves.
  void expectServedThroughAndClosed(const Peers& peers) {
    EXPECT_TRUE(answered());
    EXPECT_EQ(closedByScheduler(peers), peers.size());
    EXPECT_EQ(runScheduler({"status", "--state", scheduler().stateDirectory()}).exitStatus, 0);
    EXPECT_TRUE(answered());
  }
};

TEST_F(HostilePeers, FramesThatStopPartwayAreClosedWhileOthersAreServed) {
  const auto header = platform::encodeXPCFrameHeader({platform::kXPCFrameMaxBodyLength, 1, 0});
  platform::Bytes bodyBegun(header.begin(), header.end());
  bodyBegun.insert(bodyBegun.end(), 4096, 'x');
  // Each stops partway: within the header, after a header announcing 16 MiB, a little into that body.
  const platform::Bytes halves[] = {platform::Bytes(header.begin(), header.begin() + 10),
                                    platform::Bytes(header.begin(), header.end()), bodyBegun};
  Peers peers;
  for (const platform::Bytes& half : halves) {
    ASSERT_TRUE(connectRaw(&peers));
    ASSERT_TRUE(peers.back()->sendBytes(half, nullptr));
  }
  expectServedThroughAndClosed(peers);
}

TEST_F(HostilePeers, IdlePeersBeyondWhatItsDescriptorsAllowAreShed) {
  Peers peers;
  for (int i = 0; i < kIdlePeers && connectRaw(&peers); ++i) {
  }
  EXPECT_EQ(peers.size(), static_cast<std::size_t>(kIdlePeers)) << "the scheduler stopped accepting";
  // Those it had no room for are closed for newer ones, the rest once they idled too long.
  expectServedThroughAndClosed(peers);
}

}  // namespace
}  // namespace testing_support
