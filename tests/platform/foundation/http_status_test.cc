#include "platform/foundation/http_status.h"

#include <gtest/gtest.h>

#include <cstdint>

namespace platform {
namespace {

TEST(LocalizedStringForStatusCode, OwnWordingThenTheClass) {
  const struct {
    std::int64_t code;
    const char* phrase;
  } kPhrases[] = {
      {100, "continue"}, {200, "no error"}, {307, "temporarily redirected"}, {404, "not found"}, {505, "unsupported version"},
      {102, "informational"}, {299, "success"}, {306, "redirected"}, {418, "client error"}, {599, "server error"},
      {99, "server error"}, {600, "server error"}, {-404, "server error"}, {INT64_MIN, "server error"},
  };
  for (const auto& p : kPhrases) EXPECT_EQ(localizedStringForStatusCode(p.code), p.phrase) << p.code;
}

}  // namespace
}  // namespace platform
