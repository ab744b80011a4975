// Old-style property-list reader: any input parses or fails cleanly; what
// parses survives a trip through the XML writer, and a container without data
// reads back from its own description text.
#include <cstddef>
#include <cstdint>
#include <span>
#include <string>

#include "fuzz/plist_round_trip.h"
#include "platform/plist/openstep_reader.h"

namespace {

bool holdsData(const platform::Value& v) {
  if (v.asData()) return true;
  if (const auto* items = v.asArray()) {
    for (const auto& item : *items) {
      if (holdsData(item)) return true;
    }
  }
  if (const auto* entries = v.asDictionary()) {
    for (const auto& [key, item] : *entries) {
      if (holdsData(item)) return true;
    }
  }
  return false;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  std::string problem;
  const platform::Value value = platform::openstep_plist::read(std::span(data, size), problem);
  if (!value) {
    if (problem.empty()) std::abort();  // a failure always says why
    return 0;
  }
  fuzzing::checkXmlRoundTrip(value);
  // Data describes itself as {length = ..., bytes = 0x...}, which is not old-style text.
  if ((value.asArray() || value.asDictionary()) && !holdsData(value)) {
    const std::string text = value.description();
    const platform::Value again =
        platform::openstep_plist::read(std::span(reinterpret_cast<const std::uint8_t*>(text.data()), text.size()),
                                       problem);
    if (!(again == value)) std::abort();
  }
  return 0;
}
