#include "messaging/xpc_client.h"

#include "log/log.h"
#include "support/queue.h"

std::shared_ptr<LKSXPCClient> LKSXPCClient::initWithServiceName(std::string serviceName) {
  return std::shared_ptr<LKSXPCClient>(new LKSXPCClient(std::move(serviceName)));
}

LKSXPCClient::LKSXPCClient(std::string serviceName)
    : _internalLock(LKSQueueContextCreate(serviceName.c_str())), _serviceName(std::move(serviceName)) {}

void LKSXPCClient::sendXPCMessage(const platform::Dictionary& message) { connection()->sendMessage(message); }

void LKSXPCClient::sendXPCMessage(const platform::Dictionary& message, platform::QueueRef queue,
                                  ReplyHandler replyHandler) {
  connection()->sendMessageWithReply(message, std::move(queue), std::move(replyHandler));
}

platform::XPCObject LKSXPCClient::sendSynchronousXPCMessage(const platform::Dictionary& message) {
  return connection()->sendMessageWithReplySync(message);
}

void LKSXPCClient::cancel() {
  _internalLock->sync([this] {
    if (!_connection) return;
    _connection->cancel();
    _connection = nullptr;
  });
}

platform::XPCConnectionRef LKSXPCClient::connection() {
  platform::XPCConnectionRef connection;
  _internalLock->sync([&] { connection = _connectionCreatingIfNeeded(); });
  return connection;
}

platform::XPCConnectionRef LKSXPCClient::_connectionCreatingIfNeeded() {
  if (_connection) return _connection;
  // Events go to the process-wide serial queue, one at a time, never to the
  // thread that waits in a synchronous send.
  _connection = platform::XPCConnection::createMachService(_serviceName, LKSQueueMain(),
                                                           platform::XPC_CONNECTION_MACH_SERVICE_PRIVILEGED);
  // The handler keeps the client alive as long as the connection delivers
  // events. It knows its connection weakly: an address could be reused by a
  // connection made after this one is gone, a weak reference cannot.
  const std::weak_ptr<platform::XPCConnection> created = _connection;
  _connection->setEventHandler([self = shared_from_this(), created](const platform::XPCObject& event) {
    if (event.isError()) self->_handleConnectionError(event, created);
  });
  _connection->resume();
  return _connection;
}

void LKSXPCClient::_handleConnectionError(const platform::XPCObject& error,
                                          const std::weak_ptr<platform::XPCConnection>& failed) {
  switch (error.type()) {
    case platform::XPCObject::Type::ConnectionInvalid:
      LKSLog(LKSLogLevelError, "Connection became invalid with server.");
      // Dropped, not cancelled: it is dead already. A connection opened since
      // (after a cancel) is not the one that failed and stays.
      _internalLock->sync([&] {
        if (_connection == failed.lock()) _connection = nullptr;
      });
      break;
    case platform::XPCObject::Type::ConnectionInterrupted:
      LKSLog(LKSLogLevelDebug, "Connection interrupted with server.");
      break;
    case platform::XPCObject::Type::Dictionary:
      break;
  }
}
