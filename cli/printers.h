// How replies are printed: a dictionary as text, XML or JSON, and an
// activity's last and next runs.
#pragma once

#include "platform/plist/value.h"

// `object` as an XML property list (`xml` wins) or pretty-printed JSON, written
// raw to descriptor 1 without a newline after it, or nothing at all when it
// cannot be serialized; with neither flag, its description text and a newline.
void print_dictionary(const platform::Value& object, bool xml, bool json);

// The lines of an activity dictionary: "Last run", "Last try" (only when later
// than the last run), then one of running now, next run, or deferred. Dates in
// the short date and time style of the user's locale and time zone. Nothing
// for an absent value.
void print_info(const platform::Value& info);
