// The catalogue of messages and the scheduler messager that hands it to its
// client: the rights each message needs.
#include "messaging/helper_messager.h"

#include <gtest/gtest.h>

namespace {

using platform::Value;

TEST(HelperMessager, EveryRowSitsAtItsNumberAndBothAskersGetItsRights) {
  // Message n needs: '-' nothing, 'm' the two settings rights, 'u' the uninstall right.
  constexpr std::string_view kCatalogue = "--mmm-m----mmmm--m---mmm-m-mu";
  ASSERT_EQ(QHVMessageCatalogue.size(), kCatalogue.size());
  const platform::Array modify = {Value::string("com.larkspan.quillhaven.settings.modify-1"),
                                  Value::string("com.larkspan.quillhaven.settings.modify-2")};
  const platform::Array uninstall = {Value::string("com.larkspan.quillhaven.uninstall")};
  QHVHelperMessager& messager = QHVHelperMessager::sharedMessager();
  EXPECT_EQ(&messager, &QHVHelperMessager::sharedMessager());
  auto client = LKSMessagerClient::initWithServiceName("unused", {});
  for (std::int64_t message = -1; message <= 29; ++message) {
    const bool listed = message >= 0 && message < static_cast<std::int64_t>(kCatalogue.size());
    const char kind = listed ? kCatalogue[static_cast<std::size_t>(message)] : '-';  // none outside the catalogue
    if (listed) {
      EXPECT_EQ(QHVMessageCatalogue[static_cast<std::size_t>(message)].message, message);
    }
    const platform::Array expected = kind == 'm' ? modify : kind == 'u' ? uninstall : platform::Array();
    EXPECT_EQ(QHVAuthorizationRightsForMessage(message), expected) << message;
    EXPECT_EQ(messager.messagerAuthorizationRightsForMessage(*client, message), expected) << message;
    EXPECT_EQ(messager.requiresAuthorizationForMessage(message), kind != '-') << message;
  }
}

}  // namespace
