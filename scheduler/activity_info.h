// The reply to an information request: for backups, local snapshots and
// updates, when each last ran and was tried, whether it runs, and when it runs
// next or why it is deferred, as the settings and the activity record say.
#pragma once

#include "platform/plist/value.h"

namespace dev_scheduler {

inline constexpr const char* kRunningKey = "Running";
inline constexpr const char* kNextRunKey = "NextRun";
inline constexpr const char* kDeferReasonKey = "DeferReason";

// {"backups", "snapshots", "updates"}, each {"LastRun"?, "LastTry"?, "Running"?,
// "NextRun"?, "DeferReason"?} at `now`, for a scheduler serving since `since`.
// Calendar times are in UTC.
platform::Dictionary activityInfo(const platform::Dictionary& record, const platform::Dictionary& settings,
                                  platform::Date now, platform::Date since);

}  // namespace dev_scheduler
