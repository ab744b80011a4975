// The activity record: when backups, local snapshots and updates last ran and
// were last tried, and until when the simulated backup runs. A backup is
// simulated by dates alone: it runs from its start until "RunningUntil", and
// the first look at the record after that settles it into "LastRun".
#pragma once

#include "platform/plist/value.h"

namespace dev_scheduler {

// The activities, as the record and the information reply name them.
inline constexpr const char* kBackupsActivity = "backups";
inline constexpr const char* kSnapshotsActivity = "snapshots";
inline constexpr const char* kUpdatesActivity = "updates";

inline constexpr const char* kLastRunKey = "LastRun";
inline constexpr const char* kLastTryKey = "LastTry";
inline constexpr const char* kRunningUntilKey = "RunningUntil";

// Settles a backup that ended by `now`: its end becomes the backups' "LastRun".
// True when `record` changed.
bool settleBackup(platform::Dictionary& record, platform::Date now);

// True when a backup runs at `now`.
bool backupRunning(const platform::Dictionary& record, platform::Date now);

// Starts a backup at `now` that runs for `seconds`; when `withSnapshot`, a
// local snapshot is taken as it starts.
void startBackup(platform::Dictionary& record, platform::Date now, double seconds, bool withSnapshot);

// Notes that `activity` ran (`key` "LastRun") or was tried ("LastTry") at `now`.
void noteActivity(platform::Dictionary& record, const char* activity, const char* key, platform::Date now);

}  // namespace dev_scheduler
