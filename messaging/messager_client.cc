#include "messaging/messager_client.h"

#include "authorization/authorization_manager.h"
#include "errors/lks_error.h"
#include "platform/plist/keyed_archive.h"
#include "platform/plist/property_list.h"

namespace {

constexpr const char* kMessageKey = "message";
constexpr const char* kPayloadKey = "payload";
constexpr const char* kAuthKey = "auth";
constexpr const char* kErrorKey = "error";

// Makes the error (and so logs it) only for a caller who asked for it.
void fail(platform::ErrorRef* error, std::int64_t code, std::int64_t message, platform::Dictionary userInfo = {},
          const platform::ErrorRef& cause = nullptr) {
  if (!error) return;
  userInfo.set(LKSErrorMessageKey, platform::Value::integer(message));
  if (cause) userInfo.set(platform::NSUnderlyingErrorKey, platform::Value::error(cause));
  *error = LKSError::errorWithDomain(LKSMessagerErrorDomain, code, std::move(userInfo));
}

}  // namespace

std::shared_ptr<LKSMessagerClient> LKSMessagerClient::initWithServiceName(
    std::string serviceName, std::weak_ptr<LKSMessagerClientDelegate> delegate) {
  return std::shared_ptr<LKSMessagerClient>(new LKSMessagerClient(std::move(serviceName), std::move(delegate)));
}

LKSMessagerClient::LKSMessagerClient(std::string serviceName, std::weak_ptr<LKSMessagerClientDelegate> delegate)
    : _XPCClient(LKSXPCClient::initWithServiceName(std::move(serviceName))), _delegate(std::move(delegate)) {}

bool LKSMessagerClient::sendMessage(std::int64_t message, const platform::Value& payload, platform::ErrorRef* error) {
  std::optional<platform::Dictionary> request = XPCMessageForMessage(message, payload, error);
  if (!request) return false;
  _XPCClient->sendXPCMessage(*request);
  return true;
}

void LKSMessagerClient::sendMessage(std::int64_t message, const platform::Value& payload, platform::QueueRef queue,
                                    ReplyHandler handler) {
  platform::ErrorRef error;
  std::optional<platform::Dictionary> request = XPCMessageForMessage(message, payload, &error);
  if (!request) {
    handler(platform::Value(), error);
    return;
  }
  _XPCClient->sendXPCMessage(*request, std::move(queue),
                             [self = shared_from_this(), message, handler = std::move(handler)](
                                 const platform::XPCObject& XPCReply) {
                               platform::ErrorRef failure;
                               const platform::Value reply = self->replyForMessage(message, XPCReply, &failure);
                               handler(reply, reply ? nullptr : failure);
                             });
}

platform::Value LKSMessagerClient::sendSynchronousMessage(std::int64_t message, const platform::Value& payload,
                                                          platform::ErrorRef* error) {
  std::optional<platform::Dictionary> request = XPCMessageForMessage(message, payload, error);
  if (!request) return {};
  return replyForMessage(message, _XPCClient->sendSynchronousXPCMessage(*request), error);
}

std::optional<platform::Dictionary> LKSMessagerClient::XPCMessageForMessage(std::int64_t message,
                                                                            const platform::Value& payload,
                                                                            platform::ErrorRef* error) {
  platform::Dictionary request{{kMessageKey, platform::Value::integer(message)}};
  if (payload) {
    platform::ErrorRef cause;
    std::optional<platform::Bytes> data =
        platform::dataWithPropertyList(payload, platform::PropertyListFormat::Binary, error ? &cause : nullptr);
    if (!data) {
      fail(error, LKSMessagerErrorSerializeMessage, message,
           {{LKSErrorPayloadKey, platform::Value::string(payload.description())}}, cause);
      return std::nullopt;
    }
    request.set(kPayloadKey, platform::Value::data(std::move(*data)));
  }
  const std::shared_ptr<LKSMessagerClientDelegate> delegate = _delegate.lock();
  const platform::Array rights = delegate ? delegate->messagerAuthorizationRightsForMessage(*this, message)
                                          : platform::Array();
  if (!rights.empty()) {
    platform::ErrorRef cause;
    std::optional<platform::Bytes> auth = LKSAuthorizationManager::sharedManager().authorizationExternalDataWithRights(
        rights, error ? &cause : nullptr);
    if (!auth) {
      fail(error, LKSMessagerErrorAuthorize, message, {}, cause);
      return std::nullopt;
    }
    request.set(kAuthKey, platform::Value::data(std::move(*auth)));
  }
  return request;
}

platform::Value LKSMessagerClient::replyForMessage(std::int64_t message, const platform::XPCObject& XPCReply,
                                                   platform::ErrorRef* error) {
  if (XPCReply.isError()) {
    const bool interrupted = XPCReply.type() == platform::XPCObject::Type::ConnectionInterrupted;
    fail(error, interrupted ? LKSMessagerErrorServiceDisappeared : LKSMessagerErrorServiceUnavailable, message,
         {{LKSErrorServiceKey, platform::Value::string(serviceName())}});
    return {};
  }
  if (platform::ErrorRef carried = errorForMessage(message, XPCReply.asDictionary())) {
    if (error) *error = std::move(carried);
    return {};
  }
  return payloadForMessage(message, XPCReply.asDictionary(), error);
}

platform::Value LKSMessagerClient::payloadForMessage(std::int64_t message, const platform::Dictionary& XPCMessage,
                                                     platform::ErrorRef* error) {
  const platform::Bytes* data = XPCMessage.get(kPayloadKey).asData();
  if (!data) return platform::Value::dictionary({});
  platform::ErrorRef cause;
  platform::Value reply = platform::propertyListWithData(*data, nullptr, error ? &cause : nullptr);
  if (!reply) fail(error, LKSMessagerErrorDeserializeReply, message, {}, cause);
  return reply;
}

platform::ErrorRef LKSMessagerClient::errorForMessage(std::int64_t message, const platform::Dictionary& XPCMessage) {
  const platform::Bytes* data = XPCMessage.get(kErrorKey).asData();
  if (!data) return nullptr;
  platform::ErrorRef cause;
  if (platform::ErrorRef carried = platform::unarchivedErrorFromData(*data, &cause)) return carried;
  platform::ErrorRef undecodable;
  fail(&undecodable, LKSMessagerErrorUnarchiveReplyError, message, {}, cause);
  return undecodable;
}
