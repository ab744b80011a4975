#include "platform/xpc/connection.h"

#include <condition_variable>
#include <map>
#include <mutex>
#include <optional>
#include <thread>
#include <utility>
#include <vector>

#include "platform/xpc/socket.h"

namespace platform {

// Everything a connection shares with whoever reads its socket. A reading
// thread holds it too, so a connection released while a reply is pending
// still delivers that reply.
struct XPCConnection::State : std::enable_shared_from_this<State> {
  // A request waiting for its reply: delivered on `queue`, or, for a
  // synchronous send, straight from the thread that read it when `queue` is null.
  struct Pending {
    QueueRef queue;
    Handler handler;
  };

  State(std::string serviceName, QueueRef queue) : name(std::move(serviceName)), targetQueue(std::move(queue)) {}

  const std::string name;
  const QueueRef targetQueue;

  // Who reads the live socket: nobody between requests, a synchronous sender
  // on its own thread while it waits, or a thread of the connection's own
  // once replies are due on queues.
  enum class Reader : std::uint8_t { None, Caller, Thread };

  std::mutex mutex;  // guards everything below
  Handler eventHandler;
  bool resumed = false;
  bool invalid = false;
  std::shared_ptr<XPCSocket> socket;  // null until the next send connects
  Reader reader = Reader::None;
  std::uint64_t nextMessageId = 1;
  std::map<std::uint64_t, Pending> pending;

  static void deliver(const Pending& request, const XPCObject& reply) {
    if (!request.queue) {
      request.handler(reply);
      return;
    }
    request.queue->async([handler = request.handler, reply] { handler(reply); });
  }

  // Under `mutex`: every pending request, taken out of the table.
  std::vector<Pending> takePendingLocked() {
    std::vector<Pending> taken;
    for (auto& entry : pending) taken.push_back(std::move(entry.second));
    pending.clear();
    return taken;
  }

  // Under `mutex`: `event` for the event handler, on the target queue. The
  // requests it fails learn of it only after the handler ran, so the
  // connection's own account of a failure always comes first. An invalid
  // connection delivers nothing after its last event, so the handler (and
  // whatever it holds) is released with it.
  void postEventLocked(const XPCObject& event, std::vector<Pending> failed = {}) {
    Handler handler = eventHandler;
    if (event.type() == XPCObject::Type::ConnectionInvalid) eventHandler = nullptr;
    auto notify = [handler, event, failed = std::move(failed)] {
      if (handler) handler(event);
      for (const Pending& request : failed) deliver(request, event);
    };
    if (targetQueue) {
      targetQueue->async(std::move(notify));
    } else {
      notify();
    }
  }

  // Under `mutex`: the live socket (if any) closed with `type`; the event
  // handler and every pending request learn it, and an invalid connection stays so.
  void endLocked(XPCObject::Type type) {
    const std::shared_ptr<XPCSocket> ended = std::move(socket);
    reader = Reader::None;
    if (type == XPCObject::Type::ConnectionInvalid) invalid = true;
    postEventLocked(XPCObject::error(type), takePendingLocked());
    if (ended) ended->shutdown();
  }

  // Ends `ended` with `type` if it is still the live socket.
  void end(const std::shared_ptr<XPCSocket>& ended, XPCObject::Type type) {
    std::lock_guard lock(mutex);
    if (ended && socket == ended) endLocked(type);
  }

  static XPCObject::Type endingOf(XPCSocket::Received received) {
    return received == XPCSocket::Received::EndOfStream ? XPCObject::Type::ConnectionInterrupted
                                                        : XPCObject::Type::ConnectionInvalid;
  }

  // Under `mutex`: a frame read from the live socket, delivered.
  void takeFrameLocked(XPCFrame frame) {
    if (frame.replyTo == 0) {
      // A message the service sent on its own.
      postEventLocked(XPCObject::dictionary(std::move(frame.message)));
      return;
    }
    auto it = pending.find(frame.replyTo);
    if (it == pending.end()) return;  // answers nothing we wait for
    const Pending request = std::move(it->second);
    pending.erase(it);
    deliver(request, XPCObject::dictionary(std::move(frame.message)));
  }

  // Under `mutex`, while nobody reads: what the service sent since the last
  // read, so that a stream it closed meanwhile ends here and the send that
  // asks connects again.
  void takeUpWhatCameLocked() {
    while (socket) {
      XPCRawFrame raw;
      const XPCSocket::Received received = socket->receiveAvailable(&raw, nullptr);
      if (received == XPCSocket::Received::Incomplete) return;
      std::optional<XPCFrame> frame;
      if (received == XPCSocket::Received::Frame) frame = decodeXPCFrame(raw, nullptr);
      if (!frame) {
        endLocked(endingOf(received));
        return;
      }
      takeFrameLocked(std::move(*frame));
    }
  }

  // Under `mutex`: the socket, connecting first when there is none. Null when
  // the connection was never resumed or is invalid; a failed connect makes it
  // invalid and fails what is pending.
  std::shared_ptr<XPCSocket> connectedLocked() {
    if (invalid || !resumed) return nullptr;
    if (socket) return socket;
    std::unique_ptr<XPCSocket> made = XPCSocket::connectToService(name, nullptr);
    if (!made) {
      endLocked(XPCObject::Type::ConnectionInvalid);
      return nullptr;
    }
    socket = std::move(made);
    return socket;
  }

