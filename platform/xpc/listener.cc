#include "platform/xpc/listener.h"

#include <sys/eventfd.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/un.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>

#include "platform/xpc/service_loop.h"

namespace platform {
namespace {

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

std::unique_ptr<XPCListener> XPCListener::listen(std::string_view name, ErrorRef* error) {
  const std::optional<std::string> path = xpcServiceSocketPath(name, error);
  if (!path) return nullptr;
  const std::string directory = path->substr(0, path->rfind('/'));
  if (::mkdir(directory.c_str(), 0755) != 0 && errno != EEXIST) {
    if (error) *error = xpcErrnoError(errno, "mkdir " + directory);
    return nullptr;
  }
  if (someoneListens(*path)) {
    if (error) *error = xpcErrnoError(EADDRINUSE, "service " + std::string(name) + " is already served");
    return nullptr;
  }
  ::unlink(path->c_str());
  const int fd = ::socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC | SOCK_NONBLOCK, 0);
  const int wake = ::eventfd(0, EFD_CLOEXEC | EFD_NONBLOCK);
  const sockaddr_un address = addressOf(*path);
  struct stat st {};
  if (fd < 0 || wake < 0 || ::bind(fd, reinterpret_cast<const sockaddr*>(&address), sizeof address) != 0 ||
      ::chmod(path->c_str(), 0666) != 0 || ::stat(path->c_str(), &st) != 0 || ::listen(fd, SOMAXCONN) != 0) {
    if (error) *error = xpcErrnoError(errno, "listen on " + *path);
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

bool XPCListener::run(const RequestHandler& handler, ErrorRef* error, const XPCListenerLimits& limits) {
  const bool ok = serveXPCPeers(fd_, wakeFd_, handler, limits, error);
  // Consume the stop, so that the listener could run again.
  std::uint64_t count = 0;
  [[maybe_unused]] const ssize_t got = ::read(wakeFd_, &count, sizeof count);
  return ok;
}

}  // namespace platform
