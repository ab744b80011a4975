// The service side of XPC connections: a listening socket for a named mach
// service and one event loop that reads every peer's frames as their bytes
// arrive, hands complete requests to a few worker threads, and writes what the
// handlers send when each peer reads it. However peers behave, the loop keeps
// serving the others: their number is bounded, a peer that stalls mid-frame or
// stays idle is closed, and running out of descriptors makes it shed idle peers
// or wait, never stop.
#pragma once

#include <chrono>
#include <cstddef>
#include <functional>
#include <memory>
#include <string>
#include <string_view>

#include "platform/plist/value.h"
#include "platform/xpc/peer.h"
#include "platform/xpc/socket.h"

namespace platform {

// How far the service goes for its peers.
struct XPCListenerLimits {
  // Peers served at once; also never more than the descriptor limit allows
  // with room left for the handlers' own files. A new peer beyond it takes the
  // place of the one that has waited longest without a request in a worker,
  // or is closed at once when every peer has one.
  std::size_t maxPeers = 1024;
  // Handlers that run at once, each on a thread that also takes its turn at
  // the event loop (one thread more is always free to lead it): one peer's
  // requests run one at a time, so a peer holds at most one of them.
  std::size_t workers = 4;
  // A peer that sends no request for this long is closed.
  std::chrono::milliseconds idleTimeout{60'000};
  // A frame must arrive whole, and a reply go out whole, within this long.
  std::chrono::milliseconds stallTimeout{10'000};
};

class XPCListener {
 public:
  // Called on a worker thread, one request at a time per peer.
  using RequestHandler = std::function<void(const std::shared_ptr<XPCPeer>& peer, XPCFrame request)>;

  // Listens as the service `name`: a socket that every user may connect to
  // (0666) in the service directory, which is made (0755) when missing. A
  // socket left behind by a service that is gone is replaced; one that a live
  // service answers is not (EADDRINUSE). Null with an error otherwise.
  static std::unique_ptr<XPCListener> listen(std::string_view name, ErrorRef* error);

  // Stops and removes the socket, unless another listener replaced it.
  ~XPCListener();
  XPCListener(const XPCListener&) = delete;
  XPCListener& operator=(const XPCListener&) = delete;

  const std::string& path() const { return path_; }

  // Accepts clients and hands each request to `handler` until stop(); then
  // closes every peer and waits for the handlers that run. Returns false with
  // an error only when the event loop itself cannot work.
  bool run(const RequestHandler& handler, ErrorRef* error, const XPCListenerLimits& limits = {});

  // Makes run() return. Async-signal-safe: a signal handler may call it.
  void stop();

 private:
  XPCListener(int fd, int wakeFd, std::string path, ino_t inode)
      : fd_(fd), wakeFd_(wakeFd), path_(std::move(path)), inode_(inode) {}

  const int fd_;      // non-blocking
  const int wakeFd_;  // an eventfd that stop() writes to
  const std::string path_;
  const ino_t inode_;  // of the socket file made, so that only it is removed
};

}  // namespace platform
