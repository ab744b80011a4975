// The settings as the scheduler keeps them: defaults, reads and sets that round
// trip and persist across a restart, and the validation of what is set.
#include "scheduler_test_support.h"

namespace testing_support {
namespace {

using platform::Value;

class SchedulerSettings : public SandboxedSchedulerTest {};

TEST_F(SchedulerSettings, DefaultsAreStoredAndRead) {
  const platform::Dictionary stored = scheduler().settings();
  EXPECT_EQ(stored.get("Disabled"), Value::integer(0));
  EXPECT_EQ(stored.get("Backups"), Value::boolean(true));
  EXPECT_EQ(stored.get("Snapshots"), Value::boolean(true));
  EXPECT_EQ(stored.get("BackupsInterval"), Value::dictionary({{"Hours", Value::integer(1)}}));
  platform::ErrorRef error;
  EXPECT_EQ(client().send(QHVHelperMessageGetSettings, {}, &error), Value::dictionary(stored));
  EXPECT_EQ(error, nullptr);
}

// A read message, the set message of the same setting, the key both use, and
// two values that differ from the defaults' and from each other.
struct SettingPair {
  QHVHelperMessage get;
  QHVHelperMessage set;
  const char* key;
  Value first;
  Value second;
};

std::vector<SettingPair> settingPairs() {
  return {
      {QHVHelperMessageGetBackupsEnabled, QHVHelperMessageSetBackupsEnabled, "Enabled", Value::boolean(false),
       Value::boolean(true)},
      {QHVHelperMessageGetBackupsMode, QHVHelperMessageSetBackupsMode, "Mode", Value::string("CalendarIntervals"),
       Value::string("WhenInactive")},
      {QHVHelperMessageGetSnapshotsEnabled, QHVHelperMessageSetSnapshotsEnabled, "Enabled", Value::boolean(false),
       Value::boolean(true)},
      {QHVHelperMessageGetUpdatesEnabled, QHVHelperMessageSetUpdatesEnabled, "Enabled", Value::boolean(false),
       Value::boolean(true)},
      {QHVHelperMessageGetUpdatesMode, QHVHelperMessageSetUpdatesMode, "Mode", Value::string("beta"),
       Value::string("test")},
      {QHVHelperMessageGetUpdatesFeed, QHVHelperMessageSetUpdatesFeed, "Feed", Value::string("test"),
       Value::string("beta")},
      {QHVHelperMessageGetDryRun, QHVHelperMessageSetDryRun, "Enabled", Value::boolean(true), Value::boolean(false)},
  };
}

TEST_F(SchedulerSettings, SetsAreReadBackAndSurviveARestart) {
  for (const SettingPair& pair : settingPairs()) {
    for (const Value& value : {pair.first, pair.second, pair.first}) {
      platform::ErrorRef error;
      EXPECT_TRUE(client().send(pair.set, Value::dictionary({{pair.key, value}}), &error)) << pair.set;
      EXPECT_EQ(error, nullptr) << pair.set;
      EXPECT_EQ(client().send(pair.get), Value::dictionary({{pair.key, value}})) << pair.get;
    }
  }
  const platform::Dictionary before = scheduler().settings();
  ASSERT_TRUE(scheduler().stop());
  ASSERT_TRUE(scheduler().start());
  EXPECT_EQ(scheduler().settings(), before);
  for (const SettingPair& pair : settingPairs()) {
    EXPECT_EQ(client().send(pair.get), Value::dictionary({{pair.key, pair.first}})) << pair.get;
  }
}

TEST_F(SchedulerSettings, MasterSwitchAndWholeSettings) {
  ASSERT_TRUE(client().send(QHVHelperMessageDisable));
  EXPECT_EQ(scheduler().settings().get("Disabled"), Value::integer(1));
  ASSERT_TRUE(client().send(QHVHelperMessageEnable));
  EXPECT_EQ(scheduler().settings().get("Disabled"), Value::integer(0));

  platform::Dictionary changed = scheduler().settings();
  changed.set("Disabled", Value::integer(1));
  changed.set("Snapshots", Value::boolean(false));
  changed.erase("BackupsCalendarIntervals");  // the one key that may be left out
  ASSERT_TRUE(client().send(QHVHelperMessageSetSettings, Value::dictionary(changed)));
  EXPECT_EQ(client().send(QHVHelperMessageGetSettings), Value::dictionary(changed));

  ASSERT_TRUE(client().send(6));  // back to the defaults
  EXPECT_EQ(scheduler().settings().get("Disabled"), Value::integer(0));
  EXPECT_TRUE(scheduler().settings().contains("BackupsCalendarIntervals"));
}

TEST_F(SchedulerSettings, IntervalAndWhenInactiveChooseTheMode) {
  ASSERT_TRUE(client().send(QHVHelperMessageSetBackupsWhenInactive));
  EXPECT_EQ(client().send(QHVHelperMessageGetBackupsWhenInactive), Value::dictionary({{"Enabled", Value::boolean(true)}}));
  EXPECT_EQ(client().send(QHVHelperMessageGetBackupsMode), Value::dictionary({{"Mode", Value::string("WhenInactive")}}));

  const Value twoWeeks = Value::dictionary({{"Weeks", Value::unsignedInteger(2)}});
  ASSERT_TRUE(client().send(QHVHelperMessageSetBackupsInterval, twoWeeks));
  EXPECT_EQ(client().send(QHVHelperMessageGetBackupsInterval), twoWeeks);
  EXPECT_EQ(client().send(QHVHelperMessageGetBackupsMode), Value::dictionary({{"Mode", Value::string("Interval")}}));
  EXPECT_EQ(client().send(QHVHelperMessageGetBackupsWhenInactive),
            Value::dictionary({{"Enabled", Value::boolean(false)}}));
}

// A refused change: the message, its payload, and the error's code, "key" and
// "expected" ("" when the code carries none).
struct Refusal {
  const char* why;
  QHVHelperMessage message;
  Value payload;
  std::int64_t code;
  const char* key;
  const char* expected;
};

platform::Dictionary defaultsWith(const char* key, Value value) {
  platform::Dictionary settings = {
      {"Disabled", Value::integer(0)},          {"Backups", Value::boolean(true)},
      {"Snapshots", Value::boolean(true)},      {"BackupsMode", Value::string("Interval")},
      {"BackupsInterval", Value::dictionary({{"Hours", Value::integer(1)}})},
      {"UpdatesEnabled", Value::boolean(true)}, {"UpdatesMode", Value::string("std")},
      {"UpdatesFeed", Value::string("std")},    {"DryRun", Value::boolean(false)},
  };
  if (value) {
    settings.set(key, std::move(value));
  } else {
    settings.erase(key);
  }
  return settings;
}

TEST_F(SchedulerSettings, ValidationRefusesWithTheKeyAtFault) {
  const std::string oneOfModes = "one of WhenInactive, Interval, CalendarIntervals";
  const std::string oneOfChannels = "one of std, beta, test";
  const std::vector<Refusal> refusals = {
      {"unknown key", QHVHelperMessageSetSettings, Value::dictionary(defaultsWith("Backup", Value::boolean(true))),
       QHVErrorUnknownKey, "Backup", ""},
      {"boolean as text", QHVHelperMessageSetSettings, Value::dictionary(defaultsWith("Backups", Value::string("yes"))),
       QHVErrorWrongType, "Backups", "boolean"},
      {"master switch as text", QHVHelperMessageSetSettings,
       Value::dictionary(defaultsWith("Disabled", Value::string("0"))), QHVErrorWrongType, "Disabled", "number"},
      {"required key missing", QHVHelperMessageSetSettings, Value::dictionary(defaultsWith("Snapshots", {})),
       QHVErrorMissingValue, "Snapshots", ""},
      {"root is an array", QHVHelperMessageSetSettings, Value::array({}), QHVErrorWrongType, "root", "dictionary"},
      {"no payload at all", QHVHelperMessageSetSettings, {}, QHVErrorMissingValue, "Disabled", ""},
      {"mode outside the list", QHVHelperMessageSetSettings,
       Value::dictionary(defaultsWith("BackupsMode", Value::string("Sometimes"))), QHVErrorWrongType, "BackupsMode",
       oneOfModes.c_str()},
      {"interval of zero hours", QHVHelperMessageSetSettings,
       Value::dictionary(defaultsWith("BackupsInterval", Value::dictionary({{"Hours", Value::integer(0)}}))),
       QHVErrorWrongType, "Hours", "integer of at least 1"},
      {"calendar hour 24", QHVHelperMessageSetSettings,
       Value::dictionary(defaultsWith("BackupsCalendarIntervals",
                                      Value::array({Value::dictionary({{"Hour", Value::integer(24)}})}))),
       QHVErrorWrongType, "Hour", "integer from 0 to 23"},
      {"enabled as text", QHVHelperMessageSetBackupsEnabled, Value::dictionary({{"Enabled", Value::string("yes")}}),
       QHVErrorWrongType, "Enabled", "boolean"},
      {"enabled missing", QHVHelperMessageSetSnapshotsEnabled, Value::dictionary({}), QHVErrorMissingValue, "Enabled",
       ""},
      {"no payload for a set", QHVHelperMessageSetDryRun, {}, QHVErrorMissingValue, "Enabled", ""},
      {"extra entry", QHVHelperMessageSetUpdatesEnabled,
       Value::dictionary({{"Enabled", Value::boolean(true)}, {"Force", Value::boolean(true)}}), QHVErrorUnknownKey,
       "Force", ""},
      {"mode in lower case", QHVHelperMessageSetBackupsMode, Value::dictionary({{"Mode", Value::string("interval")}}),
       QHVErrorWrongType, "Mode", oneOfModes.c_str()},
      {"channel capitalized", QHVHelperMessageSetUpdatesMode, Value::dictionary({{"Mode", Value::string("Beta")}}),
       QHVErrorWrongType, "Mode", oneOfChannels.c_str()},
      {"feed as a number", QHVHelperMessageSetUpdatesFeed, Value::dictionary({{"Feed", Value::integer(3)}}),
       QHVErrorWrongType, "Feed", oneOfChannels.c_str()},
      {"interval without unit", QHVHelperMessageSetBackupsInterval, Value::dictionary({}), QHVErrorMissingValue,
       "BackupsInterval", ""},
      {"interval of two units", QHVHelperMessageSetBackupsInterval,
       Value::dictionary({{"Hours", Value::integer(1)}, {"Days", Value::integer(1)}}), QHVErrorWrongType,
       "BackupsInterval", "exactly one of Minutes, Hours, Days, Weeks"},
      {"interval of months", QHVHelperMessageSetBackupsInterval, Value::dictionary({{"Months", Value::integer(1)}}),
       QHVErrorUnknownKey, "Months", ""},
      {"negative interval", QHVHelperMessageSetBackupsInterval, Value::dictionary({{"Minutes", Value::integer(-5)}}),
       QHVErrorWrongType, "Minutes", "integer of at least 1"},
  };
  const platform::Dictionary before = scheduler().settings();
  for (const Refusal& refusal : refusals) {
    platform::ErrorRef error;
    EXPECT_FALSE(client().send(refusal.message, refusal.payload, &error)) << refusal.why;
    expectError(error, QHVErrorDomain, refusal.code);
    if (!error) continue;
    EXPECT_EQ(error->userInfo.get("key"), Value::string(refusal.key)) << refusal.why;
    const platform::Value& expected = error->userInfo.get("expected");
    EXPECT_EQ(expected, *refusal.expected ? Value::string(refusal.expected) : Value()) << refusal.why;
  }
  EXPECT_EQ(scheduler().settings(), before);
}

}  // namespace
}  // namespace testing_support
