// Dates for people, as the platform's date formatter gives them in the short
// date style and the short time style: the user's locale (LC_TIME, LC_ALL or
// LANG of the environment) and time zone (TZ or the system's).
#pragma once

#include <string>

#include "platform/plist/value.h"

namespace platform {

// The locale's numeric date, a comma and a blank, and its time of day without
// seconds: "01/05/21, 09:07" in the C locale, "05.01.21, 09:07" in de_DE. A date
// without a calendar form prints as codec::hasCalendarForm says ("nan").
std::string localizedShortDateTime(Date date);

}  // namespace platform
