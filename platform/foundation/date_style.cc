#include "platform/foundation/date_style.h"

#include <langinfo.h>
#include <locale.h>
#include <time.h>

#include <cmath>
#include <string_view>

#include "platform/plist/codec_support.h"

namespace platform {
namespace {

// The locale's time format without its seconds: the short style names hours
// and minutes only.
std::string withoutSeconds(std::string_view format) {
  std::string out;
  for (std::size_t i = 0; i < format.size(); ++i) {
    if (format[i] != '%' || i + 1 == format.size()) {
      out.push_back(format[i]);
      continue;
    }
    const char conversion = format[++i];
    if (conversion == 'S') {
      // Drop the separator before the seconds too ("%H:%M:%S" -> "%H:%M").
      if (!out.empty() && (out.back() == ':' || out.back() == '.')) out.pop_back();
    } else if (conversion == 'T') {
      out += "%H:%M";
    } else if (conversion == 'r') {
      out += "%I:%M %p";
    } else {
      out.push_back('%');
      out.push_back(conversion);
    }
  }
  return out;
}

}  // namespace

std::string localizedShortDateTime(Date date) {
  if (!codec::hasCalendarForm(date)) return codec::formatReal(date.sinceReferenceDate);
  locale_t locale = newlocale(LC_TIME_MASK, "", nullptr);
  if (!locale) locale = newlocale(LC_TIME_MASK, "C", nullptr);
  const std::string format =
      std::string(nl_langinfo_l(D_FMT, locale)) + ", " + withoutSeconds(nl_langinfo_l(T_FMT, locale));
  const auto seconds = static_cast<time_t>(std::floor(date.unixTime()));
  tzset();
  tm local{};
  localtime_r(&seconds, &local);
  char text[128];
  // The format is the locale's own, read above.
#pragma GCC diagnostic push
#pragma GCC diagnostic ignored "-Wformat-nonliteral"
  const std::size_t length = strftime_l(text, sizeof text, format.c_str(), &local, locale);
#pragma GCC diagnostic pop
  freelocale(locale);
  return std::string(text, length);
}

}  // namespace platform
