// The stream socket under an XPC connection, on either side: where a service's
// socket lives, connecting to it, and framed sends and receives (platform/xpc/frame.h).
#pragma once

#include <cstdint>
#include <memory>
#include <mutex>
#include <optional>
#include <span>
#include <string>
#include <string_view>

#include "platform/plist/value.h"
#include "platform/xpc/frame.h"
#include "platform/xpc/frame_reader.h"

namespace platform {

// Where privileged services' sockets live: "/var/run/xpc".
inline constexpr const char* kXPCSocketDirectory = "/var/run/xpc";

// Makes clients and listeners use `directory` instead of kXPCSocketDirectory;
// an empty string restores it. For tests and the development scheduler.
void setXPCSocketDirectoryForTesting(std::string directory);

// An XPC transport error for the failed call `what` with errno `code`.
ErrorRef xpcErrnoError(int code, const std::string& what);

// The socket path of the service `name`, or nullopt with an error when the name
// is not a single path component (empty, ".", "..", or holding '/' or NUL).
std::optional<std::string> xpcServiceSocketPath(std::string_view name, ErrorRef* error);

// One received frame.
struct XPCFrame {
  std::uint64_t messageId = 0;
  std::uint64_t replyTo = 0;
  Dictionary message;
};

// A frame as it came off the stream, its body not read yet.
struct XPCRawFrame {
  XPCFrameHeader header;
  Bytes body;
};

// `raw` with its body read as an XPC dictionary; nullopt with an error when it is none.
std::optional<XPCFrame> decodeXPCFrame(const XPCRawFrame& raw, ErrorRef* error);

// A connected stream socket that carries frames. Any thread may send (frames
// never interleave); one thread receives. The descriptor is closed only when the
// object goes, so a send racing with shutdown() never writes to a reused descriptor.
// Frames are read as their bytes arrive (platform/xpc/frame_reader.h), the same
// way whether the reader waits for them or not.
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

  // Sends as much of `bytes` as the socket takes without waiting: how many
  // bytes went, possibly none; nullopt with an error when the peer is gone.
  // Not to be mixed with sendFrame and sendBytes on one socket.
  std::optional<std::size_t> sendAvailable(std::span<const std::uint8_t> bytes, ErrorRef* error);

  enum class Received : std::uint8_t {
    Frame,        // `frame` holds the next frame
    EndOfStream,  // the peer closed or reset the connection, or shutdown() was called
    Malformed,    // the peer broke the frame format; `error` says how
    Incomplete,   // receiveAvailable only: the frame lacks bytes that have not arrived yet
  };
  // Blocks until the next frame arrives or the stream ends.
  Received receiveFrame(XPCFrame* frame, ErrorRef* error);

  // Reads once, without waiting, what has arrived of the next frame; Frame,
  // with its header and body in `frame`, when that completed it.
  Received receiveAvailable(XPCRawFrame* frame, ErrorRef* error);

  // True when part of a frame has been read and the rest has not.
  bool holdsPartialFrame() const { return reader_.holdsPartialFrame(); }

  // Ends both directions: a blocked receiveFrame returns EndOfStream, later sends fail.
  void shutdown();

 private:
  // Reads of at most what the frame being read lacks, with recv `flags`: a
  // second one when the first completed only the header.
  Received readSome(int flags, XPCRawFrame* frame, ErrorRef* error);

  const int fd_;
  std::mutex sendMutex_;   // one frame at a time
  XPCFrameReader reader_;  // touched by the receiving thread only
};

}  // namespace platform
