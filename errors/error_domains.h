// The error domains of the product, every code of each, and the user-info keys
// that carry an error's details. The scheduler service uses the same values:
// errors it returns in replies are described and classified by the same rules.
#pragma once

#include <cstdint>

// Domains.
inline constexpr const char* LKSUpdaterErrorDomain = "com.larkspan.updater";
inline constexpr const char* LKSInstallerPackageErrorDomain = "com.larkspan.installer-package";
inline constexpr const char* LKSSpawnerErrorDomain = "com.larkspan.spawner";
inline constexpr const char* LKSMessagerErrorDomain = "com.larkspan.messager";
inline constexpr const char* LKSAuthorizationErrorDomain = "com.larkspan.authorization";
inline constexpr const char* QHVErrorDomain = "com.larkspan.quillhaven";

// LKSUpdaterErrorDomain (made by the scheduler service only).
inline constexpr std::int64_t LKSUpdaterErrorAlreadyUpToDate = 0;
inline constexpr std::int64_t LKSUpdaterErrorFetchInfo = 1;       // "status-code" when answered
inline constexpr std::int64_t LKSUpdaterErrorReadData = 2;
inline constexpr std::int64_t LKSUpdaterErrorInvalidInfo = 3;     // "info"
inline constexpr std::int64_t LKSUpdaterErrorDownload = 4;        // "status-code" when answered
inline constexpr std::int64_t LKSUpdaterErrorMovePackage = 5;
inline constexpr std::int64_t LKSUpdaterErrorValidate = 6;
inline constexpr std::int64_t LKSUpdaterErrorInstall = 7;
inline constexpr std::int64_t LKSUpdaterErrorNotNow = 8;
inline constexpr std::int64_t LKSUpdaterErrorPhasedDeferral = 9;
inline constexpr std::int64_t LKSUpdaterErrorUntrustedServer = 10;
inline constexpr std::int64_t LKSUpdaterErrorTooManyRequests = 11;

// LKSInstallerPackageErrorDomain (made by the scheduler service only).
inline constexpr std::int64_t LKSInstallerPackageErrorRead = 0;  // "path"
inline constexpr std::int64_t LKSInstallerPackageErrorNotSigned = 1;
inline constexpr std::int64_t LKSInstallerPackageErrorInvalidSignature = 2;

// LKSSpawnerErrorDomain.
inline constexpr std::int64_t LKSSpawnerErrorSpawn = 0;       // "tool", "errno"
inline constexpr std::int64_t LKSSpawnerErrorExitStatus = 1;  // "tool", "exit-status"
inline constexpr std::int64_t LKSSpawnerErrorSignal = 2;      // "tool", "signal"

// LKSMessagerErrorDomain.
inline constexpr std::int64_t LKSMessagerErrorAuthorize = 0;             // "message", cause
inline constexpr std::int64_t LKSMessagerErrorMissingAuthorization = 1;  // "message"
inline constexpr std::int64_t LKSMessagerErrorSerializeMessage = 2;      // "message", "payload", cause
inline constexpr std::int64_t LKSMessagerErrorDeserializeMessage = 3;    // "message"
inline constexpr std::int64_t LKSMessagerErrorSerializeReply = 4;        // "message", "reply"
inline constexpr std::int64_t LKSMessagerErrorDeserializeReply = 5;      // "message", cause
inline constexpr std::int64_t LKSMessagerErrorUnarchiveReplyError = 6;   // "message", cause
inline constexpr std::int64_t LKSMessagerErrorServiceUnavailable = 7;    // "message"?, "service"
inline constexpr std::int64_t LKSMessagerErrorServiceDisappeared = 8;    // "message"?, "service"

// LKSAuthorizationErrorDomain.
inline constexpr std::int64_t LKSAuthorizationErrorUserCanceled = 0;              // "rights"
inline constexpr std::int64_t LKSAuthorizationErrorCreate = 1;                    // "status"
inline constexpr std::int64_t LKSAuthorizationErrorMakeExternalForm = 2;          // "status"
inline constexpr std::int64_t LKSAuthorizationErrorCreateFromExternalForm = 3;    // "status"
inline constexpr std::int64_t LKSAuthorizationErrorSetRights = 4;                 // "status"?, "rights"
inline constexpr std::int64_t LKSAuthorizationErrorValidateRights = 5;            // "rights"
inline constexpr std::int64_t LKSAuthorizationErrorAuthorizeRights = 6;           // "rights"

// QHVErrorDomain (made by the scheduler service only).
inline constexpr std::int64_t QHVErrorBackupRunning = 0;
inline constexpr std::int64_t QHVErrorUpdateRunning = 1;
inline constexpr std::int64_t QHVErrorPeersConnected = 2;
inline constexpr std::int64_t QHVErrorMissingValue = 3;  // "key"
inline constexpr std::int64_t QHVErrorWrongType = 4;     // "key", "expected"
inline constexpr std::int64_t QHVErrorUnknownKey = 5;    // "key"

// User-info keys. The cause sits under platform::NSUnderlyingErrorKey.
inline constexpr const char* LKSErrorToolKey = "tool";               // string: the executable run
inline constexpr const char* LKSErrorErrnoKey = "errno";             // integer: from process creation
inline constexpr const char* LKSErrorExitStatusKey = "exit-status";  // integer: 1 to 255
inline constexpr const char* LKSErrorSignalKey = "signal";           // integer: the ending signal
inline constexpr const char* LKSErrorPathKey = "path";               // string: installer package
inline constexpr const char* LKSErrorMessageKey = "message";         // integer: QHVHelperMessage
inline constexpr const char* LKSErrorPayloadKey = "payload";         // string: payload description
inline constexpr const char* LKSErrorReplyKey = "reply";             // the reply that failed
inline constexpr const char* LKSErrorServiceKey = "service";         // string: service name
inline constexpr const char* LKSErrorStatusKey = "status";           // integer: Authorization status
inline constexpr const char* LKSErrorRightsKey = "rights";           // array of strings
inline constexpr const char* LKSErrorStatusCodeKey = "status-code";  // integer: HTTP status
inline constexpr const char* LKSErrorInfoKey = "info";               // the rejected update info
inline constexpr const char* LKSErrorKeyKey = "key";                 // string: settings key at fault
inline constexpr const char* LKSErrorExpectedKey = "expected";       // string: required type name
