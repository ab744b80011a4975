// LKSXPCClient: the one XPC connection to a named privileged service. It opens
// the connection on first use, drops it when it becomes invalid (the next send
// opens a new one), keeps it when it is only interrupted, and logs both.
#pragma once

#include <memory>
#include <string>

#include "platform/dispatch/serial_queue.h"
#include "platform/xpc/connection.h"

class LKSXPCClient : public std::enable_shared_from_this<LKSXPCClient> {
 public:
  using ReplyHandler = platform::XPCConnection::Handler;

  // A client of the service `serviceName`; opens nothing yet.
  static std::shared_ptr<LKSXPCClient> initWithServiceName(std::string serviceName);

  const std::string& serviceName() const { return _serviceName; }

  // Sends without a reply.
  void sendXPCMessage(const platform::Dictionary& message);
  // Sends; `replyHandler` runs once on `queue` with the reply or an XPC error.
  void sendXPCMessage(const platform::Dictionary& message, platform::QueueRef queue, ReplyHandler replyHandler);
  // Sends and blocks until the reply dictionary or an XPC error object, never nothing.
  platform::XPCObject sendSynchronousXPCMessage(const platform::Dictionary& message);

  // Cancels and drops the connection, if there is one; the next send opens a new one.
  void cancel();

  // The connection, opened first when there is none.
  platform::XPCConnectionRef connection();

 private:
  explicit LKSXPCClient(std::string serviceName);

  // The creation step of connection(); runs only on _internalLock.
  platform::XPCConnectionRef _connectionCreatingIfNeeded();
  // Reacts to an error event of `failed`, on the queue of connection events.
  void _handleConnectionError(const platform::XPCObject& error, const std::weak_ptr<platform::XPCConnection>& failed);

  platform::QueueRef _internalLock;        // guards _connection
  platform::XPCConnectionRef _connection;  // null until the first send, after invalidation or cancel
  const std::string _serviceName;
};
