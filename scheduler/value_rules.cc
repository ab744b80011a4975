#include "scheduler/value_rules.h"

#include "scheduler/scheduler_errors.h"

namespace dev_scheduler {
namespace {

// "one of a, b, c": what a choice expects.
std::string oneOf(std::span<const std::string_view> names) {
  std::string text = "one of ";
  for (std::size_t i = 0; i < names.size(); ++i) {
    if (i > 0) text += ", ";
    text += names[i];
  }
  return text;
}

bool isUnit(std::string_view key) {
  for (const IntervalUnit& unit : kIntervalUnits) {
    if (unit.key == key) return true;
  }
  return false;
}

std::string unitNames() {
  std::string text = "exactly one of ";
  for (std::size_t i = 0; i < std::size(kIntervalUnits); ++i) {
    if (i > 0) text += ", ";
    text += kIntervalUnits[i].key;
  }
  return text;
}

bool isIntegerBetween(const platform::Value& value, std::int64_t low, std::int64_t high) {
  const platform::Integer* integer = value.asInteger();
  return integer && !integer->isUnsigned && integer->int64Value() >= low && integer->int64Value() <= high;
}

platform::ErrorRef checkInterval(const std::string& key, const platform::Value& value) {
  const platform::Dictionary* interval = value.asDictionary();
  if (!interval) return wrongTypeError(key, "dictionary");
  for (const auto& [unit, count] : *interval) {
    if (!isUnit(unit)) return unknownKeyError(unit);
    const platform::Integer* integer = count.asInteger();
    if (!integer || (!integer->isUnsigned && integer->int64Value() < 1)) {
      return wrongTypeError(unit, "integer of at least 1");
    }
  }
  if (interval->empty()) return missingValueError(key);
  if (interval->size() > 1) return wrongTypeError(key, unitNames());
  return nullptr;
}

platform::ErrorRef checkCalendarIntervals(const std::string& key, const platform::Value& value) {
  const platform::Array* entries = value.asArray();
  if (!entries) return wrongTypeError(key, "array");
  for (const platform::Value& entry : *entries) {
    const platform::Dictionary* fields = entry.asDictionary();
    if (!fields) return wrongTypeError(key, "array of dictionaries");
    for (const auto& [field, number] : *fields) {
      if (field == kCalendarHourKey) {
        if (!isIntegerBetween(number, 0, 23)) return wrongTypeError(field, "integer from 0 to 23");
      } else if (field == kCalendarMinuteKey) {
        if (!isIntegerBetween(number, 0, 59)) return wrongTypeError(field, "integer from 0 to 59");
      } else {
        return unknownKeyError(field);
      }
    }
  }
  return nullptr;
}

}  // namespace

platform::ErrorRef checkValue(const std::string& key, const platform::Value& value, const ValueRule& rule) {
  if (!value) return missingValueError(key);
  switch (rule.kind) {
    case ValueKind::Number: {
      const platform::Value::Kind kind = value.kind();
      const bool number = kind == platform::Value::Kind::Integer || kind == platform::Value::Kind::Real ||
                          kind == platform::Value::Kind::Boolean;
      return number ? nullptr : wrongTypeError(key, "number");
    }
    case ValueKind::Boolean:
      return value.asBoolean() ? nullptr : wrongTypeError(key, "boolean");
    case ValueKind::Choice: {
      const std::string* text = value.asString();
      for (std::string_view choice : rule.choices) {
        if (text && *text == choice) return nullptr;
      }
      return wrongTypeError(key, oneOf(rule.choices));
    }
    case ValueKind::Interval:
      return checkInterval(key, value);
    case ValueKind::CalendarIntervals:
      return checkCalendarIntervals(key, value);
  }
  return wrongTypeError(key, "a known kind of value");
}

}  // namespace dev_scheduler
