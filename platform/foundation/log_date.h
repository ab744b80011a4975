// The log file's date text: "d/MMM/yy, HH:mm:ssZ" in the en_US_POSIX locale,
// for example "5/Jan/21, 09:07:03+0100": day without leading zero, English
// three-letter month, two-digit year, 24-hour time, offset as +hhmm.
#pragma once

#include <ctime>
#include <mutex>
#include <string>

#include "platform/plist/value.h"

namespace platform {

class LogDateFormatter {
 public:
  // A formatter for the system's current time zone, read now (TZ or the
  // system's setting), as a date formatter takes it when made.
  LogDateFormatter();

  // The text of `date` in the formatter's time zone; seconds are truncated.
  std::string stringFromDate(Date date) const;

 private:
  // The last second formatted and its text: entries come many to a second, and
  // the zone is fixed when the formatter is made, so the text of a second never
  // changes.
  mutable std::mutex lock_;
  mutable std::time_t lastSecond_ = -1;
  mutable std::string lastText_;
};

}  // namespace platform
