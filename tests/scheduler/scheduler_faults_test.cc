// Faults injected for tests, as the tool's own messaging classes see them:
// given replies and errors, replies that do not decode, and connections that
// end without a reply or with a broken frame.
#include "scheduler/state_files.h"
#include "scheduler_test_support.h"

namespace testing_support {
namespace {

using platform::Value;

class SchedulerFaults : public PrivateSocketSchedulerTest {};

TEST_F(SchedulerFaults, GivenPayloadIsTheReply) {
  const Value odd = Value::dictionary({{"Mode", Value::integer(7)}, {"Extra", Value::array({Value::string("x")})}});
  scheduler().setFault(QHVHelperMessageGetBackupsMode, SchedulerFault::replyPayload(odd));
  EXPECT_EQ(client().send(QHVHelperMessageGetBackupsMode), odd);
  // The reply need not even be a dictionary.
  scheduler().setFault(QHVHelperMessageGetBackupsMode, SchedulerFault::replyPayload(Value::array({})));
  EXPECT_EQ(client().send(QHVHelperMessageGetBackupsMode), Value::array({}));
  // Other messages are answered as ever.
  EXPECT_EQ(client().send(QHVHelperMessageGetUpdatesMode), Value::dictionary({{"Mode", Value::string("std")}}));
}

TEST_F(SchedulerFaults, GivenErrorArrivesWithItsChain) {
  const platform::ErrorRef cause =
      platform::Error::make(LKSUpdaterErrorDomain, LKSUpdaterErrorFetchInfo, {{"status-code", Value::integer(503)}});
  const platform::ErrorRef error =
      platform::Error::make(QHVErrorDomain, QHVErrorPeersConnected, {{platform::NSUnderlyingErrorKey, Value::error(cause)}});
  scheduler().setFault(QHVHelperMessageCheckForUpdates, SchedulerFault::replyError(error));
  platform::ErrorRef received;
  EXPECT_FALSE(client().send(QHVHelperMessageCheckForUpdates, {}, &received));
  ASSERT_NE(received, nullptr);
  EXPECT_EQ(*received, *error);
}

TEST_F(SchedulerFaults, RepliesThatDoNotDecodeAndLostConnections) {
  // Each fault, and the messager error the client makes of it.
  const std::vector<std::pair<SchedulerFault, std::int64_t>> faults = {
      {SchedulerFault::unparsablePayload(), LKSMessagerErrorDeserializeReply},
      {SchedulerFault::unarchivableError(), LKSMessagerErrorUnarchiveReplyError},
      {SchedulerFault::garbageError(), LKSMessagerErrorUnarchiveReplyError},
      {SchedulerFault::closeConnection(), LKSMessagerErrorServiceDisappeared},
      {SchedulerFault::brokenFrame(), LKSMessagerErrorServiceUnavailable},
  };
  for (const auto& [fault, code] : faults) {
    SCOPED_TRACE(Value::dictionary(fault.entry()).description());
    SchedulerClient fresh;  // a connection that a broken frame made invalid stays so
    scheduler().setFault(QHVHelperMessageGetSettings, fault);
    platform::ErrorRef error;
    EXPECT_FALSE(fresh.send(QHVHelperMessageGetSettings, {}, &error));
    expectMessagerError(error, code, QHVHelperMessageGetSettings);
  }
  // Taken back, the fault is gone from the next request on.
  scheduler().clearFault(QHVHelperMessageGetSettings);
  SchedulerClient fresh;
  EXPECT_EQ(fresh.send(QHVHelperMessageGetSettings), Value::dictionary(scheduler().settings()));
}

TEST_F(SchedulerFaults, FaultTakesThePlaceOfTheChecks) {
  // Even a request that would be refused for want of rights gets the fault; it is recorded all the same.
  scheduler().setFault(QHVHelperMessageDisable, SchedulerFault::replyPayload(Value::dictionary({})));
  platform::ErrorRef error;
  EXPECT_EQ(client().sendWithoutAuthorization(QHVHelperMessageDisable, {}, &error), Value::dictionary({}));
  EXPECT_EQ(error, nullptr);
  EXPECT_EQ(scheduler().settings().get("Disabled"), Value::integer(0));
  ASSERT_EQ(scheduler().requests().size(), 1u);
  EXPECT_EQ(scheduler().requests()[0].message, QHVHelperMessageDisable);
}

TEST_F(SchedulerFaults, FaultsThatMeanNothingAreIgnored) {
  // Each faults file is reported in the log and answered as if there were no fault.
  const std::vector<std::pair<const char*, std::string>> files = {
      {"not a property list", "<plist"},
      {"root not a dictionary", "(1, 2)"},
      {"unknown kind", "{\"1\" = {Kind = explode;};}"},
      {"error without domain", "{\"1\" = {Kind = \"reply-error\"; Code = 1;};}"},
      {"entry not a dictionary", "{\"1\" = close;}"},
  };
  TempDir scratch;
  for (const auto& [why, contents] : files) {
    scratch.write("faults", contents);
    ASSERT_EQ(::rename(scratch.file("faults").c_str(), scheduler().statePath(dev_scheduler::kFaultsFile).c_str()), 0);
    EXPECT_EQ(client().send(QHVHelperMessageGetSettings), Value::dictionary(scheduler().settings())) << why;
  }
  EXPECT_NE(scheduler().log().find("bad fault"), std::string::npos) << scheduler().log();
}

}  // namespace
}  // namespace testing_support
