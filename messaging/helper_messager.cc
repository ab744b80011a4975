#include "messaging/helper_messager.h"

#include <array>

namespace {

enum class Rights : std::uint8_t { None, Modify, Uninstall };

// The rights of messages 0 to 28, by number.
constexpr std::array<Rights, QHVHelperMessageLast + 1> kCatalogue = {
    Rights::None,    Rights::None,   Rights::Modify, Rights::Modify,  Rights::Modify,     // 0-4
    Rights::None,    Rights::Modify, Rights::None,   Rights::None,    Rights::None,       // 5-9
    Rights::None,    Rights::Modify, Rights::Modify, Rights::Modify,  Rights::Modify,     // 10-14
    Rights::None,    Rights::None,   Rights::Modify, Rights::None,    Rights::None,       // 15-19
    Rights::None,    Rights::Modify, Rights::Modify, Rights::Modify,  Rights::None,       // 20-24
    Rights::Modify,  Rights::None,   Rights::Modify, Rights::Uninstall,                   // 25-28
};

}  // namespace

QHVHelperMessager& QHVHelperMessager::sharedMessager() {
  // Never released: the connection may deliver events until the process ends.
  static const auto* const shared = new std::shared_ptr<QHVHelperMessager>(init());
  return **shared;
}

std::shared_ptr<QHVHelperMessager> QHVHelperMessager::init() {
  std::shared_ptr<QHVHelperMessager> messager(new QHVHelperMessager());
  messager->_client = LKSMessagerClient::initWithServiceName(QHVHelperServiceName, messager);
  return messager;
}

platform::Array QHVHelperMessager::messagerAuthorizationRightsForMessage(LKSMessagerClient&, std::int64_t message) {
  if (message < 0 || message > QHVHelperMessageLast) return {};
  switch (kCatalogue[static_cast<std::size_t>(message)]) {
    case Rights::None:
      return {};
    case Rights::Modify:
      return {platform::Value::string(QHVRightSettingsModify1), platform::Value::string(QHVRightSettingsModify2)};
    case Rights::Uninstall:
      return {platform::Value::string(QHVRightUninstall)};
  }
  return {};
}

bool QHVHelperMessager::requiresAuthorizationForMessage(QHVHelperMessage message) {
  return !messagerAuthorizationRightsForMessage(*_client, message).empty();
}
