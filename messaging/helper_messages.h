// The numbered messages of the scheduler service. Numbers 0, 6 and 28 belong
// to the service's other clients; this tool never sends them.
#pragma once

#include <cstdint>

using QHVHelperMessage = std::int64_t;

// The service's own meanings; named here only so that the catalogue names every number.
inline constexpr QHVHelperMessage QHVHelperMessageReserved0 = 0;
inline constexpr QHVHelperMessage QHVHelperMessageReserved6 = 6;

inline constexpr QHVHelperMessage QHVHelperMessageGetSettings = 1;
inline constexpr QHVHelperMessage QHVHelperMessageSetSettings = 2;
inline constexpr QHVHelperMessage QHVHelperMessageEnable = 3;
inline constexpr QHVHelperMessage QHVHelperMessageDisable = 4;
inline constexpr QHVHelperMessage QHVHelperMessageGetInfo = 5;
inline constexpr QHVHelperMessage QHVHelperMessageGetBackupsEnabled = 7;
inline constexpr QHVHelperMessage QHVHelperMessageGetBackupsMode = 8;
inline constexpr QHVHelperMessage QHVHelperMessageGetBackupsInterval = 9;
inline constexpr QHVHelperMessage QHVHelperMessageGetBackupsWhenInactive = 10;
inline constexpr QHVHelperMessage QHVHelperMessageSetBackupsEnabled = 11;
inline constexpr QHVHelperMessage QHVHelperMessageSetBackupsMode = 12;
inline constexpr QHVHelperMessage QHVHelperMessageSetBackupsInterval = 13;
inline constexpr QHVHelperMessage QHVHelperMessageSetBackupsWhenInactive = 14;
inline constexpr QHVHelperMessage QHVHelperMessageKickstartBackup = 15;
inline constexpr QHVHelperMessage QHVHelperMessageGetSnapshotsEnabled = 16;
inline constexpr QHVHelperMessage QHVHelperMessageSetSnapshotsEnabled = 17;
inline constexpr QHVHelperMessage QHVHelperMessageGetUpdatesEnabled = 18;
inline constexpr QHVHelperMessage QHVHelperMessageGetUpdatesMode = 19;
inline constexpr QHVHelperMessage QHVHelperMessageGetUpdatesFeed = 20;
inline constexpr QHVHelperMessage QHVHelperMessageSetUpdatesEnabled = 21;
inline constexpr QHVHelperMessage QHVHelperMessageSetUpdatesMode = 22;
inline constexpr QHVHelperMessage QHVHelperMessageSetUpdatesFeed = 23;
inline constexpr QHVHelperMessage QHVHelperMessageGetDryRun = 24;
inline constexpr QHVHelperMessage QHVHelperMessageSetDryRun = 25;
inline constexpr QHVHelperMessage QHVHelperMessageCheckForUpdates = 26;
inline constexpr QHVHelperMessage QHVHelperMessageInstallUpdate = 27;
inline constexpr QHVHelperMessage QHVHelperMessageUninstall = 28;

// The last number of the catalogue.
inline constexpr QHVHelperMessage QHVHelperMessageLast = QHVHelperMessageUninstall;
