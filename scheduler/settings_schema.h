// The scheduler's settings: every key it knows, what each must hold, which
// ones a complete settings dictionary needs, and their defaults.
#pragma once

#include <span>
#include <string>
#include <string_view>

#include "platform/plist/value.h"
#include "scheduler/value_rules.h"

namespace dev_scheduler {

inline constexpr const char* kDisabledKey = "Disabled";  // number: non-zero turns the master switch off
inline constexpr const char* kBackupsKey = "Backups";
inline constexpr const char* kSnapshotsKey = "Snapshots";
inline constexpr const char* kBackupsModeKey = "BackupsMode";
inline constexpr const char* kBackupsIntervalKey = "BackupsInterval";
inline constexpr const char* kBackupsCalendarIntervalsKey = "BackupsCalendarIntervals";
inline constexpr const char* kUpdatesEnabledKey = "UpdatesEnabled";
inline constexpr const char* kUpdatesModeKey = "UpdatesMode";
inline constexpr const char* kUpdatesFeedKey = "UpdatesFeed";
inline constexpr const char* kDryRunKey = "DryRun";

// What a payload or a settings dictionary that is not a dictionary is called
// in the error that refuses it.
inline constexpr const char* kRootKeyName = "root";

struct SettingsKey {
  std::string_view name;
  ValueRule rule;
  bool required;
};

// The known keys, in the order a settings dictionary is checked.
std::span<const SettingsKey> settingsKeys();

// The settings of a new installation.
platform::Dictionary defaultSettings();

// Null when `settings` is a complete settings dictionary. Otherwise the first
// fault: QHVErrorWrongType with "key" "root" when it is not a dictionary;
// QHVErrorUnknownKey for an unknown key (in key order); then, in the order of
// settingsKeys(), QHVErrorWrongType for a value that does not fit or
// QHVErrorMissingValue for a required key that is missing. An absent value
// counts as an empty dictionary.
platform::ErrorRef checkSettings(const platform::Value& settings);

// Null when `payload` is a dictionary holding `key` alone, with a value that
// fits `rule`; otherwise the fault as checkSettings names it. An absent payload
// counts as an empty dictionary.
platform::ErrorRef checkSingleEntryPayload(const platform::Value& payload, const std::string& key,
                                           const ValueRule& rule);

}  // namespace dev_scheduler
