// The cancelled-authentication test on error chains.
#include "authorization/error_convenience.h"

#include <gtest/gtest.h>

#include "errors/lks_error.h"

namespace {

using platform::Error;
using platform::ErrorRef;
using platform::Value;

ErrorRef wrapping(std::string domain, std::int64_t code, const ErrorRef& cause) {
  platform::Dictionary userInfo;
  if (cause) userInfo.set(platform::NSUnderlyingErrorKey, Value::error(cause));
  return Error::make(std::move(domain), code, std::move(userInfo));
}

TEST(UserCanceledAuthenticationTest, SeesACancelAnywhereInTheChain) {
  const ErrorRef canceled = wrapping(LKSAuthorizationErrorDomain, LKSAuthorizationErrorUserCanceled, nullptr);
  EXPECT_TRUE(userCanceledAuthentication(canceled));
  const ErrorRef messager = wrapping(LKSMessagerErrorDomain, LKSMessagerErrorAuthorize, canceled);
  EXPECT_TRUE(userCanceledAuthentication(messager));
  EXPECT_TRUE(userCanceledAuthentication(wrapping("other", 0, messager)));
}

TEST(UserCanceledAuthenticationTest, OtherFailuresAreNotACancel) {
  // Each chain: why it is not a cancelled authentication.
  const ErrorRef chains[] = {
      nullptr,                                                                         // no error
      wrapping(LKSAuthorizationErrorDomain, LKSAuthorizationErrorAuthorizeRights, nullptr),  // refused
      wrapping(LKSMessagerErrorDomain, LKSMessagerErrorAuthorize,
               wrapping(LKSAuthorizationErrorDomain, LKSAuthorizationErrorAuthorizeRights, nullptr)),
      wrapping(LKSMessagerErrorDomain, 0, nullptr),  // code 0 of another domain
  };
  for (const ErrorRef& chain : chains) EXPECT_FALSE(userCanceledAuthentication(chain));
}

TEST(UserCanceledAuthenticationTest, LooksAtMostTheChainLimitDeep) {
  // A cancel at the bottom of `length` errors of another kind.
  const auto canceledBeneath = [](std::size_t length) {
    ErrorRef chain = wrapping(LKSAuthorizationErrorDomain, LKSAuthorizationErrorUserCanceled, nullptr);
    for (std::size_t i = 0; i < length; ++i) chain = wrapping(LKSMessagerErrorDomain, LKSMessagerErrorAuthorize, chain);
    return chain;
  };
  EXPECT_TRUE(userCanceledAuthentication(canceledBeneath(LKSErrorChainLimit - 1)));
  EXPECT_FALSE(userCanceledAuthentication(canceledBeneath(LKSErrorChainLimit)));
}

TEST(UserCanceledAuthenticationTest, ACauseThatIsNotAnErrorEndsTheWalk) {
  const ErrorRef error = Error::make(LKSMessagerErrorDomain, LKSMessagerErrorAuthorize,
                                     {{platform::NSUnderlyingErrorKey, Value::string("canceled")}});
  EXPECT_FALSE(userCanceledAuthentication(error));
}

}  // namespace
