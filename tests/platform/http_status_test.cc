// The platform's reason phrases for HTTP status codes: its own wording where it
// has one, the class of the code otherwise, "server error" outside 100-599.
#include "platform/http_status.h"

#include <gtest/gtest.h>

#include <climits>

namespace platform {
namespace {

struct Phrase {
  std::int64_t code;
  const char* phrase;
};

TEST(LocalizedStringForStatusCode, UsesThePlatformsWording) {
  const Phrase phrases[] = {
      {100, "continue"}, {101, "switching protocols"},
      {200, "no error"}, {201, "created"}, {202, "accepted"}, {203, "non-authoritative information"},
      {204, "no content"}, {205, "reset content"}, {206, "partial content"},
      {300, "multiple choices"}, {301, "moved permanently"}, {302, "found"}, {303, "see other"},
      {304, "not modified"}, {305, "needs proxy"}, {307, "temporarily redirected"},
      {400, "bad request"}, {401, "unauthorized"}, {402, "payment required"}, {403, "forbidden"},
      {404, "not found"}, {405, "method not allowed"}, {406, "unacceptable"},
      {407, "proxy authentication required"}, {408, "request timed out"}, {409, "conflict"},
      {410, "no longer exists"}, {411, "length required"}, {412, "precondition failed"},
      {413, "request too large"}, {414, "requested URL too long"}, {415, "unsupported media type"},
      {416, "requested range not satisfiable"}, {417, "expectation failed"},
      {500, "internal server error"}, {501, "unimplemented"}, {502, "bad gateway"},
      {503, "service unavailable"}, {504, "gateway timed out"}, {505, "unsupported version"},
  };
  for (const Phrase& p : phrases) EXPECT_EQ(localizedStringForStatusCode(p.code), p.phrase) << p.code;
}

TEST(LocalizedStringForStatusCode, OtherCodesReadAsTheirClass) {
  const Phrase phrases[] = {
      {102, "informational"}, {199, "informational"},
      {207, "success"}, {299, "success"},
      {306, "redirected"}, {308, "redirected"}, {399, "redirected"},
      {418, "client error"}, {429, "client error"}, {499, "client error"},
      {506, "server error"}, {599, "server error"},
      // Outside 100-599 there is no class.
      {99, "server error"}, {0, "server error"}, {-404, "server error"}, {600, "server error"},
      {INT64_MAX, "server error"}, {INT64_MIN, "server error"},
  };
  for (const Phrase& p : phrases) EXPECT_EQ(localizedStringForStatusCode(p.code), p.phrase) << p.code;
}

}  // namespace
}  // namespace platform
