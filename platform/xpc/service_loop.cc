#include "platform/xpc/service_loop.h"

#include <poll.h>
#include <sys/epoll.h>
#include <sys/eventfd.h>
#include <sys/resource.h>
#include <sys/socket.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <mutex>
#include <optional>
#include <unordered_map>
#include <utility>
#include <vector>

#include "platform/xpc/worker_pool.h"

namespace platform {
namespace {

using Clock = std::chrono::steady_clock;
using std::chrono::milliseconds;

// Descriptors that peers never take: the service's own, its standard streams
// and the files its handlers open.
constexpr std::size_t kDescriptorsKept = 32;
// How long accepting pauses when descriptors ran out and no peer could give one back.
constexpr milliseconds kAcceptPause{100};
// Connections accepted per turn, so that a flood of them never starves the peers' reads.
constexpr int kAcceptsPerTurn = 16;
constexpr int kEventsPerTurn = 64;

// epoll tags of the loop's own descriptors; peers' tags count from kFirstPeer and are never reused.
constexpr std::uint64_t kListenTag = 0;
constexpr std::uint64_t kStopTag = 1;
constexpr std::uint64_t kNoticeTag = 2;
constexpr std::uint64_t kFirstPeer = 3;

// As many peers as `wanted`, or as the descriptor limit leaves room for.
std::size_t peerBound(std::size_t wanted) {
  rlimit limit{};
  if (::getrlimit(RLIMIT_NOFILE, &limit) != 0 || limit.rlim_cur == RLIM_INFINITY) return std::max<std::size_t>(wanted, 1);
  const std::size_t room = limit.rlim_cur > kDescriptorsKept ? limit.rlim_cur - kDescriptorsKept : 1;
  return std::clamp<std::size_t>(wanted, 1, room);
}

// What workers and peers tell the loop from other threads, through an eventfd it watches.
class Notices {
 public:
  enum class Kind : std::uint8_t {
    RequestDone,    // the peer's request left its worker
    OutputWaiting,  // the peer has bytes its socket did not take at once
  };
  Notices() : fd_(::eventfd(0, EFD_CLOEXEC | EFD_NONBLOCK)) {}
  ~Notices() {
    if (fd_ >= 0) ::close(fd_);
  }
  Notices(const Notices&) = delete;
  Notices& operator=(const Notices&) = delete;

  int fd() const { return fd_; }

  void post(std::uint64_t peer, Kind kind) {
    {
      std::lock_guard lock(mutex_);
      posted_.emplace_back(peer, kind);
    }
    const std::uint64_t one = 1;
    [[maybe_unused]] const ssize_t written = ::write(fd_, &one, sizeof one);
  }

  std::vector<std::pair<std::uint64_t, Kind>> take() {
    std::uint64_t count = 0;
    [[maybe_unused]] const ssize_t got = ::read(fd_, &count, sizeof count);
    std::lock_guard lock(mutex_);
    return std::exchange(posted_, {});
  }

 private:
  const int fd_;
  std::mutex mutex_;
  std::vector<std::pair<std::uint64_t, Kind>> posted_;
};

class ServiceLoop {
 public:
  ServiceLoop(int listenFd, int stopFd, const XPCListener::RequestHandler& handler, const XPCListenerLimits& limits)
      : listenFd_(listenFd),
        stopFd_(stopFd),
        handler_(handler),
        limits_(limits),
        maxPeers_(peerBound(limits.maxPeers)),
        sweepInterval_(std::clamp(std::min(limits.idleTimeout, limits.stallTimeout) / 4, milliseconds(1),
                                  milliseconds(1000))),
        epoll_(::epoll_create1(EPOLL_CLOEXEC)),
        workers_(limits.workers) {}
  ~ServiceLoop() {
    if (epoll_ >= 0) ::close(epoll_);
  }
  ServiceLoop(const ServiceLoop&) = delete;
  ServiceLoop& operator=(const ServiceLoop&) = delete;

  bool run(ErrorRef* error);

