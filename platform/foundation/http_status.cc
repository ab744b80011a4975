#include "platform/foundation/http_status.h"

#include <algorithm>
#include <array>
#include <string_view>

namespace platform {
namespace {

struct ReasonPhrase {
  std::int64_t code;
  std::string_view phrase;
};

// The platform's wording, which differs from the HTTP standard's in places
// ("no error" for 200, "temporarily redirected" for 307, "unimplemented" for
// 501); sorted by code. 306 has no phrase of its own.
constexpr std::array kReasonPhrases = {
    ReasonPhrase{100, "continue"},
    ReasonPhrase{101, "switching protocols"},
    ReasonPhrase{200, "no error"},
    ReasonPhrase{201, "created"},
    ReasonPhrase{202, "accepted"},
    ReasonPhrase{203, "non-authoritative information"},
    ReasonPhrase{204, "no content"},
    ReasonPhrase{205, "reset content"},
    ReasonPhrase{206, "partial content"},
    ReasonPhrase{300, "multiple choices"},
    ReasonPhrase{301, "moved permanently"},
    ReasonPhrase{302, "found"},
    ReasonPhrase{303, "see other"},
    ReasonPhrase{304, "not modified"},
    ReasonPhrase{305, "needs proxy"},
    ReasonPhrase{307, "temporarily redirected"},
    ReasonPhrase{400, "bad request"},
    ReasonPhrase{401, "unauthorized"},
    ReasonPhrase{402, "payment required"},
    ReasonPhrase{403, "forbidden"},
    ReasonPhrase{404, "not found"},
    ReasonPhrase{405, "method not allowed"},
    ReasonPhrase{406, "unacceptable"},
    ReasonPhrase{407, "proxy authentication required"},
    ReasonPhrase{408, "request timed out"},
    ReasonPhrase{409, "conflict"},
    ReasonPhrase{410, "no longer exists"},
    ReasonPhrase{411, "length required"},
    ReasonPhrase{412, "precondition failed"},
    ReasonPhrase{413, "request too large"},
    ReasonPhrase{414, "requested URL too long"},
    ReasonPhrase{415, "unsupported media type"},
    ReasonPhrase{416, "requested range not satisfiable"},
    ReasonPhrase{417, "expectation failed"},
    ReasonPhrase{500, "internal server error"},
    ReasonPhrase{501, "unimplemented"},
    ReasonPhrase{502, "bad gateway"},
    ReasonPhrase{503, "service unavailable"},
    ReasonPhrase{504, "gateway timed out"},
    ReasonPhrase{505, "unsupported version"},
};
static_assert(std::is_sorted(kReasonPhrases.begin(), kReasonPhrases.end(),
                             [](const ReasonPhrase& a, const ReasonPhrase& b) { return a.code < b.code; }));

// The phrase of each class, for codes 100-599 without a phrase of their own.
constexpr std::array<std::string_view, 5> kClassPhrases = {
    "informational", "success", "redirected", "client error", "server error"};

}  // namespace

std::string localizedStringForStatusCode(std::int64_t code) {
  auto found = std::lower_bound(kReasonPhrases.begin(), kReasonPhrases.end(), code,
                                [](const ReasonPhrase& entry, std::int64_t c) { return entry.code < c; });
  if (found != kReasonPhrases.end() && found->code == code) return std::string(found->phrase);
  if (code >= 100 && code < 600) return std::string(kClassPhrases[static_cast<std::size_t>(code / 100 - 1)]);
  return "server error";
}

}  // namespace platform
