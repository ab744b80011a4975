// What the development scheduler's tests share: a client that talks to it as
// the tool does (or with requests built by hand), and two fixtures. One runs
// the scheduler in a sandbox as root, where authorizations can be made; the
// other in a private socket directory, for any user, where none can be.
#pragma once

#include <gtest/gtest.h>

#include <memory>
#include <ostream>
#include <optional>

#include "authorization/authorization_manager.h"
#include "errors/error_domains.h"
#include "errors/lks_error.h"
#include "harness/dev_scheduler.h"
#include "harness/end_to_end.h"
#include "harness/temp_dir.h"
#include "messaging/helper_messager.h"
#include "messaging/xpc_client.h"
#include "platform/xpc_socket.h"

namespace platform {
// Values in failure messages: their description.
inline void PrintTo(const Value& value, std::ostream* out) { *out << value.description(); }
}  // namespace platform

namespace testing_support {

class SchedulerClient {
 public:
  SchedulerClient()
      : messager_(QHVHelperMessager::init()),
        unauthorized_(LKSMessagerClient::initWithServiceName(QHVHelperServiceName, {})),
        raw_(LKSXPCClient::initWithServiceName(QHVHelperServiceName)) {}
  // An open connection and its client keep each other alive until cancelled.
  ~SchedulerClient() {
    messager_->cancel();
    unauthorized_->cancel();
    raw_->cancel();
  }
  SchedulerClient(const SchedulerClient&) = delete;
  SchedulerClient& operator=(const SchedulerClient&) = delete;

  // As the tool sends: with "auth" when the message needs rights.
  platform::Value send(QHVHelperMessage message, const platform::Value& payload = {},
                       platform::ErrorRef* error = nullptr) {
    return messager_->sendSynchronousMessage(message, payload, error);
  }
  // Without "auth", whatever the message.
  platform::Value sendWithoutAuthorization(QHVHelperMessage message, const platform::Value& payload = {},
                                           platform::ErrorRef* error = nullptr) {
    return unauthorized_->sendSynchronousMessage(message, payload, error);
  }
  // `request` as it is: the reply dictionary, or the connection's error.
  platform::XPCObject sendRaw(const platform::Dictionary& request) { return raw_->sendSynchronousXPCMessage(request); }
  // The error that a raw reply carries; null when it carries none.
  platform::ErrorRef errorOf(const platform::XPCObject& reply) { return unauthorized_->errorForMessage(0, reply.asDictionary()); }

 private:
  std::shared_ptr<QHVHelperMessager> messager_;
  std::shared_ptr<LKSMessagerClient> unauthorized_;
  std::shared_ptr<LKSXPCClient> raw_;
};

// Expects `error` to be of `domain` with `code`.
inline void expectError(const platform::ErrorRef& error, const char* domain, std::int64_t code) {
  ASSERT_NE(error, nullptr) << "no error";
  EXPECT_EQ(error->domain, domain);
  EXPECT_EQ(error->code, code) << LKSError::localizedDescriptionForError(error);
}

// Expects `error` to be the messager error `code` about `message`.
inline void expectMessagerError(const platform::ErrorRef& error, std::int64_t code, QHVHelperMessage message) {
  expectError(error, LKSMessagerErrorDomain, code);
  if (error) {
    EXPECT_EQ(error->userInfo.get("message"), platform::Value::integer(message));
  }
}

// A scheduler in a fresh sandbox, serving where the tool looks for it; the
// test process is root there, so sends that need rights carry a valid "auth".
class SandboxedSchedulerTest : public EndToEndTest {
 protected:
  void SetUp() override {
    EndToEndTest::SetUp();
    if (IsSkipped()) return;
    // An authorization held from an earlier sandbox has its grants there.
    LKSAuthorizationManager::sharedManager().invalidate();
    scheduler_.emplace(options());
    client_.emplace();
  }
  void TearDown() override {
    client_.reset();
    scheduler_.reset();
    EndToEndTest::TearDown();
  }
  virtual DevSchedulerOptions options() const { return {}; }

  DevScheduler& scheduler() { return *scheduler_; }
  SchedulerClient& client() { return *client_; }

 private:
  std::optional<DevScheduler> scheduler_;
  std::optional<SchedulerClient> client_;
};

// A scheduler serving in a private socket directory, for any user.
class PrivateSocketSchedulerTest : public ::testing::Test {
 protected:
  void SetUp() override {
    platform::setXPCSocketDirectoryForTesting(sockets_.path());
    scheduler_.emplace(DevSchedulerOptions{sockets_.path(), std::nullopt});
    client_.emplace();
  }
  void TearDown() override {
    client_.reset();
    scheduler_.reset();
    platform::setXPCSocketDirectoryForTesting("");
  }

  const std::string& socketDirectory() const { return sockets_.path(); }
  std::string socketPath() const { return sockets_.file(QHVHelperServiceName); }
  DevScheduler& scheduler() { return *scheduler_; }
  SchedulerClient& client() { return *client_; }

 private:
  TempDir sockets_;
  std::optional<DevScheduler> scheduler_;
  std::optional<SchedulerClient> client_;
};

}  // namespace testing_support
