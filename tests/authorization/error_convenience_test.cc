// The cancelled-authentication test walks an error chain.
#include "authorization/error_convenience.h"

#include <gtest/gtest.h>

#include "errors/lks_error.h"

namespace {

using platform::ErrorRef;

// `depth` messager errors above an error of `domain` and `code`.
ErrorRef beneath(std::size_t depth, const char* domain, std::int64_t code) {
  ErrorRef chain = platform::Error::make(domain, code);
  for (std::size_t i = 0; i < depth; ++i) {
    chain = platform::Error::make(LKSMessagerErrorDomain, LKSMessagerErrorAuthorize,
                                  {{platform::NSUnderlyingErrorKey, platform::Value::error(chain)}});
  }
  return chain;
}

TEST(UserCanceledAuthenticationTest, SeesACancelWithinTheChainLimit) {
  const char* auth = LKSAuthorizationErrorDomain;
  struct Row {
    const char* why;
    ErrorRef chain;
    bool canceled;
  };
  const Row rows[] = {
      {"the cancel itself", beneath(0, auth, LKSAuthorizationErrorUserCanceled), true},
      {"the last error walked", beneath(LKSErrorChainLimit - 1, auth, LKSAuthorizationErrorUserCanceled), true},
      {"one error past the limit", beneath(LKSErrorChainLimit, auth, LKSAuthorizationErrorUserCanceled), false},
      {"no error", nullptr, false},
      {"rights refused, not cancelled", beneath(1, auth, LKSAuthorizationErrorAuthorizeRights), false},
      {"code 0 of another domain", beneath(0, LKSMessagerErrorDomain, 0), false},
      {"a cause that is not an error ends the walk",
       platform::Error::make(auth, 6, {{platform::NSUnderlyingErrorKey, platform::Value::string("canceled")}}),
       false},
  };
  for (const Row& row : rows) EXPECT_EQ(userCanceledAuthentication(row.chain), row.canceled) << row.why;
}

}  // namespace
