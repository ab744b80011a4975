// One client of a service, as the service sees it: who it is, and what is
// sent to it. Nothing sent to a peer ever waits for the peer to read: what its
// socket does not take at once is kept, in order, and the service's event loop
// writes it out when the peer reads (platform/xpc/listener.h).
#pragma once

#include <sys/types.h>

#include <cstddef>
#include <cstdint>
#include <functional>
#include <memory>
#include <mutex>
#include <span>

#include "platform/plist/value.h"
#include "platform/xpc/socket.h"

namespace platform {

// Who is at the other end of a connection, as the kernel vouches for it.
struct XPCPeerCredentials {
  pid_t pid = 0;
  uid_t uid = 0;
  gid_t gid = 0;
};

class XPCPeer {
 public:
  // `outputWaiting` is called, from whichever thread sent, when bytes are left
  // that the socket did not take at once.
  XPCPeer(std::unique_ptr<XPCSocket> socket, XPCPeerCredentials credentials,
          std::function<void()> outputWaiting = {})
      : socket_(std::move(socket)), credentials_(credentials), outputWaiting_(std::move(outputWaiting)) {}

  const XPCPeerCredentials& credentials() const { return credentials_; }

  // Answers the request whose message id is `requestId`. False with an error
  // when the reply cannot be encoded, the peer is gone or it was closed.
  bool reply(std::uint64_t requestId, const Dictionary& reply, ErrorRef* error);

  // Sends `bytes` as they are, to test how clients cope with broken frames.
  bool sendBytes(std::span<const std::uint8_t> bytes, ErrorRef* error);

  // Ends the connection once what was sent before has gone out; the client's
  // pending requests are interrupted. Later sends fail.
  void close();

  XPCSocket& socket() { return *socket_; }

  // For the event loop. How much of what was sent waits for the socket.
  enum class Output : std::uint8_t { Written, Waiting, Failed };
  // Writes what waits, as far as the socket takes it without waiting; Failed
  // when the peer is gone. Once all is out, a close() asked for takes effect.
  Output flush();
  // True once close() was asked for and nothing waits to go out before it.
  bool closed();

 private:
  // Under `mutex_`: what waits to go out; the rest of `unsent_` past `unsentOffset_`.
  std::span<const std::uint8_t> unsentLocked() const;

  std::unique_ptr<XPCSocket> socket_;
  XPCPeerCredentials credentials_;
  const std::function<void()> outputWaiting_;

  std::mutex mutex_;  // guards everything below
  Bytes unsent_;
  std::size_t unsentOffset_ = 0;
  bool closing_ = false;
};

}  // namespace platform
