// platform/xpc stands in for XPC: dictionaries of property-list values carried
// in frames over Unix-domain stream sockets, between connections to named mach
// services and the listener that serves them. Left out: XPC types beyond
// property-list values (descriptors, shared memory, endpoints), anonymous
// connections, and lookup flags: every service is a privileged one.
//
// XPC connections to privileged mach services, over the stream sockets and
// frames of platform/xpc/socket.h.
//
// A connection connects lazily, on the first send after resume(). A failed
// connect, a broken frame from the service or cancel() make it invalid for
// good: pending replies, later sends and the event handler get
// XPC_ERROR_CONNECTION_INVALID. The service closing the stream gives pending
// replies and the event handler XPC_ERROR_CONNECTION_INTERRUPTED, and the next
// send connects again. The event handler learns of a failure before the
// requests it fails do. Replies are matched to requests by message id; a reply
// that matches nothing is dropped.
//
// A synchronous send reads the socket on the caller's thread; a thread of the
// connection's own reads only while replies are due on queues. Between
// requests nobody reads: what the service sent meanwhile (messages of its own,
// the closing of the stream) reaches the event handler at the next send.
#pragma once

#include <cstdint>
#include <functional>
#include <memory>
#include <string>

#include "platform/dispatch/serial_queue.h"
#include "platform/plist/value.h"

namespace platform {

// Looks the service up among the privileged (system-wide) services.
inline constexpr std::uint64_t XPC_CONNECTION_MACH_SERVICE_PRIVILEGED = 2;

// What a reply handler or an event handler receives: a dictionary, or one of
// the connection's error objects.
class XPCObject {
 public:
  enum class Type : std::uint8_t { Dictionary, ConnectionInvalid, ConnectionInterrupted };

  static XPCObject dictionary(Dictionary d) { return XPCObject(Type::Dictionary, std::move(d)); }
  static XPCObject error(Type type) { return XPCObject(type, {}); }

  Type type() const { return type_; }
  // XPC_TYPE_ERROR: the connection's report instead of a message.
  bool isError() const { return type_ != Type::Dictionary; }
  // The dictionary; empty for an error.
  const Dictionary& asDictionary() const { return dictionary_; }

 private:
  XPCObject(Type type, Dictionary d) : type_(type), dictionary_(std::move(d)) {}
  Type type_;
  Dictionary dictionary_;
};

inline const XPCObject XPC_ERROR_CONNECTION_INVALID = XPCObject::error(XPCObject::Type::ConnectionInvalid);
inline const XPCObject XPC_ERROR_CONNECTION_INTERRUPTED =
    XPCObject::error(XPCObject::Type::ConnectionInterrupted);

class XPCConnection {
 public:
  using Handler = std::function<void(const XPCObject&)>;

  // A connection to the service `name`, delivering its events on
  // `targetQueue`. Nothing is opened yet.
  static std::shared_ptr<XPCConnection> createMachService(std::string name, QueueRef targetQueue,
                                                          std::uint64_t flags);
  ~XPCConnection();  // cancels
  XPCConnection(const XPCConnection&) = delete;
  XPCConnection& operator=(const XPCConnection&) = delete;

  // Sets the handler of the connection's events (errors, and messages the
  // service sends unasked); call before resume().
  void setEventHandler(Handler handler);
  // Lets the connection send; sends before it fail with XPC_ERROR_CONNECTION_INVALID.
  void resume();
  // Makes the connection invalid for good and closes it.
  void cancel();

  // Sends without expecting a reply; a failure of the connection reaches the
  // event handler only, and a message that is not a property list is dropped.
  void sendMessage(const Dictionary& message);
  // Sends and calls `handler` once, on `queue`, with the reply or an error object.
  void sendMessageWithReply(const Dictionary& message, QueueRef queue, Handler handler);
  // Sends and blocks until the reply or an error object; never returns nothing.
  // Must not be called on the connection's target queue.
  XPCObject sendMessageWithReplySync(const Dictionary& message);

 private:
  struct State;
  explicit XPCConnection(std::shared_ptr<State> state) : state_(std::move(state)) {}
  std::shared_ptr<State> state_;
};

using XPCConnectionRef = std::shared_ptr<XPCConnection>;

}  // namespace platform
