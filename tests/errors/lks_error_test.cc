// The error factory: the level of each error, the one line of a whole chain,
// and the logging of every error once, when it is made.
#include "errors/lks_error.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <climits>
#include <filesystem>

#include "log/log_test_fixture.h"

namespace {

using platform::Error;
using platform::ErrorRef;
using platform::Value;

ErrorRef causedBy(const char* domain, std::int64_t code, platform::Dictionary userInfo, const ErrorRef& cause) {
  if (cause) userInfo.set(platform::NSUnderlyingErrorKey, Value::error(cause));
  return Error::make(domain, code, std::move(userInfo));
}

TEST(LogLevelForError, EachDomainSinglesOutItsCodesAndTheRestAreErrors) {
  const struct {
    const char* domain;
    std::vector<std::int64_t> singledOut;  // the codes of `level`
    std::uint8_t level;
  } domains[] = {
      {LKSUpdaterErrorDomain, {0, 8, 9}, LKSLogLevelDefault},
      {LKSMessagerErrorDomain, {7, 8}, LKSLogLevelDefault},
      {LKSAuthorizationErrorDomain, {0}, LKSLogLevelInfo},
      {QHVErrorDomain, {0, 1, 2}, LKSLogLevelDefault},
      {LKSSpawnerErrorDomain, {}, 0},
      {"com.larkspan.updater.other", {}, 0},  // a domain is matched whole
  };
  // Every code of the tables, the first past them, and codes that only an unsigned
  // comparison of all 64 bits tells apart from small ones.
  std::vector<std::int64_t> codes = {-1, -8, INT64_MIN, INT64_MAX, 0x100000000, 0x100000007};
  for (std::int64_t code = 0; code <= 12; ++code) codes.push_back(code);
  for (const auto& d : domains) {
    for (std::int64_t code : codes) {
      const bool singled = std::find(d.singledOut.begin(), d.singledOut.end(), code) != d.singledOut.end();
      // The user info, a cause of another level included, plays no part.
      const ErrorRef error = causedBy(d.domain, code, {}, Error::make(LKSAuthorizationErrorDomain, 0));
      EXPECT_EQ(LKSError::logLevelForError(error), singled ? d.level : LKSLogLevelError) << d.domain << " " << code;
    }
  }
}

TEST(LocalizedDescriptionForError, JoinsTheChainOutermostFirstWithOneSpaceUpToTheLimit) {
  const ErrorRef corrupt =
      Error::make(platform::NSCocoaErrorDomain, 3840, {{platform::NSLocalizedDescriptionKey, Value::string("bad")}});
  const ErrorRef deserialize = causedBy(LKSMessagerErrorDomain, 5, {{"message", Value::integer(9)}}, corrupt);
  const ErrorRef chain = causedBy("org.example", 1, {}, deserialize);
  EXPECT_EQ(LKSError::localizedDescriptionForError(chain),
            "The operation couldn\u2019t be completed. (org.example error 1.) "
            "Could not deserialize reply for message (9). bad");

  ErrorRef longChain;
  for (std::size_t i = 0; i <= LKSErrorChainLimit; ++i) longChain = causedBy(QHVErrorDomain, 2, {}, longChain);
  std::string sentences = "Peers are connected.";
  for (std::size_t i = 1; i < LKSErrorChainLimit; ++i) sentences += " Peers are connected.";
  EXPECT_EQ(LKSError::localizedDescriptionForError(longChain), sentences);

  // A cause that is not an error ends the chain.
  const ErrorRef odd = Error::make(QHVErrorDomain, 2, {{platform::NSUnderlyingErrorKey, Value::string("cause")}});
  EXPECT_EQ(LKSError::localizedDescriptionForError(odd), "Peers are connected.");
  EXPECT_EQ(LKSError::localizedDescriptionForError(nullptr), "");
}

class ErrorLoggingTest : public log_testing::LogFacilityTest {};

// On an older system the entry goes to the legacy log, info there as a warning.
TEST_F(ErrorLoggingTest, AnErrorIsLoggedOnceWhenMadeAsItsWholeChainAtItsLevel) {
  const char* const lines[] = {"User canceled authentication.",
                               "Could not authorize message (3). User canceled authentication.",
                               "Unknown key: '%@ %s %n'."};  // text, never a format
  for (bool unified : {true, false}) {
    init(unified);
    const ErrorRef canceled = LKSError::errorWithDomain(LKSAuthorizationErrorDomain, 0, {});
    const platform::Dictionary userInfo{{"message", Value::integer(3)},
                                        {platform::NSUnderlyingErrorKey, Value::error(canceled)}};
    const ErrorRef outer = LKSError::errorWithDomain(LKSMessagerErrorDomain, 0, userInfo);
    EXPECT_EQ(*outer, *Error::make(LKSMessagerErrorDomain, 0, userInfo));  // made exactly as given
    LKSError::errorWithDomain(QHVErrorDomain, QHVErrorUnknownKey, {{"key", Value::string("%@ %s %n")}});
    EXPECT_EQ(readLog("ctl.log"), expectedLine(lines[0]) + expectedLine(lines[1]) + expectedLine(lines[2]));
    LKSLogResetForTesting();
    std::filesystem::remove(logFile("ctl.log"));
  }
  const std::string facility = "com.larkspan.quillhaven ";
  EXPECT_EQ(unified_.entries(), (log_testing::Lines{std::string("ctl 1 ") + lines[0], std::string("ctl 16 ") + lines[1],
                                                    std::string("ctl 16 ") + lines[2]}));
  EXPECT_EQ(legacy_.entries(), (log_testing::Lines{facility + "Warning " + lines[0], facility + "Error " + lines[1],
                                                   facility + "Error " + lines[2]}));
}

}  // namespace
