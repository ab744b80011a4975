#include "messaging/message_catalogue.h"

namespace {

using Rights = QHVMessageRights;

}  // namespace

// clang-format off
constexpr std::array<QHVMessageCatalogueEntry, QHVHelperMessageLast + 1> QHVMessageCatalogue = {{
  {QHVHelperMessageReserved0,              Rights::None},
  {QHVHelperMessageGetSettings,            Rights::None},
  {QHVHelperMessageSetSettings,            Rights::Modify},
  {QHVHelperMessageEnable,                 Rights::Modify},
  {QHVHelperMessageDisable,                Rights::Modify},
  {QHVHelperMessageGetInfo,                Rights::None},
  {QHVHelperMessageReserved6,              Rights::Modify},
  {QHVHelperMessageGetBackupsEnabled,      Rights::None},
  {QHVHelperMessageGetBackupsMode,         Rights::None},
  {QHVHelperMessageGetBackupsInterval,     Rights::None},
  {QHVHelperMessageGetBackupsWhenInactive, Rights::None},
  {QHVHelperMessageSetBackupsEnabled,      Rights::Modify},
  {QHVHelperMessageSetBackupsMode,         Rights::Modify},
  {QHVHelperMessageSetBackupsInterval,     Rights::Modify},
  {QHVHelperMessageSetBackupsWhenInactive, Rights::Modify},
  {QHVHelperMessageKickstartBackup,        Rights::None},
  {QHVHelperMessageGetSnapshotsEnabled,    Rights::None},
  {QHVHelperMessageSetSnapshotsEnabled,    Rights::Modify},
  {QHVHelperMessageGetUpdatesEnabled,      Rights::None},
  {QHVHelperMessageGetUpdatesMode,         Rights::None},
  {QHVHelperMessageGetUpdatesFeed,         Rights::None},
  {QHVHelperMessageSetUpdatesEnabled,      Rights::Modify},
  {QHVHelperMessageSetUpdatesMode,         Rights::Modify},
  {QHVHelperMessageSetUpdatesFeed,         Rights::Modify},
  {QHVHelperMessageGetDryRun,              Rights::None},
  {QHVHelperMessageSetDryRun,              Rights::Modify},
  {QHVHelperMessageCheckForUpdates,        Rights::None},
  {QHVHelperMessageInstallUpdate,          Rights::Modify},
  {QHVHelperMessageUninstall,              Rights::Uninstall},
}};
// clang-format on

platform::Array QHVAuthorizationRightsForMessage(QHVHelperMessage message) {
  if (message < 0 || message > QHVHelperMessageLast) return {};
  switch (QHVMessageCatalogue[static_cast<std::size_t>(message)].rights) {
    case Rights::None:
      return {};
    case Rights::Modify:
      return {platform::Value::string(QHVRightSettingsModify1), platform::Value::string(QHVRightSettingsModify2)};
    case Rights::Uninstall:
      return {platform::Value::string(QHVRightUninstall)};
  }
  return {};
}
