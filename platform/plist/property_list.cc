// The registry of property-list formats: a cheap detector per format picks the
// reader; writing names its format.
#include "platform/plist/property_list.h"

#include <string>

#include "platform/plist/binary_reader.h"
#include "platform/plist/binary_writer.h"
#include "platform/plist/openstep_reader.h"
#include "platform/plist/xml_reader.h"
#include "platform/plist/xml_writer.h"

namespace platform {
namespace {

void report(ErrorRef* error, std::int64_t code, std::string problem) {
  if (!error) return;
  Dictionary userInfo;
  userInfo.set(NSLocalizedDescriptionKey, Value::string(std::move(problem)));
  *error = Error::make(NSCocoaErrorDomain, code, std::move(userInfo));
}

}  // namespace

Value propertyListWithData(std::span<const std::uint8_t> data, PropertyListFormat* format,
                           ErrorRef* error) {
  std::string problem;
  Value result;
  PropertyListFormat found = PropertyListFormat::XML;
  if (binary_plist::looksLikeBinary(data)) {
    found = PropertyListFormat::Binary;
    result = binary_plist::read(data, problem);
  } else if (xml_plist::looksLikeXml(data)) {
    result = xml_plist::read(data, problem);
  } else if (openstep_plist::looksLikeOpenStep(data)) {
    found = PropertyListFormat::OpenStep;
    result = openstep_plist::read(data, problem);
  } else {
    problem = "property list in an unsupported format";
  }
  if (!result) {
    report(error, NSPropertyListReadCorruptError, std::move(problem));
    return result;
  }
  if (format) *format = found;
  return result;
}

std::optional<Bytes> dataWithPropertyList(const Value& plist, PropertyListFormat format,
                                          ErrorRef* error) {
  // OpenStep is refused by design, as the platform refuses it: a format it reads, never writes.
  std::string problem = "property lists are read in the OpenStep format, never written in it";
  std::optional<Bytes> bytes;
  if (format == PropertyListFormat::Binary) bytes = binary_plist::write(plist, problem);
  if (format == PropertyListFormat::XML) bytes = xml_plist::write(plist, problem);
  if (!bytes) report(error, NSPropertyListWriteInvalidError, std::move(problem));
  return bytes;
}

}  // namespace platform
