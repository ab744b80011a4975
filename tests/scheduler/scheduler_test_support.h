// What the development scheduler's tests share: a fixture that runs it in a
// sandbox and talks to it as the tool does, or with requests built by hand.
#pragma once

#include <memory>
#include <optional>
#include <ostream>

#include "authorization/authorization_manager.h"
#include "errors/error_domains.h"
#include "errors/lks_error.h"
#include "harness/dev_scheduler.h"
#include "messaging/helper_messager.h"
#include "messaging/xpc_client.h"

namespace platform {
// Values in failure messages: their description.
inline void PrintTo(const Value& value, std::ostream* out) { *out << value.description(); }
}  // namespace platform

namespace testing_support {

// Expects `error` to be of `domain` with `code` and, when given, about `message`.
inline void expectError(const platform::ErrorRef& error, const char* domain, std::int64_t code,
                        std::optional<std::int64_t> message = std::nullopt) {
  ASSERT_NE(error, nullptr) << "no error";
  EXPECT_EQ(error->domain, domain);
  EXPECT_EQ(error->code, code) << LKSError::localizedDescriptionForError(error);
  if (message) {
    EXPECT_EQ(error->userInfo.get("message"), platform::Value::integer(*message));
  }
}

// The test process is root in the sandbox, so sends that need rights carry a valid "auth".
class SchedulerClientTest : public SchedulerTest {
 protected:
  void SetUp() override {
    SchedulerTest::SetUp();
    LKSAuthorizationManager::sharedManager().invalidate();  // its grants were an earlier sandbox's
    reconnect();
  }
  void TearDown() override {
    disconnect();
    SchedulerTest::TearDown();
  }

  // Fresh clients: a connection that was made invalid stays so.
  void reconnect() {
    disconnect();
    messager_ = QHVHelperMessager::init();
    unauthorized_ = LKSMessagerClient::initWithServiceName(QHVHelperServiceName, {});
    raw_ = LKSXPCClient::initWithServiceName(QHVHelperServiceName);
  }

  // As the tool sends: with "auth" when the message needs rights.
  platform::Value send(QHVHelperMessage message, const platform::Value& payload = {},
                       platform::ErrorRef* error = nullptr) {
    return messager_->sendSynchronousMessage(message, payload, error);
  }
  // Without "auth", whatever the message.
  platform::Value sendWithoutAuthorization(QHVHelperMessage message, platform::ErrorRef* error) {
    return unauthorized_->sendSynchronousMessage(message, {}, error);
  }
  // `request` as it is; the error its reply carries, null when none.
  platform::ErrorRef sendRaw(const platform::Dictionary& request) {
    const platform::XPCObject reply = raw_->sendSynchronousXPCMessage(request);
    EXPECT_FALSE(reply.isError()) << "the connection failed";
    return unauthorized_->errorForMessage(0, reply.asDictionary());
  }

 private:
  // An open connection and its client keep each other alive until cancelled.
  void disconnect() {
    if (!messager_) return;
    messager_->cancel();
    unauthorized_->cancel();
    raw_->cancel();
  }

  std::shared_ptr<QHVHelperMessager> messager_;
  std::shared_ptr<LKSMessagerClient> unauthorized_;
  std::shared_ptr<LKSXPCClient> raw_;
};

}  // namespace testing_support
