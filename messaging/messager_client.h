// LKSMessagerClient: numbered messages with property-list payloads over one
// XPC connection. A request is the XPC dictionary {"message": number,
// "payload": binary property list (whenever a payload is given), "auth": the
// 32-byte authorization external form (when the delegate names rights)}. A
// reply's "error" (a keyed archive of one error object) decides the outcome;
// otherwise its "payload" (any property-list format) is the reply value, and a
// reply with neither is an empty dictionary.
//
// Every failure is an error of LKSMessagerErrorDomain, made (and logged) by
// LKSError; errors that arrive in replies are passed on unchanged.
#pragma once

#include <cstdint>
#include <functional>
#include <memory>
#include <optional>
#include <string>

#include "messaging/xpc_client.h"
#include "platform/plist/value.h"

class LKSMessagerClient;

// Says which authorization rights each message needs.
class LKSMessagerClientDelegate {
 public:
  virtual ~LKSMessagerClientDelegate() = default;
  // The right names for `message`, alternatives in order; empty when the
  // message goes out without authorization data.
  virtual platform::Array messagerAuthorizationRightsForMessage(LKSMessagerClient& messager,
                                                                std::int64_t message) = 0;
};

class LKSMessagerClient : public std::enable_shared_from_this<LKSMessagerClient> {
 public:
  // Called once with the reply value, or with none and the error.
  using ReplyHandler = std::function<void(const platform::Value& reply, const platform::ErrorRef& error)>;

  // A client of the service `serviceName` whose delegate is held weakly: when
  // it is gone, no message needs rights. Opens nothing yet.
  static std::shared_ptr<LKSMessagerClient> initWithServiceName(std::string serviceName,
                                                                std::weak_ptr<LKSMessagerClientDelegate> delegate);

  const std::string& serviceName() const { return _XPCClient->serviceName(); }

  // Sends without waiting for a reply. False with the error when the request
  // could not be built; true says nothing of delivery.
  bool sendMessage(std::int64_t message, const platform::Value& payload, platform::ErrorRef* error);

  // Sends; `handler` runs once on `queue` with the decoded reply. When the
  // request cannot be built, it runs at once, on the calling thread. The
  // pending request keeps the client alive.
  void sendMessage(std::int64_t message, const platform::Value& payload, platform::QueueRef queue,
                   ReplyHandler handler);

  // Sends and blocks until the reply; none with the error on failure.
  platform::Value sendSynchronousMessage(std::int64_t message, const platform::Value& payload,
                                         platform::ErrorRef* error);

  // Cancels the connection; the next send opens a new one.
  void cancel() { _XPCClient->cancel(); }

  // The request for `message`; nullopt with LKSMessagerErrorSerializeMessage
  // when the payload is not a property list, LKSMessagerErrorAuthorize when the
  // delegate's rights could not be authorized.
  std::optional<platform::Dictionary> XPCMessageForMessage(std::int64_t message, const platform::Value& payload,
                                                           platform::ErrorRef* error);

  // The reply value of `XPCReply`; none with LKSMessagerErrorServiceUnavailable,
  // LKSMessagerErrorServiceDisappeared, LKSMessagerErrorDeserializeReply or
  // LKSMessagerErrorUnarchiveReplyError, or with the error the reply carries.
  platform::Value replyForMessage(std::int64_t message, const platform::XPCObject& XPCReply,
                                  platform::ErrorRef* error);

  // The reply's "payload" parsed, or an empty dictionary when there is none;
  // none with LKSMessagerErrorDeserializeReply when it does not parse.
  platform::Value payloadForMessage(std::int64_t message, const platform::Dictionary& XPCMessage,
                                    platform::ErrorRef* error);

  // The error the reply's "error" carries; LKSMessagerErrorUnarchiveReplyError
  // when it does not decode; null when there is no "error".
  platform::ErrorRef errorForMessage(std::int64_t message, const platform::Dictionary& XPCMessage);

 private:
  LKSMessagerClient(std::string serviceName, std::weak_ptr<LKSMessagerClientDelegate> delegate);

  std::shared_ptr<LKSXPCClient> _XPCClient;
  std::weak_ptr<LKSMessagerClientDelegate> _delegate;
};
