// The service side of XPC connections: a listening socket for a named mach
// service, its peers with their credentials, and replies.
#pragma once

#include <sys/types.h>

#include <cstdint>
#include <functional>
#include <atomic>
#include <memory>
#include <span>
#include <string>
#include <string_view>
#include <thread>
#include <vector>

#include "platform/value.h"
#include "platform/xpc_socket.h"

namespace platform {

// Who is at the other end of a connection, as the kernel vouches for it.
struct XPCPeerCredentials {
  pid_t pid = 0;
  uid_t uid = 0;
  gid_t gid = 0;
};

// One connected client.
class XPCPeer {
 public:
  XPCPeer(std::unique_ptr<XPCSocket> socket, XPCPeerCredentials credentials)
      : socket_(std::move(socket)), credentials_(credentials) {}

  const XPCPeerCredentials& credentials() const { return credentials_; }

  // Answers the request whose message id is `requestId`. False with an error
  // when the reply cannot be encoded or the peer is gone.
  bool reply(std::uint64_t requestId, const Dictionary& reply, ErrorRef* error);

  // Sends `bytes` as they are, to test how clients cope with broken frames.
  bool sendBytes(std::span<const std::uint8_t> bytes, ErrorRef* error);

  // Ends the connection; the client's pending requests are interrupted.
  void close();

  XPCSocket& socket() { return *socket_; }

 private:
  std::unique_ptr<XPCSocket> socket_;
  XPCPeerCredentials credentials_;
};

class XPCListener {
 public:
  // Called on the peer's own thread, one request at a time per peer.
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
  // closes every peer and waits for their threads. Returns false with an
  // error when accepting fails for another reason than a stop.
  bool run(const RequestHandler& handler, ErrorRef* error);

  // Makes run() return. Async-signal-safe: a signal handler may call it.
  void stop();

 private:
  XPCListener(int fd, int wakeFd, std::string path, ino_t inode)
      : fd_(fd), wakeFd_(wakeFd), path_(std::move(path)), inode_(inode) {}

  const int fd_;
  const int wakeFd_;  // an eventfd that stop() writes to
  const std::string path_;
  const ino_t inode_;  // of the socket file made, so that only it is removed

  // A peer and the thread that reads its requests; `done` once it left.
  struct Connection {
    std::shared_ptr<XPCPeer> peer;
    std::shared_ptr<std::atomic<bool>> done;
    std::thread thread;
  };
  // Joins the threads of peers that left; all of them with `all`, after closing them.
  void reap(bool all);

  std::vector<Connection> connections_;  // touched by run() only
};

}  // namespace platform
