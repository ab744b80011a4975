// How the scheduler answers: settings refused with the key at fault, what a
// running backup makes wait, and the faults injected for tests as the tool's
// own messaging classes see them.
#include "scheduler/state_files.h"
#include "scheduler_test_support.h"

namespace testing_support {
namespace {

using platform::Value;
namespace files = dev_scheduler;

class SchedulerAnswers : public SchedulerClientTest {};

TEST_F(SchedulerAnswers, SettingsAreRefusedWithTheKeyAtFault) {
  const platform::Dictionary before = scheduler().settings();
  // The stored settings with `key` set to `value`, or left out when it is absent.
  const auto with = [&before](const char* key, Value value) {
    platform::Dictionary settings = before;
    value ? settings.set(key, std::move(value)) : settings.erase(key);
    return Value::dictionary(std::move(settings));
  };
  const char* const modes = "one of WhenInactive, Interval, CalendarIntervals";
  // Why, the message, its payload, and the error's code, "key" and "expected" ("" when it carries none).
  const std::tuple<const char*, QHVHelperMessage, Value, std::int64_t, const char*, const char*> refusals[] = {
      {"unknown key", QHVHelperMessageSetSettings, with("Backup", Value::boolean(true)), QHVErrorUnknownKey, "Backup", ""},
      {"boolean as text", QHVHelperMessageSetSettings, with("Backups", Value::string("yes")), QHVErrorWrongType, "Backups", "boolean"},
      {"required key missing", QHVHelperMessageSetSettings, with("Snapshots", {}), QHVErrorMissingValue, "Snapshots", ""},
      {"root is an array", QHVHelperMessageSetSettings, Value::array({}), QHVErrorWrongType, "root", "dictionary"},
      {"no payload at all", QHVHelperMessageSetSettings, {}, QHVErrorMissingValue, "Disabled", ""},
      {"mode outside the list", QHVHelperMessageSetSettings, with("BackupsMode", Value::string("Sometimes")),
       QHVErrorWrongType, "BackupsMode", modes},
      {"calendar hour 24", QHVHelperMessageSetSettings,
       with("BackupsCalendarIntervals", Value::array({Value::dictionary({{"Hour", Value::integer(24)}})})),
       QHVErrorWrongType, "Hour", "integer from 0 to 23"},
      {"extra entry", QHVHelperMessageSetUpdatesEnabled,
       Value::dictionary({{"Enabled", Value::boolean(true)}, {"Force", Value::boolean(true)}}), QHVErrorUnknownKey, "Force", ""},
      {"no payload for a set", QHVHelperMessageSetDryRun, {}, QHVErrorMissingValue, "Enabled", ""},
      {"interval of two units", QHVHelperMessageSetBackupsInterval,
       Value::dictionary({{"Hours", Value::integer(1)}, {"Days", Value::integer(1)}}), QHVErrorWrongType,
       "BackupsInterval", "exactly one of Minutes, Hours, Days, Weeks"},
      {"interval of zero minutes", QHVHelperMessageSetBackupsInterval, Value::dictionary({{"Minutes", Value::integer(0)}}),
       QHVErrorWrongType, "Minutes", "integer of at least 1"},
  };
  for (const auto& [why, message, payload, code, key, expected] : refusals) {
    SCOPED_TRACE(why);
    platform::ErrorRef error;
    EXPECT_FALSE(send(message, payload, &error));
    expectError(error, QHVErrorDomain, code);
    if (!error) continue;
    EXPECT_EQ(error->userInfo.get("key"), Value::string(key));
    EXPECT_EQ(error->userInfo.get("expected"), *expected ? Value::string(expected) : Value());
  }
  EXPECT_EQ(scheduler().settings(), before);
}

TEST_F(SchedulerAnswers, RunningBackupRefusesWhatMustWait) {
  ASSERT_TRUE(send(QHVHelperMessageKickstartBackup));
  scheduler().setAvailableUpdate("5.3.0", 230);
  for (const QHVHelperMessage busy : {QHVHelperMessageKickstartBackup, QHVHelperMessageInstallUpdate, QHVHelperMessageUninstall}) {
    platform::ErrorRef error;
    EXPECT_FALSE(send(busy, {}, &error)) << busy;
    expectError(error, QHVErrorDomain, QHVErrorBackupRunning);
  }
}

TEST_F(SchedulerAnswers, EachFaultAsTheClientSeesIt) {
  const Value odd = Value::array({Value::string("not a dictionary")});
  // Each fault, and what the client makes of it: the reply, or else the messager error's code.
  const std::tuple<SchedulerFault, Value, std::int64_t> faults[] = {
      {replyPayloadFault(odd), odd, 0},
      {faultOfKind(files::kFaultUnparsablePayload), {}, LKSMessagerErrorDeserializeReply},
      {faultOfKind(files::kFaultUnarchivableError), {}, LKSMessagerErrorUnarchiveReplyError},
      {faultOfKind(files::kFaultGarbageError), {}, LKSMessagerErrorUnarchiveReplyError},
      {faultOfKind(files::kFaultClose), {}, LKSMessagerErrorServiceDisappeared},
      {faultOfKind(files::kFaultBrokenFrame), {}, LKSMessagerErrorServiceUnavailable},
  };
  for (const auto& [fault, reply, code] : faults) {
    SCOPED_TRACE(Value::dictionary(fault).description());
    reconnect();
    scheduler().setFault(QHVHelperMessageGetSettings, fault);
    platform::ErrorRef error;
    EXPECT_EQ(send(QHVHelperMessageGetSettings, {}, &error), reply);
    if (reply) {
      EXPECT_EQ(error, nullptr);
    } else {
      expectError(error, LKSMessagerErrorDomain, code, QHVHelperMessageGetSettings);
    }
  }
  // Taken back, the fault is gone.
  reconnect();
  scheduler().clearFaults();
  EXPECT_EQ(send(QHVHelperMessageGetSettings), Value::dictionary(scheduler().settings()));

  // A given error arrives whole, even for a request that would be refused for want of "auth".
  const platform::ErrorRef cause =
      platform::Error::make(LKSUpdaterErrorDomain, LKSUpdaterErrorFetchInfo, {{"status-code", Value::integer(503)}});
  const platform::ErrorRef error =
      platform::Error::make(QHVErrorDomain, QHVErrorPeersConnected, {{platform::NSUnderlyingErrorKey, Value::error(cause)}});
  scheduler().setFault(QHVHelperMessageDisable, replyErrorFault(error));
  platform::ErrorRef received;
  EXPECT_FALSE(sendWithoutAuthorization(QHVHelperMessageDisable, &received));
  ASSERT_NE(received, nullptr);
  EXPECT_EQ(*received, *error);
  EXPECT_EQ(scheduler().settings().get("Disabled"), Value::integer(0));
}

}  // namespace
}  // namespace testing_support
