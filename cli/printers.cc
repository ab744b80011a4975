#include "cli/printers.h"

#include <cstdio>
#include <optional>

#include "cli/standard_output.h"
#include "platform/foundation/date_style.h"
#include "platform/plist/json_writer.h"
#include "platform/plist/property_list.h"

void print_dictionary(const platform::Value& object, bool xml, bool json) {
  if (xml || json) {
    const std::optional<platform::Bytes> data =
        xml ? platform::dataWithPropertyList(object, platform::PropertyListFormat::XML, nullptr)
            : platform::json::dataWithJSONObject(object, nullptr);
    // A reply that cannot take the form asked for prints nothing at all.
    if (data) write_standard_output(*data);
    return;
  }
  std::puts(object.description().c_str());
}

void print_info(const platform::Value& info) {
  const platform::Dictionary* activity = info.asDictionary();
  if (!activity) return;
  const std::optional<platform::Date> lastRun = activity->get("LastRun").asDate();
  const std::optional<platform::Date> lastTry = activity->get("LastTry").asDate();
  if (lastRun) std::printf("Last run: %s\n", platform::localizedShortDateTime(*lastRun).c_str());
  // A try is news only when it came after the last run.
  if (lastTry && (!lastRun || lastRun->sinceReferenceDate < lastTry->sinceReferenceDate)) {
    std::printf("Last try: %s\n", platform::localizedShortDateTime(*lastTry).c_str());
  }
  if (activity->get("Running").boolValue()) {
    std::printf("\nRunning now.\n");
  } else if (const std::optional<platform::Date> nextRun = activity->get("NextRun").asDate()) {
    std::printf("Next run: %s\n", platform::localizedShortDateTime(*nextRun).c_str());
  } else if (const platform::Value& reason = activity->get("DeferReason"); reason) {
    std::printf("\nDeferred: %s.\n", reason.description().c_str());
  }
}
