// The scheduler's answers to the numbered messages, one handler per message
// (or one table row for a message that reads or sets a single setting), over
// the state in the state directory.
#pragma once

#include "messaging/helper_messages.h"
#include "platform/plist/value.h"
#include "scheduler/state_store.h"
#include "scheduler/value_rules.h"

namespace dev_scheduler {

// What a handler works with.
struct RequestContext {
  const StateStore& state;
  platform::Date now;
  platform::Date since;  // when the scheduler began to serve
  double backupSeconds;  // how long a kickstarted backup runs
};

// A handler's answer: the reply value (absent for a reply without "payload"),
// or the error that refuses the request.
struct HandlerResult {
  platform::Value reply;
  platform::ErrorRef error;

  static HandlerResult success(platform::Value reply = {}) { return {std::move(reply), nullptr}; }
  static HandlerResult failure(platform::ErrorRef error) { return {{}, std::move(error)}; }
  // A reply of `reply`, or the failure `error` when there is none.
  static HandlerResult fromOptional(std::optional<platform::Dictionary> reply, platform::ErrorRef error) {
    return reply ? success(platform::Value::dictionary(std::move(*reply))) : failure(std::move(error));
  }
};

using RequestHandler = HandlerResult (*)(const RequestContext& context, const platform::Value& payload);

// Answers `message` with `payload` (absent when the request carried none).
// A number outside the catalogue is refused with LKSMessagerErrorDeserializeMessage.
HandlerResult handleRequest(QHVHelperMessage message, const RequestContext& context, const platform::Value& payload);

// Reads `settingsKey`: the reply {`replyKey`: its value}, without the entry
// when the settings lack it.
HandlerResult readSetting(const RequestContext& context, const char* settingsKey, const char* replyKey);

// Sets `settingsKey` from a payload holding `payloadKey` alone, with a value
// that fits `rule`; refused with the payload's fault otherwise.
HandlerResult writeSetting(const RequestContext& context, const platform::Value& payload, const char* payloadKey,
                           const char* settingsKey, const ValueRule& rule);

// Settings and the master switch (settings_requests.cc).
HandlerResult handleGetSettings(const RequestContext& context, const platform::Value& payload);
HandlerResult handleSetSettings(const RequestContext& context, const platform::Value& payload);
HandlerResult handleEnable(const RequestContext& context, const platform::Value& payload);
HandlerResult handleDisable(const RequestContext& context, const platform::Value& payload);
HandlerResult handleResetSettings(const RequestContext& context, const platform::Value& payload);

// Backups (backups_requests.cc).
HandlerResult handleGetBackupsInterval(const RequestContext& context, const platform::Value& payload);
HandlerResult handleGetBackupsWhenInactive(const RequestContext& context, const platform::Value& payload);
HandlerResult handleSetBackupsInterval(const RequestContext& context, const platform::Value& payload);
HandlerResult handleSetBackupsWhenInactive(const RequestContext& context, const platform::Value& payload);
HandlerResult handleKickstartBackup(const RequestContext& context, const platform::Value& payload);

// Updates (updates_requests.cc).
HandlerResult handleCheckForUpdates(const RequestContext& context, const platform::Value& payload);
HandlerResult handleInstallUpdate(const RequestContext& context, const platform::Value& payload);

// The service itself (service_requests.cc).
HandlerResult handleHello(const RequestContext& context, const platform::Value& payload);
HandlerResult handleGetInfo(const RequestContext& context, const platform::Value& payload);
HandlerResult handleUninstall(const RequestContext& context, const platform::Value& payload);

}  // namespace dev_scheduler
