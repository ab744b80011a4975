// Backups: the interval, the when-inactive mode, and starting a backup.
#include "scheduler/activity.h"
#include "scheduler/request_handlers.h"
#include "scheduler/scheduler_errors.h"
#include "scheduler/settings_schema.h"

namespace dev_scheduler {
namespace {

constexpr const char* kWhenInactiveMode = "WhenInactive";
constexpr const char* kIntervalMode = "Interval";

// Sets the backups mode to `mode`, and `key` to `value` when a key is given, in one change.
HandlerResult setBackupsMode(const RequestContext& context, const char* mode, const char* key = nullptr,
                             const platform::Value& value = {}) {
  platform::ErrorRef error;
  std::optional<platform::Dictionary> settings = context.state.settings(&error);
  if (!settings) return HandlerResult::failure(error);
  settings->set(kBackupsModeKey, platform::Value::string(mode));
  if (key) settings->set(key, value);
  if (!context.state.setSettings(*settings, &error)) return HandlerResult::failure(error);
  return HandlerResult::success();
}

}  // namespace

HandlerResult handleGetBackupsInterval(const RequestContext& context, const platform::Value&) {
  platform::ErrorRef error;
  const std::optional<platform::Dictionary> settings = context.state.settings(&error);
  if (!settings) return HandlerResult::failure(error);
  const platform::Dictionary* interval = settings->get(kBackupsIntervalKey).asDictionary();
  return HandlerResult::success(platform::Value::dictionary(interval ? *interval : platform::Dictionary()));
}

HandlerResult handleGetBackupsWhenInactive(const RequestContext& context, const platform::Value&) {
  platform::ErrorRef error;
  const std::optional<platform::Dictionary> settings = context.state.settings(&error);
  if (!settings) return HandlerResult::failure(error);
  const std::string* mode = settings->get(kBackupsModeKey).asString();
  return HandlerResult::success(
      platform::Value::dictionary({{"Enabled", platform::Value::boolean(mode && *mode == kWhenInactiveMode)}}));
}

HandlerResult handleSetBackupsInterval(const RequestContext& context, const platform::Value& payload) {
  // The payload is the interval itself; setting it also makes backups run by it.
  if (platform::ErrorRef fault = checkValue(kBackupsIntervalKey, payload, kIntervalRule)) {
    return HandlerResult::failure(fault);
  }
  return setBackupsMode(context, kIntervalMode, kBackupsIntervalKey, payload);
}

HandlerResult handleSetBackupsWhenInactive(const RequestContext& context, const platform::Value&) {
  return setBackupsMode(context, kWhenInactiveMode);
}

HandlerResult handleKickstartBackup(const RequestContext& context, const platform::Value&) {
  platform::ErrorRef error;
  const std::optional<platform::Dictionary> settings = context.state.settings(&error);
  std::optional<platform::Dictionary> record = settings ? context.state.activity(&error) : std::nullopt;
  if (!record) return HandlerResult::failure(error);
  settleBackup(*record, context.now);
  if (backupRunning(*record, context.now)) return HandlerResult::failure(backupRunningError());
  startBackup(*record, context.now, context.backupSeconds, settings->get(kSnapshotsKey).boolValue());
  if (!context.state.setActivity(*record, &error)) return HandlerResult::failure(error);
  return HandlerResult::success();
}

}  // namespace dev_scheduler
