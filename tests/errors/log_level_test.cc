// The log level of every code of every domain: the codes a domain singles out,
// everything else error, codes compared unsigned.
#include <gtest/gtest.h>

#include <algorithm>
#include <climits>
#include <vector>

#include "errors/lks_error.h"
#include "log/log.h"

namespace {

struct DomainLevels {
  const char* domain;
  std::vector<std::int64_t> singledOut;  // the codes of `level`
  std::uint8_t level;
};

// Every code of the domain's table, the first code past it, and codes that only
// an unsigned comparison tells apart from small ones.
std::vector<std::int64_t> codesToTry() {
  std::vector<std::int64_t> codes;
  for (std::int64_t code = 0; code <= 12; ++code) codes.push_back(code);
  for (std::int64_t code : {std::int64_t{-1}, std::int64_t{-8}, INT64_MIN, INT64_MAX,
                            std::int64_t{0x100000000}, std::int64_t{0x100000007}}) {
    codes.push_back(code);
  }
  return codes;
}

TEST(LogLevelForError, EachDomainSinglesOutItsCodesAndTheRestAreErrors) {
  const DomainLevels domains[] = {
      {LKSUpdaterErrorDomain, {0, 8, 9}, LKSLogLevelDefault},
      {LKSMessagerErrorDomain, {7, 8}, LKSLogLevelDefault},
      {LKSAuthorizationErrorDomain, {0}, LKSLogLevelInfo},
      {QHVErrorDomain, {0, 1, 2}, LKSLogLevelDefault},
      {LKSSpawnerErrorDomain, {}, LKSLogLevelDefault},
      {LKSInstallerPackageErrorDomain, {}, LKSLogLevelDefault},
      {platform::NSCocoaErrorDomain, {}, LKSLogLevelDefault},
      {"com.larkspan.updater.other", {}, LKSLogLevelDefault},  // a domain is matched whole
      {"", {}, LKSLogLevelDefault},
  };
  for (const DomainLevels& d : domains) {
    for (std::int64_t code : codesToTry()) {
      const bool singled = std::find(d.singledOut.begin(), d.singledOut.end(), code) != d.singledOut.end();
      EXPECT_EQ(LKSError::logLevelForError(platform::Error::make(d.domain, code)),
                singled ? d.level : LKSLogLevelError)
          << d.domain << " " << code;
    }
  }
}

TEST(LogLevelForError, UserInfoPlaysNoPart) {
  const platform::ErrorRef cause = platform::Error::make(LKSAuthorizationErrorDomain, 0);
  const platform::ErrorRef wrapped = platform::Error::make(
      LKSMessagerErrorDomain, 0, {{platform::NSUnderlyingErrorKey, platform::Value::error(cause)}});
  EXPECT_EQ(LKSError::logLevelForError(wrapped), LKSLogLevelError);
  const platform::ErrorRef unavailable = platform::Error::make(
      LKSMessagerErrorDomain, 7, {{platform::NSUnderlyingErrorKey, platform::Value::error(wrapped)}});
  EXPECT_EQ(LKSError::logLevelForError(unavailable), LKSLogLevelDefault);
}

}  // namespace
