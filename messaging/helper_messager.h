// QHVHelperMessager: the scheduler service's messager. It owns the message
// client bound to "com.larkspan.quillhaven.scheduler", gives it the rights of
// each message from the catalogue, and forwards sends.
#pragma once

#include <memory>

#include "messaging/helper_messages.h"
#include "messaging/message_catalogue.h"
#include "messaging/messager_client.h"

// The mach service of the scheduler.
inline constexpr const char* QHVHelperServiceName = "com.larkspan.quillhaven.scheduler";

class QHVHelperMessager : public LKSMessagerClientDelegate,
                          public std::enable_shared_from_this<QHVHelperMessager> {
 public:
  // The process-wide messager, made once, thread-safely, on the first call.
  static QHVHelperMessager& sharedMessager();

  // A messager with its own client; opens no connection. Held by shared
  // ownership, since its client refers back to it weakly.
  static std::shared_ptr<QHVHelperMessager> init();

  // The rights of `message` in the catalogue (QHVAuthorizationRightsForMessage).
  platform::Array messagerAuthorizationRightsForMessage(LKSMessagerClient& messager,
                                                        std::int64_t message) override;

  // True when `message` needs at least one right.
  bool requiresAuthorizationForMessage(QHVHelperMessage message);

  // The sends of the message client, unchanged.
  bool sendMessage(QHVHelperMessage message, const platform::Value& payload, platform::ErrorRef* error) {
    return _client->sendMessage(message, payload, error);
  }
  void sendMessage(QHVHelperMessage message, const platform::Value& payload, platform::QueueRef queue,
                   LKSMessagerClient::ReplyHandler handler) {
    _client->sendMessage(message, payload, std::move(queue), std::move(handler));
  }
  platform::Value sendSynchronousMessage(QHVHelperMessage message, const platform::Value& payload,
                                         platform::ErrorRef* error) {
    return _client->sendSynchronousMessage(message, payload, error);
  }
  void cancel() { _client->cancel(); }

 private:
  QHVHelperMessager() = default;

  std::shared_ptr<LKSMessagerClient> _client;
};
