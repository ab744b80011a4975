#include "platform/foundation/log_date.h"

#include <time.h>

#include <algorithm>
#include <cmath>
#include <cstdio>
#include <cstdlib>

namespace platform {
namespace {

constexpr const char* kMonthAbbreviations[12] = {"Jan", "Feb", "Mar", "Apr", "May", "Jun",
                                                 "Jul", "Aug", "Sep", "Oct", "Nov", "Dec"};

// Dates outside years 1970 to 9999 are pinned to the nearer end, so the
// conversion to time_t is always defined.
constexpr double kLatestUnixTime = 253402300799.0;

}  // namespace

LogDateFormatter::LogDateFormatter() { tzset(); }

std::string LogDateFormatter::stringFromDate(Date date) const {
  double unix = date.unixTime();
  if (!std::isfinite(unix)) unix = 0;
  const auto seconds = static_cast<time_t>(std::floor(std::clamp(unix, 0.0, kLatestUnixTime)));
  std::lock_guard lock(lock_);
  if (seconds == lastSecond_) return lastText_;
  tm local{};
  localtime_r(&seconds, &local);
  const long offsetMinutes = std::labs(local.tm_gmtoff) / 60;
  char text[64];
  std::snprintf(text, sizeof text, "%d/%s/%02d, %02d:%02d:%02d%c%02ld%02ld", local.tm_mday,
                kMonthAbbreviations[local.tm_mon], (local.tm_year + 1900) % 100, local.tm_hour,
                local.tm_min, local.tm_sec, local.tm_gmtoff < 0 ? '-' : '+', offsetMinutes / 60,
                offsetMinutes % 60);
  lastSecond_ = seconds;
  lastText_ = text;
  return lastText_;
}

}  // namespace platform
