// The simulated activities: a kickstarted backup that runs for a while and
// refuses what cannot happen meanwhile, the information reply built from the
// settings and the activity record, and the update on offer.
#include <cmath>

#include "platform/clock.h"
#include "scheduler_test_support.h"

namespace testing_support {
namespace {

using platform::Value;

platform::Date now() { return platform::Clock::current().now(); }
// Whole seconds, as the XML activity record keeps dates.
platform::Date secondsFromNow(double seconds) { return {std::floor(now().sinceReferenceDate) + seconds}; }

class SchedulerActivity : public SandboxedSchedulerTest {
 protected:
  // The information reply's entry for `activity`.
  platform::Dictionary info(const char* activity) {
    const Value reply = client().send(QHVHelperMessageGetInfo);
    const platform::Dictionary* entry = reply.asDictionary() ? reply.asDictionary()->get(activity).asDictionary() : nullptr;
    EXPECT_TRUE(entry) << reply.description();
    return entry ? *entry : platform::Dictionary();
  }
};

TEST_F(SchedulerActivity, KickstartedBackupRunsAndRefusesWhatMustWait) {
  const platform::Date before = now();
  platform::ErrorRef error;
  ASSERT_TRUE(client().send(QHVHelperMessageKickstartBackup, {}, &error)) << LKSError::localizedDescriptionForError(error);
  const platform::Dictionary backups = info("backups");
  EXPECT_EQ(backups.get("Running"), Value::boolean(true));
  ASSERT_TRUE(backups.get("LastTry").asDate());
  EXPECT_GE(backups.get("LastTry").asDate()->sinceReferenceDate, std::floor(before.sinceReferenceDate));
  EXPECT_FALSE(backups.contains("LastRun"));
  EXPECT_EQ(info("snapshots").get("LastRun"), backups.get("LastTry"));  // a backup starts with a local snapshot

  scheduler().setAvailableUpdate("5.3.0", 230);
  for (const QHVHelperMessage busy : {QHVHelperMessageKickstartBackup, QHVHelperMessageInstallUpdate,
                                      QHVHelperMessageUninstall}) {
    error = nullptr;
    EXPECT_FALSE(client().send(busy, {}, &error)) << busy;
    expectError(error, QHVErrorDomain, QHVErrorBackupRunning);
  }
}

TEST_F(SchedulerActivity, FinishedBackupBecomesTheLastRun) {
  const platform::Date tried = secondsFromNow(-120);
  const platform::Date ended = secondsFromNow(-60);
  scheduler().setActivity({{"backups", Value::dictionary({{"LastTry", Value::date(tried)},
                                                          {"RunningUntil", Value::date(ended)}})}});
  const platform::Dictionary backups = info("backups");
  EXPECT_EQ(backups.get("Running"), Value::boolean(false));
  EXPECT_EQ(backups.get("LastRun"), Value::date(ended));
  EXPECT_EQ(backups.get("LastTry"), Value::date(tried));
  EXPECT_FALSE(scheduler().activity().get("backups").asDictionary()->contains("RunningUntil"));
  EXPECT_TRUE(client().send(QHVHelperMessageKickstartBackup));
}

TEST_F(SchedulerActivity, InfoSaysWhyAnActivityWaits) {
  // A setting, its value, and the reason each activity then gives ("" when it has a next run).
  struct Case {
    const char* key;
    Value value;
    const char* backups;
    const char* snapshots;
    const char* updates;
  };
  const std::vector<Case> cases = {
      {"Disabled", Value::integer(1), "Scheduler is disabled", "Scheduler is disabled", "Scheduler is disabled"},
      {"Backups", Value::boolean(false), "Backups are disabled", "", ""},
      {"Snapshots", Value::boolean(false), "", "Snapshots are disabled", ""},
      {"UpdatesEnabled", Value::boolean(false), "", "", "Updates are disabled"},
      {"BackupsMode", Value::string("WhenInactive"), "Waiting for user inactivity", "", ""},
      {"BackupsCalendarIntervals", Value::array({}), "", "", ""},
  };
  const platform::Dictionary defaults = scheduler().settings();
  for (const Case& entry : cases) {
    scheduler().setSettings(defaults);
    scheduler().setSetting(entry.key, entry.value);
    const std::pair<const char*, const char*> expected[] = {
        {"backups", entry.backups}, {"snapshots", entry.snapshots}, {"updates", entry.updates}};
    for (const auto& [activity, reason] : expected) {
      const platform::Dictionary got = info(activity);
      EXPECT_EQ(got.get("DeferReason"), *reason ? Value::string(reason) : Value()) << entry.key << " " << activity;
      EXPECT_EQ(got.contains("NextRun"), !*reason) << entry.key << " " << activity;
    }
  }
  scheduler().setSettings(defaults);
  scheduler().setSetting("BackupsMode", Value::string("CalendarIntervals"));
  scheduler().setSetting("BackupsCalendarIntervals", Value::array({}));
  EXPECT_EQ(info("backups").get("DeferReason"), Value::string("No calendar intervals are set"));
}

TEST_F(SchedulerActivity, NextRunsFollowTheSettings) {
  const platform::Date lastRun = secondsFromNow(-1800);
  const platform::Date lastTry = secondsFromNow(-3600);
  scheduler().setActivity({{"backups", Value::dictionary({{"LastRun", Value::date(lastRun)}})},
                           {"updates", Value::dictionary({{"LastTry", Value::date(lastTry)}})}});
  scheduler().setSetting("BackupsInterval", Value::dictionary({{"Hours", Value::integer(2)}}));
  EXPECT_EQ(info("backups").get("NextRun"), Value::date({lastRun.sinceReferenceDate + 7200}));
  EXPECT_EQ(info("updates").get("NextRun"), Value::date({lastTry.sinceReferenceDate + 86'400}));

  // Snapshots come at the next whole hour, calendar backups at their time of day (UTC).
  const double unixNow = now().unixTime();
  const std::optional<platform::Date> snapshot = info("snapshots").get("NextRun").asDate();
  ASSERT_TRUE(snapshot);
  EXPECT_EQ(std::fmod(snapshot->unixTime(), 3600), 0);
  EXPECT_GT(snapshot->unixTime(), unixNow - 1);
  EXPECT_LE(snapshot->unixTime(), unixNow + 3600);

  scheduler().setSetting("BackupsMode", Value::string("CalendarIntervals"));
  scheduler().setSetting("BackupsCalendarIntervals",
                         Value::array({Value::dictionary({{"Hour", Value::integer(2)}, {"Minute", Value::integer(30)}})}));
  const std::optional<platform::Date> calendar = info("backups").get("NextRun").asDate();
  ASSERT_TRUE(calendar);
  EXPECT_EQ(std::fmod(calendar->unixTime(), 86'400), 2 * 3600 + 30 * 60);
  EXPECT_GT(calendar->unixTime(), unixNow - 1);
  EXPECT_LE(calendar->unixTime(), unixNow + 86'400);
}

TEST_F(SchedulerActivity, UpdateOnOfferIsReportedAndInstalledOnce) {
  platform::ErrorRef error;
  EXPECT_FALSE(client().send(QHVHelperMessageCheckForUpdates, {}, &error));
  expectError(error, LKSUpdaterErrorDomain, LKSUpdaterErrorAlreadyUpToDate);

  scheduler().setAvailableUpdate("5.3.0", 230);
  EXPECT_EQ(client().send(QHVHelperMessageCheckForUpdates),
            Value::dictionary({{"HumanVersion", Value::string("5.3.0")}, {"Version", Value::integer(230)}}));
  error = nullptr;
  EXPECT_TRUE(client().send(QHVHelperMessageInstallUpdate, {}, &error));
  EXPECT_EQ(error, nullptr);

  error = nullptr;
  EXPECT_FALSE(client().send(QHVHelperMessageCheckForUpdates, {}, &error));
  expectError(error, LKSUpdaterErrorDomain, LKSUpdaterErrorAlreadyUpToDate);
  error = nullptr;
  EXPECT_FALSE(client().send(QHVHelperMessageInstallUpdate, {}, &error));
  expectError(error, LKSUpdaterErrorDomain, LKSUpdaterErrorAlreadyUpToDate);
  const platform::Dictionary updates = info("updates");
  EXPECT_TRUE(updates.get("LastRun").asDate());
  EXPECT_TRUE(updates.get("LastTry").asDate());
}

class SchedulerInstantBackup : public SchedulerActivity {
 protected:
  DevSchedulerOptions options() const override { return {"", 0.0}; }
};

TEST_F(SchedulerInstantBackup, BackupOfNoLengthIsOverAtOnce) {
  ASSERT_TRUE(client().send(QHVHelperMessageKickstartBackup));
  ASSERT_TRUE(client().send(QHVHelperMessageKickstartBackup));
  const platform::Dictionary backups = info("backups");
  EXPECT_EQ(backups.get("Running"), Value::boolean(false));
  EXPECT_EQ(backups.get("LastRun"), backups.get("LastTry"));
}

}  // namespace
}  // namespace testing_support