 private:
  struct Peer {
    std::shared_ptr<XPCPeer> peer;
    Clock::time_point since;    // when what it waits for began: a request, the rest of a frame, a reply to go out
    bool busy = false;          // a worker has its request
    std::uint32_t watched = 0;  // the epoll events it is registered for; 0 while it is not
  };

  bool watch(int fd, std::uint64_t tag) {
    epoll_event event{};
    event.events = EPOLLIN;
    event.data.u64 = tag;
    return ::epoll_ctl(epoll_, EPOLL_CTL_ADD, fd, &event) == 0;
  }
  // Registers `peer` for `events` (none: not at all); false when epoll refuses.
  bool rewatch(std::uint64_t id, Peer& peer, std::uint32_t events);
  void drop(std::uint64_t id);

  void acceptPeers(Clock::time_point now);
  void admit(int fd, Clock::time_point now);
  // True when a client waits to be accepted.
  bool clientWaiting() const;
  // Closes the peer that has waited longest without a request in a worker; false when every peer has one.
  bool evictLongestWaiting();
  void pauseAccepting(Clock::time_point now);
  void resumeAcceptingWhenDue(Clock::time_point now);

  void read(std::uint64_t id, Peer& peer, Clock::time_point now);
  void dispatch(std::uint64_t id, Peer& peer, XPCRawFrame frame);
  // Writes what waits for `peer`, then watches it for what comes next.
  void settle(std::uint64_t id, Peer& peer, Clock::time_point now);
  void takeNotices(Clock::time_point now);
  // Closes the peers that stalled or idled past their time.
  void sweep(Clock::time_point now);
  std::optional<Clock::time_point> deadline(Peer& peer) const;
  // One wait for events and what they call for; false once the loop stops.
  bool turn();

