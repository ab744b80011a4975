#include "messaging/helper_messager.h"

#include <gtest/gtest.h>

#include <set>

namespace {

using platform::Array;
using platform::Value;

const Array kModify = {Value::string("com.larkspan.quillhaven.settings.modify-1"),
                       Value::string("com.larkspan.quillhaven.settings.modify-2")};
const Array kUninstall = {Value::string("com.larkspan.quillhaven.uninstall")};

TEST(HelperMessager, RightsOfEveryMessage) {
  const std::set<std::int64_t> none = {0, 1, 5, 7, 8, 9, 10, 15, 16, 18, 19, 20, 24, 26};
  const std::set<std::int64_t> modify = {2, 3, 4, 6, 11, 12, 13, 14, 17, 21, 22, 23, 25, 27};
  auto messager = QHVHelperMessager::init();
  auto client = LKSMessagerClient::initWithServiceName("unused", messager);
  for (std::int64_t message = 0; message <= 28; ++message) {
    const Array rights = messager->messagerAuthorizationRightsForMessage(*client, message);
    if (none.contains(message)) {
      EXPECT_TRUE(rights.empty()) << message;
    } else if (modify.contains(message)) {
      EXPECT_EQ(rights, kModify) << message;
    } else {
      EXPECT_EQ(message, 28);
      EXPECT_EQ(rights, kUninstall);
    }
    EXPECT_EQ(messager->requiresAuthorizationForMessage(message), !rights.empty()) << message;
  }
  // Outside the catalogue nothing is asked for.
  EXPECT_TRUE(messager->messagerAuthorizationRightsForMessage(*client, -1).empty());
  EXPECT_TRUE(messager->messagerAuthorizationRightsForMessage(*client, 29).empty());
}

TEST(HelperMessager, OneSharedMessagerForTheScheduler) {
  QHVHelperMessager& shared = QHVHelperMessager::sharedMessager();
  EXPECT_EQ(&shared, &QHVHelperMessager::sharedMessager());
  EXPECT_FALSE(shared.requiresAuthorizationForMessage(QHVHelperMessageGetSettings));
  EXPECT_TRUE(shared.requiresAuthorizationForMessage(QHVHelperMessageInstallUpdate));
}

}  // namespace
