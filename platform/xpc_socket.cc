#include "platform/xpc_socket.h"

#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>
#include <vector>

namespace platform {
namespace {

std::mutex directoryMutex;
std::string* directoryForTesting = nullptr;  // never freed: read by other threads until exit

std::string socketDirectory() {
  std::lock_guard lock(directoryMutex);
  return directoryForTesting && !directoryForTesting->empty() ? *directoryForTesting : kXPCSocketDirectory;
}

ErrorRef errnoError(int code, const std::string& what) {
  return makeXPCTransportError(code, what + ": " + std::strerror(code));
}

// Reads exactly `length` bytes; false at end of stream or on an error.
bool readExactly(int fd, std::uint8_t* out, std::size_t length, bool* endOfStream, int* failure) {
  std::size_t got = 0;
  while (got < length) {
    const ssize_t n = ::recv(fd, out + got, length - got, 0);
    if (n > 0) {
      got += static_cast<std::size_t>(n);
      continue;
    }
    if (n < 0 && errno == EINTR) continue;
    *endOfStream = n == 0 || errno == ECONNRESET || errno == EPIPE || errno == ESHUTDOWN;
    *failure = n == 0 ? 0 : errno;
    return false;
  }
  return true;
}

}  // namespace

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
    if (error) *error = errnoError(errno, "socket");
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
    if (error) *error = errnoError(errno, "connect to " + *path);
    return nullptr;
  }
  return socket;
}

bool XPCSocket::sendFrame(const XPCFrameHeader& header, std::span<const std::uint8_t> body, ErrorRef* error) {
  const auto head = encodeXPCFrameHeader(header);
  std::vector<std::uint8_t> frame(head.begin(), head.end());
  frame.insert(frame.end(), body.begin(), body.end());
  return sendBytes(frame, error);
}

bool XPCSocket::sendBytes(std::span<const std::uint8_t> bytes, ErrorRef* error) {
  std::lock_guard lock(sendMutex_);
  while (!bytes.empty()) {
    const ssize_t n = ::send(fd_, bytes.data(), bytes.size(), MSG_NOSIGNAL);
    if (n < 0) {
      if (errno == EINTR) continue;
      if (error) *error = errnoError(errno, "send");
      return false;
    }
    bytes = bytes.subspan(static_cast<std::size_t>(n));
  }
  return true;
}

XPCSocket::Received XPCSocket::receiveFrame(XPCFrame* frame, ErrorRef* error) {
  std::uint8_t head[kXPCFrameHeaderSize];
  bool endOfStream = false;
  int failure = 0;
  if (!readExactly(fd_, head, sizeof head, &endOfStream, &failure)) {
    if (endOfStream) return Received::EndOfStream;
    if (error) *error = errnoError(failure, "receive");
    return Received::Malformed;
  }
  const std::optional<XPCFrameHeader> header = decodeXPCFrameHeader(head, error);
  if (!header) return Received::Malformed;
  // The length was checked against the limit before this allocation.
  std::vector<std::uint8_t> body(header->bodyLength);
  if (!readExactly(fd_, body.data(), body.size(), &endOfStream, &failure)) {
    if (endOfStream) return Received::EndOfStream;
    if (error) *error = errnoError(failure, "receive");
    return Received::Malformed;
  }
  std::optional<Dictionary> message = decodeXPCFrameBody(body, error);
  if (!message) return Received::Malformed;
  frame->messageId = header->messageId;
  frame->replyTo = header->replyTo;
  frame->message = std::move(*message);
  return Received::Frame;
}

void XPCSocket::shutdown() { ::shutdown(fd_, SHUT_RDWR); }

}  // namespace platform
