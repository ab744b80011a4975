// The settings as a whole, the master switch, and single settings.
#include "scheduler/request_handlers.h"
#include "scheduler/settings_schema.h"

namespace dev_scheduler {
namespace {

HandlerResult setMasterSwitch(const RequestContext& context, bool on) {
  platform::ErrorRef error;
  if (!context.state.setSetting(kDisabledKey, platform::Value::integer(on ? 0 : 1), &error)) {
    return HandlerResult::failure(error);
  }
  return HandlerResult::success();
}

}  // namespace

HandlerResult readSetting(const RequestContext& context, const char* settingsKey, const char* replyKey) {
  platform::ErrorRef error;
  const std::optional<platform::Dictionary> settings = context.state.settings(&error);
  if (!settings) return HandlerResult::failure(error);
  platform::Dictionary reply;
  if (const platform::Value& value = settings->get(settingsKey)) reply.set(replyKey, value);
  return HandlerResult::success(platform::Value::dictionary(std::move(reply)));
}

HandlerResult writeSetting(const RequestContext& context, const platform::Value& payload, const char* payloadKey,
                           const char* settingsKey, const ValueRule& rule) {
  if (platform::ErrorRef fault = checkSingleEntryPayload(payload, payloadKey, rule)) {
    return HandlerResult::failure(fault);
  }
  platform::ErrorRef error;
  if (!context.state.setSetting(settingsKey, payload.asDictionary()->get(payloadKey), &error)) {
    return HandlerResult::failure(error);
  }
  return HandlerResult::success();
}

HandlerResult handleGetSettings(const RequestContext& context, const platform::Value&) {
  platform::ErrorRef error;
  return HandlerResult::fromOptional(context.state.settings(&error), error);
}

HandlerResult handleSetSettings(const RequestContext& context, const platform::Value& payload) {
  if (platform::ErrorRef fault = checkSettings(payload)) return HandlerResult::failure(fault);
  platform::ErrorRef error;
  if (!context.state.setSettings(*payload.asDictionary(), &error)) return HandlerResult::failure(error);
  return HandlerResult::success();
}

HandlerResult handleEnable(const RequestContext& context, const platform::Value&) {
  return setMasterSwitch(context, true);
}

HandlerResult handleDisable(const RequestContext& context, const platform::Value&) {
  return setMasterSwitch(context, false);
}

HandlerResult handleResetSettings(const RequestContext& context, const platform::Value&) {
  platform::ErrorRef error;
  if (!context.state.setSettings(defaultSettings(), &error)) return HandlerResult::failure(error);
  return HandlerResult::success();
}

}  // namespace dev_scheduler
