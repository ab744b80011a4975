#include "platform/xpc/socket.h"

#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstring>

namespace platform {
namespace {

std::mutex directoryMutex;
std::string* directoryForTesting = nullptr;  // never freed: read by other threads until exit

std::string socketDirectory() {
  std::lock_guard lock(directoryMutex);
  return directoryForTesting && !directoryForTesting->empty() ? *directoryForTesting : kXPCSocketDirectory;
}

// Bytes read from a stream at a time: whatever a header announces, a body is
// taken in pieces of at most this size.
constexpr std::size_t kReadChunk = 64 * 1024;

}  // namespace

ErrorRef xpcErrnoError(int code, const std::string& what) {
  return makeXPCTransportError(code, what + ": " + std::strerror(code));
}

std::optional<XPCFrame> decodeXPCFrame(const XPCRawFrame& raw, ErrorRef* error) {
  std::optional<Dictionary> message = decodeXPCFrameBody(raw.body, error);
  if (!message) return std::nullopt;
  return XPCFrame{raw.header.messageId, raw.header.replyTo, std::move(*message)};
}

void setXPCSocketDirectoryForTesting(std::string directory) {
  std::lock_guard lock(directoryMutex);
  if (!directoryForTesting) directoryForTesting = new std::string;
  *directoryForTesting = std::move(directory);
}

std::optional<std::string> xpcServiceSocketPath(std::string_view name, ErrorRef* error) {
  if (name.empty() || name == "." || name == ".." || name.find('/') != std::string_view::npos ||
      name.find('\0') != std::string_view::npos) {
    if (error) *error = makeXPCTransportError(EINVAL, "invalid XPC service name '" + std::string(name) + "'");
    return std::nullopt;
  }
  std::string path = socketDirectory() + "/" + std::string(name);
  if (path.size() >= sizeof(sockaddr_un{}.sun_path)) {
    if (error) *error = makeXPCTransportError(ENAMETOOLONG, "XPC socket path too long: " + path);
    return std::nullopt;
  }
  return path;
}

XPCSocket::~XPCSocket() { ::close(fd_); }

std::unique_ptr<XPCSocket> XPCSocket::connectToService(std::string_view name, ErrorRef* error) {
  const std::optional<std::string> path = xpcServiceSocketPath(name, error);
  if (!path) return nullptr;
  const int fd = ::socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0);
  if (fd < 0) {
    if (error) *error = xpcErrnoError(errno, "socket");
    return nullptr;
  }
  auto socket = std::make_unique<XPCSocket>(fd);
  sockaddr_un address{};
  address.sun_family = AF_UNIX;
  std::memcpy(address.sun_path, path->c_str(), path->size() + 1);
  int result;
  do {
    result = ::connect(fd, reinterpret_cast<const sockaddr*>(&address), sizeof address);
  } while (result != 0 && errno == EINTR);
  if (result != 0) {
    if (error) *error = xpcErrnoError(errno, "connect to " + *path);
    return nullptr;
  }
  return socket;
}

bool XPCSocket::sendFrame(const XPCFrameHeader& header, std::span<const std::uint8_t> body, ErrorRef* error) {
  return sendBytes(encodeXPCFrame(header, body), error);
}

bool XPCSocket::sendBytes(std::span<const std::uint8_t> bytes, ErrorRef* error) {
  std::lock_guard lock(sendMutex_);
  while (!bytes.empty()) {
    const ssize_t n = ::send(fd_, bytes.data(), bytes.size(), MSG_NOSIGNAL);
    if (n < 0) {
      if (errno == EINTR) continue;
      if (error) *error = xpcErrnoError(errno, "send");
      return false;
    }
    bytes = bytes.subspan(static_cast<std::size_t>(n));
  }
  return true;
}

std::optional<std::size_t> XPCSocket::sendAvailable(std::span<const std::uint8_t> bytes, ErrorRef* error) {
  for (;;) {
    const ssize_t n = ::send(fd_, bytes.data(), bytes.size(), MSG_NOSIGNAL | MSG_DONTWAIT);
    if (n >= 0) return static_cast<std::size_t>(n);
    if (errno == EINTR) continue;
    if (errno == EAGAIN || errno == EWOULDBLOCK) return 0;
    if (error) *error = xpcErrnoError(errno, "send");
    return std::nullopt;
  }
}

XPCSocket::Received XPCSocket::readSome(int flags, XPCRawFrame* frame, ErrorRef* error) {
  std::uint8_t chunk[kReadChunk];
  // A header and its body mostly arrive together: the body is asked for at
  // once, up to one chunk of it, before the caller waits again.
  for (int reads = 0; reads < 2; ++reads) {
    const ssize_t n = ::recv(fd_, chunk, std::min(sizeof chunk, reader_.missing()), flags);
    if (n > 0) {
      switch (reader_.append({chunk, static_cast<std::size_t>(n)}, error)) {
        case XPCFrameReader::Progress::Partial:
          continue;
        case XPCFrameReader::Progress::Malformed:
          return Received::Malformed;
        case XPCFrameReader::Progress::Complete:
          frame->header = reader_.header();
          frame->body = reader_.takeBody();
          return Received::Frame;
      }
    }
    if (n == 0 || errno == ECONNRESET || errno == EPIPE || errno == ESHUTDOWN) return Received::EndOfStream;
    if (errno == EINTR || errno == EAGAIN || errno == EWOULDBLOCK) return Received::Incomplete;
    if (error) *error = xpcErrnoError(errno, "receive");
    return Received::Malformed;
  }
  return Received::Incomplete;
}

XPCSocket::Received XPCSocket::receiveFrame(XPCFrame* frame, ErrorRef* error) {
  XPCRawFrame raw;
  Received received;
  while ((received = readSome(0, &raw, error)) == Received::Incomplete) {
  }
  if (received != Received::Frame) return received;
  std::optional<XPCFrame> decoded = decodeXPCFrame(raw, error);
  if (!decoded) return Received::Malformed;
  *frame = std::move(*decoded);
  return Received::Frame;
}

XPCSocket::Received XPCSocket::receiveAvailable(XPCRawFrame* frame, ErrorRef* error) {
  return readSome(MSG_DONTWAIT, frame, error);
}

void XPCSocket::shutdown() { ::shutdown(fd_, SHUT_RDWR); }

}  // namespace platform
