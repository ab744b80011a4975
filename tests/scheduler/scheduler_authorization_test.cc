// The rights check of the scheduler: a message that needs rights is carried out
// only with an "auth" that root made for exactly those rights.
#include <random>

#include "scheduler_test_support.h"

namespace testing_support {
namespace {

using platform::Value;

// The catalogue's messages that need rights, and those that need none.
std::vector<QHVHelperMessage> messagesNeedingRights(bool needed) {
  std::shared_ptr<QHVHelperMessager> messager = QHVHelperMessager::init();
  std::vector<QHVHelperMessage> messages;
  for (QHVHelperMessage message = 0; message <= QHVHelperMessageLast; ++message) {
    if (messager->requiresAuthorizationForMessage(message) == needed) messages.push_back(message);
  }
  return messages;
}

platform::Bytes randomBytes(std::size_t count) {
  std::random_device source;
  platform::Bytes bytes(count);
  for (std::uint8_t& byte : bytes) byte = static_cast<std::uint8_t>(source());
  return bytes;
}

// A request for `message` with "auth" set to `auth`.
platform::Dictionary requestWithAuth(QHVHelperMessage message, Value auth) {
  return {{"message", Value::integer(message)}, {"auth", std::move(auth)}};
}

void expectMissingAuthorization(SchedulerClient& client, const platform::XPCObject& reply, QHVHelperMessage message) {
  ASSERT_FALSE(reply.isError());
  expectMessagerError(client.errorOf(reply), LKSMessagerErrorMissingAuthorization, message);
}

class SchedulerAuthorizationWithoutRoot : public PrivateSocketSchedulerTest {};

TEST_F(SchedulerAuthorizationWithoutRoot, EveryMessageThatNeedsRightsIsRefusedWithoutAuth) {
  const platform::Dictionary before = scheduler().settings();
  for (QHVHelperMessage message : messagesNeedingRights(true)) {
    platform::ErrorRef error;
    EXPECT_FALSE(client().sendWithoutAuthorization(message, {}, &error)) << message;
    expectMessagerError(error, LKSMessagerErrorMissingAuthorization, message);
  }
  EXPECT_EQ(scheduler().settings(), before);
}

TEST_F(SchedulerAuthorizationWithoutRoot, ReadingMessagesNeedNoAuth) {
  for (QHVHelperMessage message : messagesNeedingRights(false)) {
    platform::ErrorRef error;
    client().sendWithoutAuthorization(message, {}, &error);
    EXPECT_TRUE(!error || error->domain != LKSMessagerErrorDomain) << message << ": " << error->code;
  }
}

TEST_F(SchedulerAuthorizationWithoutRoot, ForgedShortAndMistypedAuthAreRefused) {
  // Each "auth" names no authorization that root made.
  const std::vector<std::pair<const char*, Value>> forgeries = {
      {"32 random bytes", Value::data(randomBytes(32))},
      {"16 random bytes", Value::data(randomBytes(16))},
      {"nothing", Value::data({})},
      {"text instead of data", Value::string("root")},
  };
  for (const auto& [why, auth] : forgeries) {
    expectMissingAuthorization(client(), client().sendRaw(requestWithAuth(QHVHelperMessageDisable, auth)),
                               QHVHelperMessageDisable);
  }
  EXPECT_EQ(scheduler().settings().get("Disabled"), Value::integer(0));
  for (const RecordedRequest& request : scheduler().requests()) {
    EXPECT_TRUE(request.authPresent);
    EXPECT_EQ(request.authValid, false);
  }
}

class SchedulerAuthorization : public SandboxedSchedulerTest {};

TEST_F(SchedulerAuthorization, AuthMadeByRootIsAccepted) {
  platform::ErrorRef error;
  EXPECT_TRUE(client().send(QHVHelperMessageDisable, {}, &error));
  EXPECT_EQ(error, nullptr);
  EXPECT_EQ(scheduler().settings().get("Disabled"), Value::integer(1));
  const std::vector<RecordedRequest> requests = scheduler().requests();
  ASSERT_EQ(requests.size(), 1u);
  EXPECT_TRUE(requests[0].authPresent);
  EXPECT_EQ(requests[0].authValid, true);
  EXPECT_EQ(requests[0].uid, 0u);
}

TEST_F(SchedulerAuthorization, AuthMustHoldTheRightsOfItsMessage) {
  LKSAuthorizationManager& manager = LKSAuthorizationManager::sharedManager();
  const std::optional<platform::Bytes> uninstall =
      manager.authorizationExternalDataWithRights({Value::string(QHVRightUninstall)}, nullptr);
  ASSERT_TRUE(uninstall);
  expectMissingAuthorization(client(), client().sendRaw(requestWithAuth(QHVHelperMessageDisable, Value::data(*uninstall))),
                             QHVHelperMessageDisable);
  EXPECT_FALSE(client().errorOf(client().sendRaw(requestWithAuth(QHVHelperMessageUninstall, Value::data(*uninstall)))));

  // Either settings right alone suffices for a changing message, but not for uninstalling.
  const std::optional<platform::Bytes> modify2 =
      manager.authorizationExternalDataWithRights({Value::string(QHVRightSettingsModify2)}, nullptr);
  ASSERT_TRUE(modify2);
  EXPECT_FALSE(client().errorOf(client().sendRaw(requestWithAuth(QHVHelperMessageDisable, Value::data(*modify2)))));
  expectMissingAuthorization(client(), client().sendRaw(requestWithAuth(QHVHelperMessageUninstall, Value::data(*modify2))),
                             QHVHelperMessageUninstall);
  EXPECT_EQ(scheduler().settings().get("Disabled"), Value::integer(1));
}

TEST_F(SchedulerAuthorization, AuthRevokedByItsMakerIsRefused) {
  ASSERT_TRUE(client().send(QHVHelperMessageDisable));
  const std::optional<platform::Bytes> form = LKSAuthorizationManager::sharedManager().authorizationExternalDataWithRights(
      QHVHelperMessager::init()->messagerAuthorizationRightsForMessage(
          *LKSMessagerClient::initWithServiceName(QHVHelperServiceName, {}), QHVHelperMessageEnable),
      nullptr);
  ASSERT_TRUE(form);
  LKSAuthorizationManager::sharedManager().invalidate();  // destroys the rights
  expectMissingAuthorization(client(), client().sendRaw(requestWithAuth(QHVHelperMessageEnable, Value::data(*form))),
                             QHVHelperMessageEnable);
  EXPECT_EQ(scheduler().settings().get("Disabled"), Value::integer(1));
}

}  // namespace
}  // namespace testing_support