  void startReadingThreadLocked() {
    reader = Reader::Thread;
    std::thread(&State::readLoop, shared_from_this(), socket).detach();
  }

  // Reads one frame from `reading` and delivers it; false once the stream ended.
  bool readOne(const std::shared_ptr<XPCSocket>& reading) {
    XPCFrame frame;
    const XPCSocket::Received received = reading->receiveFrame(&frame, nullptr);
    if (received != XPCSocket::Received::Frame) {
      end(reading, endingOf(received));
      return false;
    }
    std::lock_guard lock(mutex);
    takeFrameLocked(std::move(frame));
    return true;
  }

  void readLoop(const std::shared_ptr<XPCSocket>& reading) {
    while (readOne(reading)) {
    }
  }

  // Reads on the calling thread until `answered()`, unless somebody else
  // reads already: a synchronous send needs no thread of its own. Requests
  // still pending then are left to a reading thread.
  void readUntil(const std::function<bool()>& answered) {
    std::shared_ptr<XPCSocket> reading;
    {
      std::lock_guard lock(mutex);
      if (!socket || reader != Reader::None) return;
      reader = Reader::Caller;
      reading = socket;
    }
    while (!answered() && readOne(reading)) {
    }
    std::lock_guard lock(mutex);
    // An ended socket's reader was let go with it.
    if (socket != reading || reader != Reader::Caller) return;
    reader = Reader::None;
    if (!pending.empty()) startReadingThreadLocked();
  }

  // Sends `message`; with `request`, registers it for the reply first, so
  // that a failing connect fails it like any other pending request.
  void send(const Dictionary& message, std::optional<Pending> request) {
    // A dictionary that cannot travel fails this request alone and never
    // reaches the connection; a one-way message of one is dropped.
    std::optional<Bytes> body = encodeXPCFrameBody(message, nullptr);
    if (!body) {
      if (request) deliver(*request, XPC_ERROR_CONNECTION_INVALID);
      return;
    }
    std::shared_ptr<XPCSocket> sending;
    std::uint64_t messageId = 0;
    {
      std::lock_guard lock(mutex);
      if (reader == Reader::None) takeUpWhatCameLocked();
      if (request && resumed && !invalid) {
        messageId = nextMessageId++;
        pending.emplace(messageId, *request);
      }
      sending = connectedLocked();
      // A reply due on a queue needs a reader that waits for nothing else.
      if (sending && messageId != 0 && request->queue && reader == Reader::None) startReadingThreadLocked();
    }
    if (messageId == 0 && request) {
      deliver(*request, XPC_ERROR_CONNECTION_INVALID);
      return;
    }
    if (!sending) return;
    const XPCFrameHeader header{static_cast<std::uint32_t>(body->size()), messageId, 0};
    if (!sending->sendFrame(header, *body, nullptr)) end(sending, XPCObject::Type::ConnectionInterrupted);
  }
};

std::shared_ptr<XPCConnection> XPCConnection::createMachService(std::string name, QueueRef targetQueue,
                                                                std::uint64_t) {
  // Every service of this system is a privileged one; the flag is accepted as given.
  return std::shared_ptr<XPCConnection>(
      new XPCConnection(std::make_shared<State>(std::move(name), std::move(targetQueue))));
}

XPCConnection::~XPCConnection() { cancel(); }

void XPCConnection::setEventHandler(Handler handler) {
  std::lock_guard lock(state_->mutex);
  if (!state_->invalid) state_->eventHandler = std::move(handler);
}

void XPCConnection::resume() {
  std::lock_guard lock(state_->mutex);
  state_->resumed = true;
}

void XPCConnection::cancel() {
  std::lock_guard lock(state_->mutex);
  if (!state_->invalid) state_->endLocked(XPCObject::Type::ConnectionInvalid);
}

void XPCConnection::sendMessage(const Dictionary& message) { state_->send(message, std::nullopt); }

void XPCConnection::sendMessageWithReply(const Dictionary& message, QueueRef queue, Handler handler) {
  state_->send(message, State::Pending{std::move(queue), std::move(handler)});
}

XPCObject XPCConnection::sendMessageWithReplySync(const Dictionary& message) {
  struct Waiter {
    std::mutex mutex;
    std::condition_variable arrived;
    std::optional<XPCObject> reply;
  };
  auto waiter = std::make_shared<Waiter>();
  state_->send(message, State::Pending{nullptr, [waiter](const XPCObject& reply) {
                                         std::lock_guard lock(waiter->mutex);
                                         waiter->reply = reply;
                                         waiter->arrived.notify_all();
                                       }});
  state_->readUntil([&] {
    std::lock_guard lock(waiter->mutex);
    return waiter->reply.has_value();
  });
  std::unique_lock lock(waiter->mutex);
  waiter->arrived.wait(lock, [&] { return waiter->reply.has_value(); });
  return *waiter->reply;
}

}  // namespace platform
