#include "platform/xpc/peer.h"

#include <cerrno>

namespace platform {

std::span<const std::uint8_t> XPCPeer::unsentLocked() const {
  return std::span<const std::uint8_t>(unsent_).subspan(unsentOffset_);
}

bool XPCPeer::reply(std::uint64_t requestId, const Dictionary& reply, ErrorRef* error) {
  std::optional<Bytes> body = encodeXPCFrameBody(reply, error);
  if (!body) return false;
  return sendBytes(encodeXPCFrame({static_cast<std::uint32_t>(body->size()), 0, requestId}, *body), error);
}

bool XPCPeer::sendBytes(std::span<const std::uint8_t> bytes, ErrorRef* error) {
  {
    std::lock_guard lock(mutex_);
    if (closing_) {
      if (error) *error = makeXPCTransportError(ESHUTDOWN, "send: the connection was closed");
      return false;
    }
    if (!unsentLocked().empty()) {
      // Behind what waits already; the event loop knows of it.
      unsent_.insert(unsent_.end(), bytes.begin(), bytes.end());
      return true;
    }
    const std::optional<std::size_t> sent = socket_->sendAvailable(bytes, error);
    if (!sent) return false;
    if (*sent == bytes.size()) return true;
    unsent_.assign(bytes.begin() + static_cast<std::ptrdiff_t>(*sent), bytes.end());
    unsentOffset_ = 0;
  }
  if (outputWaiting_) outputWaiting_();
  return true;
}

void XPCPeer::close() {
  std::lock_guard lock(mutex_);
  closing_ = true;
  if (unsentLocked().empty()) socket_->shutdown();
}

XPCPeer::Output XPCPeer::flush() {
  std::lock_guard lock(mutex_);
  const std::span<const std::uint8_t> waiting = unsentLocked();
  if (!waiting.empty()) {
    const std::optional<std::size_t> sent = socket_->sendAvailable(waiting, nullptr);
    if (!sent) return Output::Failed;
    unsentOffset_ += *sent;
    if (*sent < waiting.size()) return Output::Waiting;
    unsent_ = {};
    unsentOffset_ = 0;
  }
  if (closing_) socket_->shutdown();
  return Output::Written;
}

bool XPCPeer::closed() {
  std::lock_guard lock(mutex_);
  return closing_ && unsentLocked().empty();
}

}  // namespace platform
