// Making an error logs it once: the whole chain's line, at the error's level,
// in the system log in use and in the log file.
#include <gtest/gtest.h>

#include "errors/lks_error.h"
#include "log/log_test_fixture.h"

namespace log_testing {
namespace {

using platform::ErrorRef;
using platform::Value;

class ErrorLoggingTest : public LogFacilityTest {};

TEST_F(ErrorLoggingTest, ReturnsTheErrorExactlyAsGiven) {
  init();
  const platform::Dictionary userInfo{{"key", Value::string("BackupInterval")}, {"expected", Value::string("NSNumber")}};
  const ErrorRef error = LKSError::errorWithDomain(QHVErrorDomain, QHVErrorWrongType, userInfo);
  ASSERT_TRUE(error);
  EXPECT_EQ(*error, *platform::Error::make(QHVErrorDomain, QHVErrorWrongType, userInfo));
}

TEST_F(ErrorLoggingTest, UnifiedSystemGetsOneEntryOfTheErrorsLevelBesideTheFile) {
  init(/*unified=*/true);
  LKSError::errorWithDomain(LKSAuthorizationErrorDomain, LKSAuthorizationErrorUserCanceled,
                            {{"rights", Value::array({Value::string("com.larkspan.quillhaven.uninstall")})}});
  const std::vector<UnifiedEntry> entries = unified_.entries();
  ASSERT_EQ(entries.size(), 1u);
  EXPECT_EQ(entries[0].log, lks_log);
  EXPECT_EQ(entries[0].type, LKSLogLevelInfo);
  EXPECT_EQ(entries[0].message, "User canceled authentication.");
  EXPECT_TRUE(legacy_.entries().empty());
  EXPECT_EQ(readLog("ctl.log"), expectedLine("User canceled authentication."));
}

TEST_F(ErrorLoggingTest, OlderSystemsGetOneLegacyEntryBesideTheFile) {
  init(/*unified=*/false);
  // Info and default are warnings in the legacy log, error is an error.
  LKSError::errorWithDomain(LKSAuthorizationErrorDomain, LKSAuthorizationErrorUserCanceled, {});
  LKSError::errorWithDomain(LKSMessagerErrorDomain, LKSMessagerErrorServiceDisappeared,
                            {{"service", Value::string("com.larkspan.quillhaven.scheduler")}});
  LKSError::errorWithDomain(LKSSpawnerErrorDomain, LKSSpawnerErrorExitStatus,
                            {{"tool", Value::string("/bin/sh")}, {"exit-status", Value::integer(2)}});
  const std::vector<LegacyEntry> entries = legacy_.entries();
  ASSERT_EQ(entries.size(), 3u);
  const LegacyEntry expected[] = {
      {"com.larkspan.quillhaven", "Warning", "User canceled authentication."},
      {"com.larkspan.quillhaven", "Warning", "The service disappeared (com.larkspan.quillhaven.scheduler)."},
      {"com.larkspan.quillhaven", "Error", "/bin/sh exited with status 2."},
  };
  for (std::size_t i = 0; i < entries.size(); ++i) {
    EXPECT_EQ(entries[i].facility, expected[i].facility);
    EXPECT_EQ(entries[i].level, expected[i].level) << expected[i].message;
    EXPECT_EQ(entries[i].message, expected[i].message);
  }
  EXPECT_TRUE(unified_.entries().empty());
  EXPECT_EQ(readLog("ctl.log"), expectedLine(expected[0].message) + expectedLine(expected[1].message) +
                                    expectedLine(expected[2].message));
}

TEST_F(ErrorLoggingTest, AnOuterErrorLogsTheWholeChainAgainAtItsOwnLevel) {
  init();
  const ErrorRef canceled =
      LKSError::errorWithDomain(LKSAuthorizationErrorDomain, LKSAuthorizationErrorUserCanceled, {});
  LKSError::errorWithDomain(LKSMessagerErrorDomain, LKSMessagerErrorAuthorize,
                            {{"message", Value::integer(3)}, {platform::NSUnderlyingErrorKey, Value::error(canceled)}});
  const std::vector<UnifiedEntry> entries = unified_.entries();
  ASSERT_EQ(entries.size(), 2u);
  EXPECT_EQ(entries[0].type, LKSLogLevelInfo);
  EXPECT_EQ(entries[0].message, "User canceled authentication.");
  EXPECT_EQ(entries[1].type, LKSLogLevelError);
  EXPECT_EQ(entries[1].message, "Could not authorize message (3). User canceled authentication.");
  EXPECT_EQ(readLog("ctl.log"), expectedLine("User canceled authentication.") +
                                    expectedLine("Could not authorize message (3). User canceled authentication."));
}

TEST_F(ErrorLoggingTest, TheTextIsLoggedAsTextNeverAsAFormat) {
  init();
  LKSError::errorWithDomain(QHVErrorDomain, QHVErrorUnknownKey, {{"key", Value::string("%@ %s %d %n 100%")}});
  const std::vector<UnifiedEntry> entries = unified_.entries();
  ASSERT_EQ(entries.size(), 1u);
  EXPECT_EQ(entries[0].message, "Unknown key: '%@ %s %d %n 100%'.");
  EXPECT_EQ(readLog("ctl.log"), expectedLine("Unknown key: '%@ %s %d %n 100%'."));
}

TEST_F(ErrorLoggingTest, ErrorsMadeBeforeTheFacilityIsSetUpAreMadeButNotLogged) {
  const ErrorRef error = LKSError::errorWithDomain(QHVErrorDomain, QHVErrorBackupRunning, {});
  ASSERT_TRUE(error);
  EXPECT_EQ(error->code, QHVErrorBackupRunning);
  EXPECT_TRUE(unified_.entries().empty());
  EXPECT_TRUE(legacy_.entries().empty());
  init();
  EXPECT_EQ(readLog("ctl.log"), "");
}

}  // namespace
}  // namespace log_testing
