#include "scheduler/activity_info.h"

#include <algorithm>
#include <cmath>
#include <optional>

#include "scheduler/activity.h"
#include "scheduler/settings_schema.h"

namespace dev_scheduler {
namespace {

constexpr double kHour = 3600;
constexpr double kDay = 86'400;
// How often the scheduler looks for an update.
constexpr double kUpdateCheckPeriod = kDay;

platform::Date at(double sinceReferenceDate) { return {sinceReferenceDate}; }

// The first moment after `now` that lies `offset` seconds into a period of
// `period` seconds, counted from the Unix epoch (so whole UTC hours and days).
double nextInPeriod(double now, double period, double offset) {
  const double unix = now + platform::Date::kReferenceToUnixEpoch;
  double next = std::floor(unix / period) * period + offset;
  if (next <= unix) next += period;
  return next - platform::Date::kReferenceToUnixEpoch;
}

// The length of the settings' backups interval; nullopt when it names no unit.
std::optional<double> intervalSeconds(const platform::Dictionary& settings) {
  const platform::Dictionary* interval = settings.get(kBackupsIntervalKey).asDictionary();
  if (!interval) return std::nullopt;
  for (const IntervalUnit& unit : kIntervalUnits) {
    if (const platform::Integer* count = interval->get(unit.key).asInteger()) {
      return static_cast<double>(count->uint64Value()) * static_cast<double>(unit.seconds);
    }
  }
  return std::nullopt;
}

// The next calendar time after `now`: an entry without "Hour" runs every hour.
std::optional<double> nextCalendarTime(const platform::Dictionary& settings, double now) {
  const platform::Array* entries = settings.get(kBackupsCalendarIntervalsKey).asArray();
  if (!entries) return std::nullopt;
  std::optional<double> earliest;
  for (const platform::Value& entry : *entries) {
    const platform::Dictionary* fields = entry.asDictionary();
    if (!fields) continue;
    const double minute = static_cast<double>(fields->get(kCalendarMinuteKey).int64Value()) * 60;
    const platform::Value& hour = fields->get(kCalendarHourKey);
    const double next = hour ? nextInPeriod(now, kDay, static_cast<double>(hour.int64Value()) * kHour + minute)
                             : nextInPeriod(now, kHour, minute);
    earliest = std::min(earliest.value_or(next), next);
  }
  return earliest;
}

// An activity's "LastRun" and "LastTry" as recorded.
platform::Dictionary recordedDates(const platform::Dictionary& record, const char* activity) {
  platform::Dictionary info;
  if (const platform::Dictionary* entry = record.get(activity).asDictionary()) {
    for (const char* key : {kLastRunKey, kLastTryKey}) {
      if (const std::optional<platform::Date> date = entry->get(key).asDate()) {
        info.set(key, platform::Value::date(*date));
      }
    }
  }
  return info;
}

void defer(platform::Dictionary& info, const char* reason) {
  info.set(kDeferReasonKey, platform::Value::string(reason));
}

// The date of the last "LastTry"/"LastRun" of `info`, or `since`.
double lastDate(const platform::Dictionary& info, const char* key, platform::Date since) {
  return info.get(key).asDate().value_or(since).sinceReferenceDate;
}

platform::Dictionary backupsInfo(const platform::Dictionary& record, const platform::Dictionary& settings,
                                 platform::Date now, platform::Date since) {
  platform::Dictionary info = recordedDates(record, kBackupsActivity);
  const bool running = backupRunning(record, now);
  info.set(kRunningKey, platform::Value::boolean(running));
  if (running) return info;
  if (settings.get(kDisabledKey).boolValue()) {
    defer(info, "Scheduler is disabled");
  } else if (!settings.get(kBackupsKey).boolValue()) {
    defer(info, "Backups are disabled");
  } else if (const std::string* mode = settings.get(kBackupsModeKey).asString(); mode && *mode == "Interval") {
    if (const std::optional<double> interval = intervalSeconds(settings)) {
      const double next = lastDate(info, kLastRunKey, since) + *interval;
      info.set(kNextRunKey, platform::Value::date(at(std::max(next, now.sinceReferenceDate))));
    } else {
      defer(info, "No backups interval is set");
    }
  } else if (mode && *mode == "CalendarIntervals") {
    if (const std::optional<double> next = nextCalendarTime(settings, now.sinceReferenceDate)) {
      info.set(kNextRunKey, platform::Value::date(at(*next)));
    } else {
      defer(info, "No calendar intervals are set");
    }
  } else {
    defer(info, "Waiting for user inactivity");
  }
  return info;
}

platform::Dictionary snapshotsInfo(const platform::Dictionary& record, const platform::Dictionary& settings,
                                   platform::Date now) {
  platform::Dictionary info = recordedDates(record, kSnapshotsActivity);
  if (settings.get(kDisabledKey).boolValue()) {
    defer(info, "Scheduler is disabled");
  } else if (!settings.get(kSnapshotsKey).boolValue()) {
    defer(info, "Snapshots are disabled");
  } else {
    info.set(kNextRunKey, platform::Value::date(at(nextInPeriod(now.sinceReferenceDate, kHour, 0))));
  }
  return info;
}

platform::Dictionary updatesInfo(const platform::Dictionary& record, const platform::Dictionary& settings,
                                 platform::Date now, platform::Date since) {
  platform::Dictionary info = recordedDates(record, kUpdatesActivity);
  if (settings.get(kDisabledKey).boolValue()) {
    defer(info, "Scheduler is disabled");
  } else if (!settings.get(kUpdatesEnabledKey).boolValue()) {
    defer(info, "Updates are disabled");
  } else {
    const double next = lastDate(info, kLastTryKey, since) + kUpdateCheckPeriod;
    info.set(kNextRunKey, platform::Value::date(at(std::max(next, now.sinceReferenceDate))));
  }
  return info;
}

}  // namespace

platform::Dictionary activityInfo(const platform::Dictionary& record, const platform::Dictionary& settings,
                                  platform::Date now, platform::Date since) {
  return {
      {kBackupsActivity, platform::Value::dictionary(backupsInfo(record, settings, now, since))},
      {kSnapshotsActivity, platform::Value::dictionary(snapshotsInfo(record, settings, now))},
      {kUpdatesActivity, platform::Value::dictionary(updatesInfo(record, settings, now, since))},
  };
}

}  // namespace dev_scheduler
