// XML property-list reader: any input parses or fails cleanly, as libexpat's
// reading of it does; what parses survives a trip through the XML writer.
#include <cstddef>
#include <cstdint>
#include <span>
#include <string>

#include "fuzz/plist_round_trip.h"
#include "platform/plist/xml_reader.h"

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  std::string problem, expatProblem;
  const platform::Value value = platform::xml_plist::read(std::span(data, size), problem);
  // The documents read without libexpat must read as libexpat reads them.
  const platform::Value expatValue = platform::xml_plist::readThroughExpat(std::span(data, size), expatProblem);
  if (!(value == expatValue) || problem != expatProblem) std::abort();
  if (!value) {
    if (problem.empty()) std::abort();  // a failure always says why
    return 0;
  }
  fuzzing::checkXmlRoundTrip(value);
  return 0;
}
