#include "platform/xpc_listener.h"

#include <poll.h>
#include <sys/eventfd.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/un.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>

namespace platform {
namespace {

ErrorRef errnoError(int code, const std::string& what) {
  return makeXPCTransportError(code, what + ": " + std::strerror(code));
}

sockaddr_un addressOf(const std::string& path) {
  sockaddr_un address{};
  address.sun_family = AF_UNIX;
  std::memcpy(address.sun_path, path.c_str(), path.size() + 1);
  return address;
}

// True when a service answers at `path`; a socket file nobody listens on is
// what a service that died leaves behind.
bool someoneListens(const std::string& path) {
  const int probe = ::socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0);
  if (probe < 0) return false;
  const sockaddr_un address = addressOf(path);
  const bool answered = ::connect(probe, reinterpret_cast<const sockaddr*>(&address), sizeof address) == 0;
  ::close(probe);
  return answered;
}

}  // namespace

bool XPCPeer::reply(std::uint64_t requestId, const Dictionary& reply, ErrorRef* error) {
  std::optional<Bytes> body = encodeXPCFrameBody(reply, error);
  if (!body) return false;
  return socket_->sendFrame({static_cast<std::uint32_t>(body->size()), 0, requestId}, *body, error);
}

bool XPCPeer::sendBytes(std::span<const std::uint8_t> bytes, ErrorRef* error) {
  return socket_->sendBytes(bytes, error);
}

void XPCPeer::close() { socket_->shutdown(); }

std::unique_ptr<XPCListener> XPCListener::listen(std::string_view name, ErrorRef* error) {
  const std::optional<std::string> path = xpcServiceSocketPath(name, error);
  if (!path) return nullptr;
  const std::string directory = path->substr(0, path->rfind('/'));
  if (::mkdir(directory.c_str(), 0755) != 0 && errno != EEXIST) {
    if (error) *error = errnoError(errno, "mkdir " + directory);
    return nullptr;
  }
  if (someoneListens(*path)) {
    if (error) *error = errnoError(EADDRINUSE, "service " + std::string(name) + " is already served");
    return nullptr;
  }
  ::unlink(path->c_str());
  const int fd = ::socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0);
  const int wake = ::eventfd(0, EFD_CLOEXEC | EFD_NONBLOCK);
  const sockaddr_un address = addressOf(*path);
  struct stat st {};
  if (fd < 0 || wake < 0 || ::bind(fd, reinterpret_cast<const sockaddr*>(&address), sizeof address) != 0 ||
      ::chmod(path->c_str(), 0666) != 0 || ::stat(path->c_str(), &st) != 0 || ::listen(fd, SOMAXCONN) != 0) {
    if (error) *error = errnoError(errno, "listen on " + *path);
    if (fd >= 0) ::close(fd);
    if (wake >= 0) ::close(wake);
    return nullptr;
  }
  return std::unique_ptr<XPCListener>(new XPCListener(fd, wake, *path, st.st_ino));
}

XPCListener::~XPCListener() {
  stop();
  struct stat st {};
  if (::stat(path_.c_str(), &st) == 0 && st.st_ino == inode_) ::unlink(path_.c_str());
  ::close(fd_);
  ::close(wakeFd_);
}

void XPCListener::stop() {
  const std::uint64_t one = 1;
  [[maybe_unused]] const ssize_t written = ::write(wakeFd_, &one, sizeof one);
}

void XPCListener::reap(bool all) {
  std::erase_if(connections_, [all](Connection& connection) {
    if (all) connection.peer->close();
    if (!all && !connection.done->load()) return false;
    connection.thread.join();
    return true;
  });
}

bool XPCListener::run(const RequestHandler& handler, ErrorRef* error) {
  bool ok = true;
  for (;;) {
    pollfd fds[2] = {{fd_, POLLIN, 0}, {wakeFd_, POLLIN, 0}};
    if (::poll(fds, 2, -1) < 0) {
      if (errno == EINTR) continue;
      if (error) *error = errnoError(errno, "poll");
      ok = false;
      break;
    }
    if (fds[1].revents != 0) break;
    const int client = ::accept4(fd_, nullptr, nullptr, SOCK_CLOEXEC);
    if (client < 0) {
      if (errno == EINTR || errno == ECONNABORTED || errno == EAGAIN) continue;
      if (error) *error = errnoError(errno, "accept");
      ok = false;
      break;
    }
    ucred credentials{};
    socklen_t length = sizeof credentials;
    ::getsockopt(client, SOL_SOCKET, SO_PEERCRED, &credentials, &length);
    auto peer = std::make_shared<XPCPeer>(std::make_unique<XPCSocket>(client),
                                          XPCPeerCredentials{credentials.pid, credentials.uid, credentials.gid});
    auto done = std::make_shared<std::atomic<bool>>(false);
    reap(false);
    connections_.push_back({peer, done, std::thread([peer, done, &handler] {
                              for (;;) {
                                XPCFrame frame;
                                // A client that breaks the frame format is dropped like one that left.
                                if (peer->socket().receiveFrame(&frame, nullptr) != XPCSocket::Received::Frame) break;
                                handler(peer, std::move(frame));
                              }
                              peer->close();
                              done->store(true);
                            })});
  }
  reap(true);
  // Consume the stop, so that the listener could run again.
  std::uint64_t count = 0;
  [[maybe_unused]] const ssize_t got = ::read(wakeFd_, &count, sizeof count);
  return ok;
}

}  // namespace platform
