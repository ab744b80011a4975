// The catalogue of the scheduler service's messages: the rights each one
// needs, decided by its number alone. The tool asks it before it sends; a
// receiving side asks it before it carries a request out.
#pragma once

#include <array>
#include <cstdint>

#include "messaging/helper_messages.h"
#include "platform/plist/value.h"

// The rights of changing messages, tried in this order, and of uninstalling.
inline constexpr const char* QHVRightSettingsModify1 = "com.larkspan.quillhaven.settings.modify-1";
inline constexpr const char* QHVRightSettingsModify2 = "com.larkspan.quillhaven.settings.modify-2";
inline constexpr const char* QHVRightUninstall = "com.larkspan.quillhaven.uninstall";

// What a message needs: nothing, the two settings rights (either one
// suffices), or the uninstall right alone.
enum class QHVMessageRights : std::uint8_t { None, Modify, Uninstall };

struct QHVMessageCatalogueEntry {
  QHVHelperMessage message;
  QHVMessageRights rights;
};

// Every message from 0 to QHVHelperMessageLast, each at the index of its number.
extern const std::array<QHVMessageCatalogueEntry, QHVHelperMessageLast + 1> QHVMessageCatalogue;

// The right names `message` needs, alternatives in the order they are tried:
// none, the two settings rights, or the uninstall right. A number outside the
// catalogue needs none.
platform::Array QHVAuthorizationRightsForMessage(QHVHelperMessage message);
