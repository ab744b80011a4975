// The scheduler messager's catalogue: the rights each message needs.
#include "messaging/helper_messager.h"

#include <gtest/gtest.h>

namespace {

using platform::Value;

TEST(HelperMessager, RightsOfEveryMessage) {
  // Message n needs: '-' nothing, 'm' the two settings rights, 'u' the uninstall right.
  constexpr std::string_view kCatalogue = "--mmm-m----mmmm--m---mmm-m-mu";
  const platform::Array modify = {Value::string("com.larkspan.quillhaven.settings.modify-1"),
                                  Value::string("com.larkspan.quillhaven.settings.modify-2")};
  const platform::Array uninstall = {Value::string("com.larkspan.quillhaven.uninstall")};
  QHVHelperMessager& messager = QHVHelperMessager::sharedMessager();
  EXPECT_EQ(&messager, &QHVHelperMessager::sharedMessager());
  auto client = LKSMessagerClient::initWithServiceName("unused", {});
  for (std::int64_t message = -1; message <= 29; ++message) {
    const bool listed = message >= 0 && message < static_cast<std::int64_t>(kCatalogue.size());
    const char kind = listed ? kCatalogue[static_cast<std::size_t>(message)] : '-';  // none outside the catalogue
    const platform::Array rights = messager.messagerAuthorizationRightsForMessage(*client, message);
    EXPECT_EQ(rights, kind == 'm' ? modify : kind == 'u' ? uninstall : platform::Array()) << message;
    EXPECT_EQ(messager.requiresAuthorizationForMessage(message), kind != '-') << message;
  }
}

}  // namespace
