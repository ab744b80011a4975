// The event loop behind XPCListener::run (platform/xpc/listener.h).
#pragma once

#include "platform/plist/value.h"
#include "platform/xpc/listener.h"

namespace platform {

// Accepts peers on the non-blocking listening socket `listenFd` and serves
// them with `handler` within `limits` until `stopFd` becomes readable; then
// closes every peer and waits for the handlers that run. False with an error
// only when the loop itself cannot work.
bool serveXPCPeers(int listenFd, int stopFd, const XPCListener::RequestHandler& handler,
                   const XPCListenerLimits& limits, ErrorRef* error);

}  // namespace platform
