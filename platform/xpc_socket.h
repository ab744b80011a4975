// The stream socket under an XPC connection, on either side: where a service's
// socket lives, connecting to it, and framed sends and receives (platform/xpc_frame.h).
#pragma once

#include <cstdint>
#include <memory>
#include <mutex>
#include <optional>
#include <span>
#include <string>
#include <string_view>

#include "platform/value.h"
#include "platform/xpc_frame.h"

namespace platform {

// Where privileged services' sockets live: "/var/run/xpc".
inline constexpr const char* kXPCSocketDirectory = "/var/run/xpc";

// Makes clients and listeners use `directory` instead of kXPCSocketDirectory;
// an empty string restores it. For tests and the development scheduler.
void setXPCSocketDirectoryForTesting(std::string directory);

// The socket path of the service `name`, or nullopt with an error when the name
// is not a single path component (empty, ".", "..", or holding '/' or NUL).
std::optional<std::string> xpcServiceSocketPath(std::string_view name, ErrorRef* error);

// One received frame.
struct XPCFrame {
  std::uint64_t messageId = 0;
  std::uint64_t replyTo = 0;
  Dictionary message;
};

// A connected stream socket that carries frames. Any thread may send (frames
// never interleave); one thread receives. The descriptor is closed only when the
// object goes, so a send racing with shutdown() never writes to a reused descriptor.
class XPCSocket {
 public:
  // Takes ownership of the connected descriptor `fd`.
  explicit XPCSocket(int fd) : fd_(fd) {}
  ~XPCSocket();
  XPCSocket(const XPCSocket&) = delete;
  XPCSocket& operator=(const XPCSocket&) = delete;

  // Connects to the service `name`. Returns null with an error (the errno of the
  // failed call) when the name is bad, no socket is there, nobody listens, or
  // the caller may not connect.
  static std::unique_ptr<XPCSocket> connectToService(std::string_view name, ErrorRef* error);

  int fd() const { return fd_; }

  // Sends one frame made of `header` and `body`, whole. Returns false with an
  // error when the peer is gone or the socket was shut down. Never raises SIGPIPE.
  bool sendFrame(const XPCFrameHeader& header, std::span<const std::uint8_t> body, ErrorRef* error);

  // Sends `bytes` as they are, for peers that test how the other side copes
  // with broken frames. Same failures as sendFrame.
  bool sendBytes(std::span<const std::uint8_t> bytes, ErrorRef* error);

  enum class Received : std::uint8_t {
    Frame,        // `frame` holds the next frame
    EndOfStream,  // the peer closed or reset the connection, or shutdown() was called
    Malformed,    // the peer broke the frame format; `error` says how
  };
  // Blocks until the next frame arrives or the stream ends. The body length is
  // checked before anything is allocated for it.
  Received receiveFrame(XPCFrame* frame, ErrorRef* error);

  // Ends both directions: a blocked receiveFrame returns EndOfStream, later sends fail.
  void shutdown();

 private:
  const int fd_;
  std::mutex sendMutex_;  // one frame at a time
};

}  // namespace platform
