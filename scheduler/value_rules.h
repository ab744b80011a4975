// What a settings value or a payload entry must be, and the check of a value
// against it. A refusal is the QHVErrorDomain error that names the key at fault.
#pragma once

#include <cstdint>
#include <span>
#include <string>
#include <string_view>

#include "platform/plist/value.h"

namespace dev_scheduler {

enum class ValueKind : std::uint8_t {
  Number,             // an integer, a real or a boolean
  Boolean,            // a boolean
  Choice,             // a string among the rule's choices
  Interval,           // {unit: integer of at least 1}, exactly one unit
  CalendarIntervals,  // an array of {"Hour": 0-23, "Minute": 0-59}, both optional
};

struct ValueRule {
  ValueKind kind;
  std::span<const std::string_view> choices = {};  // for Choice
};

inline constexpr std::string_view kBackupsModes[] = {"WhenInactive", "Interval", "CalendarIntervals"};
inline constexpr std::string_view kUpdateChannels[] = {"std", "beta", "test"};

inline constexpr ValueRule kNumberRule{ValueKind::Number};
inline constexpr ValueRule kBooleanRule{ValueKind::Boolean};
inline constexpr ValueRule kBackupsModeRule{ValueKind::Choice, kBackupsModes};
inline constexpr ValueRule kUpdateChannelRule{ValueKind::Choice, kUpdateChannels};
inline constexpr ValueRule kIntervalRule{ValueKind::Interval};
inline constexpr ValueRule kCalendarIntervalsRule{ValueKind::CalendarIntervals};

// The units of an interval, by key.
struct IntervalUnit {
  std::string_view key;
  std::int64_t seconds;
};
inline constexpr IntervalUnit kIntervalUnits[] = {
    {"Minutes", 60}, {"Hours", 3600}, {"Days", 86'400}, {"Weeks", 604'800}};

// The keys of a calendar entry.
inline constexpr const char* kCalendarHourKey = "Hour";
inline constexpr const char* kCalendarMinuteKey = "Minute";

// The error that key `key` with `value` is not presented as required: an absent
// value and an interval without a unit give QHVErrorMissingValue, a value of
// another type or out of range QHVErrorWrongType (with what was expected), a
// key inside an interval or a calendar entry that is not known
// QHVErrorUnknownKey. Null when the value fits `rule`.
platform::ErrorRef checkValue(const std::string& key, const platform::Value& value, const ValueRule& rule);

}  // namespace dev_scheduler