  const int listenFd_;
  const int stopFd_;
  const XPCListener::RequestHandler& handler_;
  const XPCListenerLimits limits_;
  const std::size_t maxPeers_;
  const milliseconds sweepInterval_;
  const int epoll_;
  const std::shared_ptr<Notices> notices_ = std::make_shared<Notices>();
  std::unordered_map<std::uint64_t, Peer> peers_;
  std::uint64_t nextPeer_ = kFirstPeer;
  std::optional<Clock::time_point> acceptingAgainAt_;  // set while accepting pauses
  Clock::time_point nextSweep_;
  int failure_ = 0;  // the errno value epoll_wait failed with
  WorkerPool workers_;
};

bool ServiceLoop::rewatch(std::uint64_t id, Peer& peer, std::uint32_t events) {
  if (events == peer.watched) return true;
  const int operation = events == 0 ? EPOLL_CTL_DEL : peer.watched == 0 ? EPOLL_CTL_ADD : EPOLL_CTL_MOD;
  epoll_event event{};
  event.events = events;
  event.data.u64 = id;
  if (::epoll_ctl(epoll_, operation, peer.peer->socket().fd(), &event) != 0 && events != 0) return false;
  peer.watched = events;
  return true;
}

void ServiceLoop::drop(std::uint64_t id) {
  const auto it = peers_.find(id);
  if (it == peers_.end()) return;
  rewatch(id, it->second, 0);
  // A handler may still hold the peer; the client learns now that it is gone.
  it->second.peer->socket().shutdown();
  peers_.erase(it);
}

void ServiceLoop::acceptPeers(Clock::time_point now) {
  for (int i = 0; i < kAcceptsPerTurn; ++i) {
    const int fd = ::accept4(listenFd_, nullptr, nullptr, SOCK_CLOEXEC);
    if (fd >= 0) {
      admit(fd, now);
      continue;
    }
    if (errno == EINTR || errno == ECONNABORTED) continue;
    // The descriptor is taken before a client is looked for: running out says
    // nothing of whether one waits.
    if ((errno == EMFILE || errno == ENFILE || errno == ENOBUFS || errno == ENOMEM) && clientWaiting()) {
      // An idle peer gives its descriptor back, or accepting waits a moment;
      // the clients stay queued meanwhile.
      if (evictLongestWaiting()) continue;
      pauseAccepting(now);
    }
    return;  // none waiting, or one that went before it was accepted
  }
}

bool ServiceLoop::clientWaiting() const {
  pollfd listening{listenFd_, POLLIN, 0};
  return ::poll(&listening, 1, 0) == 1;
}

void ServiceLoop::admit(int fd, Clock::time_point now) {
  ucred credentials{};
  socklen_t length = sizeof credentials;
  // A peer the kernel cannot vouch for is not served.
  if (::getsockopt(fd, SOL_SOCKET, SO_PEERCRED, &credentials, &length) != 0 ||
      (peers_.size() >= maxPeers_ && !evictLongestWaiting())) {
    ::close(fd);
    return;
  }
  const std::uint64_t id = nextPeer_++;
  Peer& peer = peers_[id];
  peer.peer = std::make_shared<XPCPeer>(std::make_unique<XPCSocket>(fd),
                                        XPCPeerCredentials{credentials.pid, credentials.uid, credentials.gid},
                                        [notices = notices_, id] { notices->post(id, Notices::Kind::OutputWaiting); });
  peer.since = now;
  if (!rewatch(id, peer, EPOLLIN)) drop(id);
}

bool ServiceLoop::evictLongestWaiting() {
  auto longest = peers_.end();
  for (auto it = peers_.begin(); it != peers_.end(); ++it) {
    if (!it->second.busy && (longest == peers_.end() || it->second.since < longest->second.since)) longest = it;
  }
  if (longest == peers_.end()) return false;
  drop(longest->first);
  return true;
}

void ServiceLoop::pauseAccepting(Clock::time_point now) {
  if (acceptingAgainAt_) return;
  ::epoll_ctl(epoll_, EPOLL_CTL_DEL, listenFd_, nullptr);
  acceptingAgainAt_ = now + kAcceptPause;
}

void ServiceLoop::resumeAcceptingWhenDue(Clock::time_point now) {
  if (!acceptingAgainAt_ || now < *acceptingAgainAt_) return;
  // Should epoll refuse, accepting tries again after another pause.
  acceptingAgainAt_ = watch(listenFd_, kListenTag) ? std::nullopt : std::optional(now + kAcceptPause);
}

void ServiceLoop::read(std::uint64_t id, Peer& peer, Clock::time_point now) {
  XPCSocket& socket = peer.peer->socket();
  const bool between = !socket.holdsPartialFrame();
  XPCRawFrame frame;
  switch (socket.receiveAvailable(&frame, nullptr)) {
    case XPCSocket::Received::Incomplete:
      if (between && socket.holdsPartialFrame()) peer.since = now;
      return;
    case XPCSocket::Received::Frame:
      dispatch(id, peer, std::move(frame));
      return;
    case XPCSocket::Received::EndOfStream:
    case XPCSocket::Received::Malformed:
      drop(id);
      return;
  }
}

void ServiceLoop::dispatch(std::uint64_t id, Peer& peer, XPCRawFrame frame) {
  // Nothing more is read from the peer until its request is done.
  peer.busy = true;
  rewatch(id, peer, 0);
  // The body is read on the worker: a document that is slow to read holds that worker alone.
  workers_.submit([&handler = handler_, client = peer.peer, raw = std::move(frame), notices = notices_, id]() mutable {
    std::optional<XPCFrame> request = decodeXPCFrame(raw, nullptr);
    // A client that breaks the frame format is dropped like one that left.
    if (request) {
      handler(client, std::move(*request));
    } else {
      client->close();
    }
    // Let go before the loop hears of it, so that a peer the loop drops then is closed at once.
    client.reset();
    notices->post(id, Notices::Kind::RequestDone);
  });
}

void ServiceLoop::settle(std::uint64_t id, Peer& peer, Clock::time_point now) {
  std::uint32_t next = EPOLLIN;
  switch (peer.peer->flush()) {
    case XPCPeer::Output::Failed:
      drop(id);
      return;
    case XPCPeer::Output::Waiting:
      next = EPOLLOUT;
      break;
    case XPCPeer::Output::Written:
      if (peer.peer->closed()) {
        drop(id);
        return;
      }
      break;
  }
  if (next != peer.watched) peer.since = now;
  if (!rewatch(id, peer, next)) drop(id);
}

void ServiceLoop::takeNotices(Clock::time_point now) {
  for (const auto& [id, kind] : notices_->take()) {
    const auto it = peers_.find(id);
    if (it == peers_.end()) continue;
    if (kind == Notices::Kind::RequestDone) it->second.busy = false;
    // What a request sent is looked at once it is done.
    if (!it->second.busy) settle(id, it->second, now);
  }
}

std::optional<Clock::time_point> ServiceLoop::deadline(Peer& peer) const {
  if (peer.busy) return std::nullopt;
  const bool stalling = peer.watched == EPOLLOUT || peer.peer->socket().holdsPartialFrame();
  return peer.since + (stalling ? limits_.stallTimeout : limits_.idleTimeout);
}

void ServiceLoop::sweep(Clock::time_point now) {
  std::vector<std::uint64_t> expired;
  for (auto& [id, peer] : peers_) {
    const std::optional<Clock::time_point> due = deadline(peer);
    if (due && *due <= now) expired.push_back(id);
  }
  for (const std::uint64_t id : expired) drop(id);
}

bool ServiceLoop::run(ErrorRef* error) {
  if (epoll_ < 0 || notices_->fd() < 0 || !watch(listenFd_, kListenTag) || !watch(stopFd_, kStopTag) ||
      !watch(notices_->fd(), kNoticeTag)) {
    if (error) *error = xpcErrnoError(errno, "epoll");
    return false;
  }
  nextSweep_ = Clock::now() + sweepInterval_;
  workers_.run([this] { return turn(); });
  if (failure_ != 0) {
    if (error) *error = xpcErrnoError(failure_, "epoll_wait");
    return false;
  }
  return true;
}

bool ServiceLoop::turn() {
  const Clock::time_point wake = acceptingAgainAt_ ? std::min(nextSweep_, *acceptingAgainAt_) : nextSweep_;
  // Rounded up, so that the loop never wakes just before it has something to do.
  const auto wait = std::chrono::ceil<milliseconds>(wake - Clock::now()).count();
  epoll_event events[kEventsPerTurn];
  const int count = ::epoll_wait(epoll_, events, kEventsPerTurn, static_cast<int>(std::max<decltype(wait)>(wait, 0)));
  bool stopping = false;
  if (count < 0 && errno != EINTR) {
    failure_ = errno;
    stopping = true;
  }
  const Clock::time_point now = Clock::now();
  for (int i = 0; i < count; ++i) {
    const std::uint64_t tag = events[i].data.u64;
    if (tag == kStopTag) {
      stopping = true;
    } else if (tag == kListenTag) {
      acceptPeers(now);
    } else if (tag == kNoticeTag) {
      takeNotices(now);
    } else if (const auto it = peers_.find(tag); it != peers_.end()) {
      // Hang-ups and errors show in what the read or the write returns.
      if (it->second.watched == EPOLLOUT) {
        settle(tag, it->second, now);
      } else {
        read(tag, it->second, now);
      }
    }
  }
  resumeAcceptingWhenDue(now);
  if (now >= nextSweep_) {
    sweep(now);
    nextSweep_ = now + sweepInterval_;
  }
  if (!stopping) return true;
  // Handlers that still run find their peers gone; the workers end with the loop.
  for (auto& [id, peer] : peers_) peer.peer->socket().shutdown();
  return false;
}

}  // namespace

bool serveXPCPeers(int listenFd, int stopFd, const XPCListener::RequestHandler& handler,
                   const XPCListenerLimits& limits, ErrorRef* error) {
  ServiceLoop loop(listenFd, stopFd, handler, limits);
  return loop.run(error);
}

}  // namespace platform
