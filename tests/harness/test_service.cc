#include "harness/test_service.h"

#include <gtest/gtest.h>

#include <mutex>
#include <set>

#include "platform/xpc/socket.h"

namespace testing_support {

PrivateServiceDirectory::PrivateServiceDirectory() { platform::setXPCSocketDirectoryForTesting(directory_.path()); }

PrivateServiceDirectory::~PrivateServiceDirectory() { platform::setXPCSocketDirectoryForTesting(""); }

TestService::TestService(const std::string& name, Handler handler) {
  platform::ErrorRef error;
  listener_ = platform::XPCListener::listen(name, &error);
  if (!listener_) {
    ADD_FAILURE() << "cannot listen as " << name << ": " << (error ? error->localizedDescription() : "");
    return;
  }
  // Counts a client at its first request (every client here sends at once).
  // Peers are known by weak references, which no later peer can share, and
  // which leave the listener free to close the peers it drops.
  auto seen = std::make_shared<std::set<std::weak_ptr<platform::XPCPeer>, std::owner_less<>>>();
  auto mutex = std::make_shared<std::mutex>();
  Handler counting = [this, seen, mutex, handler](const std::shared_ptr<platform::XPCPeer>& peer,
                                                  platform::XPCFrame request) {
    {
      std::lock_guard lock(*mutex);
      if (seen->insert(peer).second) ++connections_;
    }
    handler(peer, std::move(request));
  };
  thread_ = std::thread([this, counting] { listener_->run(counting, nullptr); });
}

TestService::~TestService() {
  if (!listener_) return;
  listener_->stop();
  thread_.join();
}

TestService::Handler TestService::echo() {
  return [](const std::shared_ptr<platform::XPCPeer>& peer, platform::XPCFrame request) {
    if (request.messageId == 0) return;
    peer->reply(request.messageId, {{"echo", request.message.get("message")}}, nullptr);
  };
}

}  // namespace testing_support
