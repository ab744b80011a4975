// The service as a whole: who serves, what every activity is doing, and
// uninstalling.
#include <unistd.h>

#include "scheduler/activity.h"
#include "scheduler/activity_info.h"
#include "scheduler/request_handlers.h"
#include "scheduler/scheduler_errors.h"

namespace dev_scheduler {

HandlerResult handleHello(const RequestContext& context, const platform::Value&) {
  return HandlerResult::success(platform::Value::dictionary({
      {"ProcessIdentifier", platform::Value::integer(::getpid())},
      {"ServingSince", platform::Value::date(context.since)},
  }));
}

HandlerResult handleGetInfo(const RequestContext& context, const platform::Value&) {
  platform::ErrorRef error;
  const std::optional<platform::Dictionary> settings = context.state.settings(&error);
  std::optional<platform::Dictionary> record = settings ? context.state.activity(&error) : std::nullopt;
  if (!record) return HandlerResult::failure(error);
  if (settleBackup(*record, context.now) && !context.state.setActivity(*record, &error)) {
    return HandlerResult::failure(error);
  }
  return HandlerResult::success(
      platform::Value::dictionary(activityInfo(*record, *settings, context.now, context.since)));
}

HandlerResult handleUninstall(const RequestContext& context, const platform::Value&) {
  platform::ErrorRef error;
  const std::optional<platform::Dictionary> record = context.state.activity(&error);
  if (!record) return HandlerResult::failure(error);
  if (backupRunning(*record, context.now)) return HandlerResult::failure(backupRunningError());
  return HandlerResult::success();
}

}  // namespace dev_scheduler
