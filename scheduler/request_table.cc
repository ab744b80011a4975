#include "errors/error_domains.h"
#include "scheduler/request_handlers.h"
#include "scheduler/scheduler_errors.h"
#include "scheduler/settings_schema.h"

namespace dev_scheduler {
namespace {

// A message pair that reads and sets one setting: the reply, and the payload
// of the set, hold it under `entryKey`.
struct SettingRoute {
  QHVHelperMessage get;
  QHVHelperMessage set;
  const char* entryKey;
  const char* settingsKey;
  ValueRule rule;
};

constexpr SettingRoute kSettingRoutes[] = {
    {QHVHelperMessageGetBackupsEnabled, QHVHelperMessageSetBackupsEnabled, "Enabled", kBackupsKey, kBooleanRule},
    {QHVHelperMessageGetBackupsMode, QHVHelperMessageSetBackupsMode, "Mode", kBackupsModeKey, kBackupsModeRule},
    {QHVHelperMessageGetSnapshotsEnabled, QHVHelperMessageSetSnapshotsEnabled, "Enabled", kSnapshotsKey, kBooleanRule},
    {QHVHelperMessageGetUpdatesEnabled, QHVHelperMessageSetUpdatesEnabled, "Enabled", kUpdatesEnabledKey, kBooleanRule},
    {QHVHelperMessageGetUpdatesMode, QHVHelperMessageSetUpdatesMode, "Mode", kUpdatesModeKey, kUpdateChannelRule},
    {QHVHelperMessageGetUpdatesFeed, QHVHelperMessageSetUpdatesFeed, "Feed", kUpdatesFeedKey, kUpdateChannelRule},
    {QHVHelperMessageGetDryRun, QHVHelperMessageSetDryRun, "Enabled", kDryRunKey, kBooleanRule},
};

struct HandlerRoute {
  QHVHelperMessage message;
  RequestHandler handler;
};

// Every other message of the catalogue. 0 greets, 6 restores the default
// settings and 28 uninstalls; the tool sends none of them.
constexpr HandlerRoute kHandlerRoutes[] = {
    {0, handleHello},
    {QHVHelperMessageGetSettings, handleGetSettings},
    {QHVHelperMessageSetSettings, handleSetSettings},
    {QHVHelperMessageEnable, handleEnable},
    {QHVHelperMessageDisable, handleDisable},
    {QHVHelperMessageGetInfo, handleGetInfo},
    {6, handleResetSettings},
    {QHVHelperMessageGetBackupsInterval, handleGetBackupsInterval},
    {QHVHelperMessageGetBackupsWhenInactive, handleGetBackupsWhenInactive},
    {QHVHelperMessageSetBackupsInterval, handleSetBackupsInterval},
    {QHVHelperMessageSetBackupsWhenInactive, handleSetBackupsWhenInactive},
    {QHVHelperMessageKickstartBackup, handleKickstartBackup},
    {QHVHelperMessageCheckForUpdates, handleCheckForUpdates},
    {QHVHelperMessageInstallUpdate, handleInstallUpdate},
    {QHVHelperMessageUninstall, handleUninstall},
};

}  // namespace

HandlerResult handleRequest(QHVHelperMessage message, const RequestContext& context, const platform::Value& payload) {
  for (const SettingRoute& route : kSettingRoutes) {
    if (message == route.get) return readSetting(context, route.settingsKey, route.entryKey);
    if (message == route.set) return writeSetting(context, payload, route.entryKey, route.settingsKey, route.rule);
  }
  for (const HandlerRoute& route : kHandlerRoutes) {
    if (message == route.message) return route.handler(context, payload);
  }
  return HandlerResult::failure(messagerError(LKSMessagerErrorDeserializeMessage, message));
}

}  // namespace dev_scheduler
