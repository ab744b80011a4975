// NSHTTPURLResponse's reason phrases: short lower-case texts for HTTP status
// codes, as the platform words them for people.
#pragma once

#include <cstdint>
#include <string>

namespace platform {

// The platform's phrase for `code` ("not found" for 404); a code without a
// phrase of its own reads as its class ("informational", "success",
// "redirected", "client error", "server error"), and a code outside 100-599
// as "server error".
std::string localizedStringForStatusCode(std::int64_t code);

}  // namespace platform
