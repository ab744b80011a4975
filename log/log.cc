// Set-up of the facility and the log statement.
#include "log/log.h"

#include "log/log_sinks.h"
#include "log/log_testing.h"
#include "platform/foundation/strings.h"
#include "platform/foundation/user_ids.h"
#include "support/system_version.h"

bool LKSLOG_UNIFIED = false;
platform::UnifiedLog* lks_log = nullptr;

namespace {

constexpr const char* kRootLogDirectory = "/Library/Logs/Quillhaven";
constexpr const char* kUserLogDirectory = "Library/Logs/Quillhaven";  // under the home directory

}  // namespace

void LKSLogInit(const char* subsystem, const char* category) {
  if (LKSSystemVersionManager::sharedManager().runningAtLeast(LKSSystemVersion10_12)) {
    LKSLOG_UNIFIED = true;
    lks_log = new platform::UnifiedLog(subsystem ? subsystem : "", category ? category : "");
  } else {
    lks_log_internal::openLegacyClient(subsystem);
  }
  lks_log_internal::openLogFile(category);
}

std::string LKSLogGetParentPath() {
  const platform::UserIds& ids = platform::UserIds::current();
  if (ids.effectiveUserId() == 0 || ids.realUserId() == 0) return kRootLogDirectory;
  std::string home = platform::homeDirectory();
  while (!home.empty() && home.back() == '/') home.pop_back();
  return home + "/" + kUserLogDirectory;
}

void lks_log_internal::logStatement(std::uint8_t level, const char* format,
                                    std::span<const platform::FormatArg> args) {
  if (LKSLOG_UNIFIED) {
    platform::os_log_with_type_args(lks_log, level, format, args);
  } else if (level != LKSLogLevelDebug) {
    sendToLegacyLog(level, format, args);
  }
  appendToFile(level, format, args);
}

void LKSLogResetForTesting() {
  LKSLOG_UNIFIED = false;
  delete lks_log;
  lks_log = nullptr;
  lks_log_internal::resetLegacyClientForTesting();
  lks_log_internal::resetLogFileForTesting();
}
