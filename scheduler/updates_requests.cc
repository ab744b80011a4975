// Updates: checking for one and installing it. The update on offer is whatever
// update.plist holds; installing it withdraws it.
#include "scheduler/activity.h"
#include "scheduler/request_handlers.h"
#include "scheduler/scheduler_errors.h"

namespace dev_scheduler {

HandlerResult handleCheckForUpdates(const RequestContext& context, const platform::Value&) {
  platform::ErrorRef error;
  std::optional<platform::Dictionary> record = context.state.activity(&error);
  if (!record) return HandlerResult::failure(error);
  noteActivity(*record, kUpdatesActivity, kLastTryKey, context.now);
  if (!context.state.setActivity(*record, &error)) return HandlerResult::failure(error);
  platform::Value update = context.state.availableUpdate(&error);
  if (!update) return HandlerResult::failure(error ? error : alreadyUpToDateError());
  return HandlerResult::success(std::move(update));
}

HandlerResult handleInstallUpdate(const RequestContext& context, const platform::Value&) {
  platform::ErrorRef error;
  std::optional<platform::Dictionary> record = context.state.activity(&error);
  if (!record) return HandlerResult::failure(error);
  if (backupRunning(*record, context.now)) return HandlerResult::failure(backupRunningError());
  const platform::Value update = context.state.availableUpdate(&error);
  if (!update) return HandlerResult::failure(error ? error : alreadyUpToDateError());
  noteActivity(*record, kUpdatesActivity, kLastRunKey, context.now);
  if (!context.state.removeAvailableUpdate(&error) || !context.state.setActivity(*record, &error)) {
    return HandlerResult::failure(error);
  }
  return HandlerResult::success();
}

}  // namespace dev_scheduler
