#include "errors/lks_error.h"

#include <array>
#include <string_view>

#include "log/log.h"
#include "platform/system_log/unified_log.h"

namespace {

// The level of the codes a domain singles out; every other code of the domain,
// and every other domain, is error.
struct LevelRule {
  std::string_view domain;
  std::uint8_t level;
  std::array<std::int64_t, 3> codes;
  std::size_t codeCount;
};

// Matched in this order, the first equal domain deciding. Codes match by
// equality, so a negative code, which counts as a very large unsigned one,
// falls to error like any code beyond the listed ones.
constexpr LevelRule kLevelRules[] = {
    {LKSUpdaterErrorDomain, LKSLogLevelDefault,
     {LKSUpdaterErrorAlreadyUpToDate, LKSUpdaterErrorNotNow, LKSUpdaterErrorPhasedDeferral}, 3},
    {LKSMessagerErrorDomain, LKSLogLevelDefault,
     {LKSMessagerErrorServiceUnavailable, LKSMessagerErrorServiceDisappeared}, 2},
    {LKSAuthorizationErrorDomain, LKSLogLevelInfo, {LKSAuthorizationErrorUserCanceled}, 1},
    {QHVErrorDomain, LKSLogLevelDefault,
     {QHVErrorBackupRunning, QHVErrorUpdateRunning, QHVErrorPeersConnected}, 3},
};

}  // namespace

platform::ErrorRef LKSError::errorWithDomain(std::string domain, std::int64_t code,
                                             platform::Dictionary userInfo) {
  platform::ErrorRef error = platform::Error::make(std::move(domain), code, std::move(userInfo));
  const std::uint8_t level = logLevelForError(error);
  const std::string text = localizedDescriptionForError(error);
  if (LKSLOG_UNIFIED) {
    platform::os_log_with_type(lks_log, level, "%@", text);
  } else {
    _LKSLog(level, "%@", text);
  }
  LKSLogWithLevel2(level, "%@", text);
  return error;
}

std::uint8_t LKSError::logLevelForError(const platform::ErrorRef& error) {
  if (!error) return LKSLogLevelError;
  for (const LevelRule& rule : kLevelRules) {
    if (rule.domain != error->domain) continue;
    for (std::size_t i = 0; i < rule.codeCount; ++i) {
      if (rule.codes[i] == error->code) return rule.level;
    }
    return LKSLogLevelError;
  }
  return LKSLogLevelError;
}

std::string LKSError::localizedDescriptionForError(const platform::ErrorRef& error) {
  std::string text;
  std::size_t walked = 0;
  for (platform::ErrorRef current = error; current && walked < LKSErrorChainLimit;
       current = current->underlyingError(), ++walked) {
    if (walked > 0) text += ' ';
    text += _localizedDescriptionForError(current);
  }
  return text;
}
