// A chain of errors as one line: each error's sentence, outermost first,
// joined by one space, at most LKSErrorChainLimit of them.
#include <gtest/gtest.h>

#include <string>

#include "errors/lks_error.h"

namespace {

using platform::Error;
using platform::ErrorRef;
using platform::Value;

ErrorRef causedBy(const char* domain, std::int64_t code, platform::Dictionary userInfo, const ErrorRef& cause) {
  if (cause) userInfo.set(platform::NSUnderlyingErrorKey, Value::error(cause));
  return Error::make(domain, code, std::move(userInfo));
}

TEST(LocalizedDescriptionForError, JoinsTheChainOutermostFirst) {
  const ErrorRef canceled = causedBy(LKSAuthorizationErrorDomain, 0, {}, nullptr);
  const ErrorRef authorize = causedBy(LKSMessagerErrorDomain, 0, {{"message", Value::integer(3)}}, canceled);
  EXPECT_EQ(LKSError::localizedDescriptionForError(authorize),
            "Could not authorize message (3). User canceled authentication.");

  const ErrorRef corrupt = Error::make(platform::NSCocoaErrorDomain, 3840,
                                       {{platform::NSLocalizedDescriptionKey, Value::string("bad header")}});
  const ErrorRef deserialize = causedBy(LKSMessagerErrorDomain, 5, {{"message", Value::integer(9)}}, corrupt);
  const ErrorRef outer = causedBy("org.example", 1, {}, deserialize);
  EXPECT_EQ(LKSError::localizedDescriptionForError(outer),
            "The operation couldn\u2019t be completed. (org.example error 1.) "
            "Could not deserialize reply for message (9). bad header");
}

TEST(LocalizedDescriptionForError, OneErrorIsItsOwnTextAlone) {
  EXPECT_EQ(LKSError::localizedDescriptionForError(Error::make(QHVErrorDomain, 2)), "Peers are connected.");
  EXPECT_EQ(LKSError::localizedDescriptionForError(nullptr), "");
}

TEST(LocalizedDescriptionForError, ACauseThatIsNotAnErrorEndsTheChain) {
  const ErrorRef error = Error::make(QHVErrorDomain, 0, {{platform::NSUnderlyingErrorKey, Value::string("cause")}});
  EXPECT_EQ(LKSError::localizedDescriptionForError(error), "A backup operation is currently running.");
}

TEST(LocalizedDescriptionForError, WalksAtMostTheChainLimit) {
  const auto chainOf = [](std::size_t length) {
    ErrorRef chain;
    for (std::size_t i = 0; i < length; ++i) chain = causedBy(QHVErrorDomain, 2, {}, chain);
    return chain;
  };
  const auto sentences = [](std::size_t count) {
    std::string text;
    for (std::size_t i = 0; i < count; ++i) text += i == 0 ? "Peers are connected." : " Peers are connected.";
    return text;
  };
  EXPECT_EQ(LKSError::localizedDescriptionForError(chainOf(LKSErrorChainLimit)), sentences(LKSErrorChainLimit));
  EXPECT_EQ(LKSError::localizedDescriptionForError(chainOf(LKSErrorChainLimit + 1)), sentences(LKSErrorChainLimit));
  EXPECT_EQ(LKSError::localizedDescriptionForError(chainOf(1000)), sentences(LKSErrorChainLimit));
}

}  // namespace
