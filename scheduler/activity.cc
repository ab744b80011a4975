#include "scheduler/activity.h"

namespace dev_scheduler {
namespace {

platform::Dictionary entryOf(const platform::Dictionary& record, const char* activity) {
  const platform::Dictionary* entry = record.get(activity).asDictionary();
  return entry ? *entry : platform::Dictionary();
}

}  // namespace

bool settleBackup(platform::Dictionary& record, platform::Date now) {
  platform::Dictionary backups = entryOf(record, kBackupsActivity);
  const std::optional<platform::Date> until = backups.get(kRunningUntilKey).asDate();
  if (!until || until->sinceReferenceDate > now.sinceReferenceDate) return false;
  backups.erase(kRunningUntilKey);
  backups.set(kLastRunKey, platform::Value::date(*until));
  record.set(kBackupsActivity, platform::Value::dictionary(std::move(backups)));
  return true;
}

bool backupRunning(const platform::Dictionary& record, platform::Date now) {
  const std::optional<platform::Date> until = entryOf(record, kBackupsActivity).get(kRunningUntilKey).asDate();
  return until && until->sinceReferenceDate > now.sinceReferenceDate;
}

void startBackup(platform::Dictionary& record, platform::Date now, double seconds, bool withSnapshot) {
  platform::Dictionary backups = entryOf(record, kBackupsActivity);
  backups.set(kLastTryKey, platform::Value::date(now));
  backups.set(kRunningUntilKey, platform::Value::date({now.sinceReferenceDate + seconds}));
  record.set(kBackupsActivity, platform::Value::dictionary(std::move(backups)));
  if (withSnapshot) noteActivity(record, kSnapshotsActivity, kLastRunKey, now);
}

void noteActivity(platform::Dictionary& record, const char* activity, const char* key, platform::Date now) {
  platform::Dictionary entry = entryOf(record, activity);
  entry.set(key, platform::Value::date(now));
  record.set(activity, platform::Value::dictionary(std::move(entry)));
}

}  // namespace dev_scheduler
