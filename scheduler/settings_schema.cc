#include "scheduler/settings_schema.h"

#include "scheduler/scheduler_errors.h"

namespace dev_scheduler {
namespace {

constexpr SettingsKey kSettingsKeys[] = {
    {kDisabledKey, kNumberRule, true},
    {kBackupsKey, kBooleanRule, true},
    {kSnapshotsKey, kBooleanRule, true},
    {kBackupsModeKey, kBackupsModeRule, true},
    {kBackupsIntervalKey, kIntervalRule, true},
    {kBackupsCalendarIntervalsKey, kCalendarIntervalsRule, false},
    {kUpdatesEnabledKey, kBooleanRule, true},
    {kUpdatesModeKey, kUpdateChannelRule, true},
    {kUpdatesFeedKey, kUpdateChannelRule, true},
    {kDryRunKey, kBooleanRule, true},
};

const SettingsKey* findKey(std::string_view name) {
  for (const SettingsKey& key : kSettingsKeys) {
    if (key.name == name) return &key;
  }
  return nullptr;
}

}  // namespace

std::span<const SettingsKey> settingsKeys() { return kSettingsKeys; }

platform::Dictionary defaultSettings() {
  using platform::Value;
  return {
      {kDisabledKey, Value::integer(0)},
      {kBackupsKey, Value::boolean(true)},
      {kSnapshotsKey, Value::boolean(true)},
      {kBackupsModeKey, Value::string("Interval")},
      {kBackupsIntervalKey, Value::dictionary({{"Hours", Value::integer(1)}})},
      {kBackupsCalendarIntervalsKey,
       Value::array({Value::dictionary({{kCalendarHourKey, Value::integer(2)}, {kCalendarMinuteKey, Value::integer(0)}})})},
      {kUpdatesEnabledKey, Value::boolean(true)},
      {kUpdatesModeKey, Value::string("std")},
      {kUpdatesFeedKey, Value::string("std")},
      {kDryRunKey, Value::boolean(false)},
  };
}

platform::ErrorRef checkSettings(const platform::Value& settings) {
  static const platform::Dictionary kNothing;
  const platform::Dictionary* entries = settings ? settings.asDictionary() : &kNothing;
  if (!entries) return wrongTypeError(kRootKeyName, "dictionary");
  for (const auto& entry : *entries) {
    if (!findKey(entry.first)) return unknownKeyError(entry.first);
  }
  for (const SettingsKey& key : kSettingsKeys) {
    const platform::Value& value = entries->get(key.name);
    if (!value && !key.required) continue;
    if (platform::ErrorRef fault = checkValue(std::string(key.name), value, key.rule)) return fault;
  }
  return nullptr;
}

platform::ErrorRef checkSingleEntryPayload(const platform::Value& payload, const std::string& key,
                                           const ValueRule& rule) {
  if (!payload) return missingValueError(key);
  const platform::Dictionary* entries = payload.asDictionary();
  if (!entries) return wrongTypeError(kRootKeyName, "dictionary");
  for (const auto& entry : *entries) {
    if (entry.first != key) return unknownKeyError(entry.first);
  }
  return checkValue(key, entries->get(key), rule);
}

}  // namespace dev_scheduler
