// What each writer refuses: what its format cannot carry, nesting past the cap,
// and more objects than shared references may describe. The error names what and where.
#include <gtest/gtest.h>

#include <cmath>
#include <functional>
#include <string>

#include "harness/shared_arrays.h"
#include "platform/plist/json_writer.h"
#include "platform/plist/keyed_archive.h"
#include "platform/plist/property_list.h"

namespace platform {
namespace {

struct Writer {
  const char* name;
  std::int64_t code;    // of its errors
  int deepestArrays;    // how many nested arrays it still writes
  std::function<std::optional<Bytes>(const Value&, ErrorRef*)> write;
};

const Writer kJSON = {"JSON", NSPropertyListWriteInvalidError, 512, json::dataWithJSONObject};
const Writer kXML = {"XML", NSPropertyListWriteInvalidError, 512, [](const Value& v, ErrorRef* error) {
                       return dataWithPropertyList(v, PropertyListFormat::XML, error);
                     }};
const Writer kBinary = {"binary", NSPropertyListWriteInvalidError, 512, [](const Value& v, ErrorRef* error) {
                          return dataWithPropertyList(v, PropertyListFormat::Binary, error);
                        }};
// The value as the user info entry "k" of an error; the error and its user info are two levels.
const Writer kArchive = {"keyed archive", 4866, 511, [](const Value& v, ErrorRef* error) {
                           return archivedDataWithRootError(Error::make("d", 1, {{"k", v}}), error);
                         }};

Value nested(int levels, Value innermost = Value::array({})) {
  for (int i = 1; i < levels; ++i) innermost = Value::array({innermost});
  return innermost;
}

TEST(Writers, RefuseWhatTheyCannotWrite) {
  const Value shared = nested(300);
  // 2^64 + 1 objects through shared arrays, never wrapping round to a light value.
  const Value heavy = Value::array({testing_support::doubledArrays(63), Value::integer(2)});
  const struct {
    const Writer& writer;
    Value value;
    std::string says;  // how the error's description begins
  } kRefused[] = {
      {kJSON, Value::string("scalar root"), "JSON: the top-level object must be a dictionary or an array"},
      {kJSON, Value::dictionary({{"d", Value::date(Date{0})}}), "JSON: cannot write a date at root[\"d\"]"},
      {kJSON, Value::array({Value::data({1})}), "JSON: cannot write data at root[0]"},
      {kJSON, Value::array({Value::array({}), Value::array({Value::real(NAN)})}),
       "JSON: cannot write a non-finite number at root[1][0]"},
      {kJSON, Value::dictionary({{"\xFF", Value::integer(1)}}), "JSON: cannot write text that is not valid UTF-8 at root[\"\xFF\"]"},
      {kXML, Value::array({Value::integer(1), Value::uid(3)}),
       "XML property list: cannot write a UID, which only binary property lists carry at root[1]"},
      {kXML, Value::dictionary({{"k\x01", Value::integer(1)}}),
       "XML property list: cannot write text with a character that XML cannot carry at root[\"k\x01\"]"},
      {kXML, Value::date(Date::fromUnixTime(253402300800.0)), "XML property list: cannot write a date outside the years 0000 to 9999"},
      {kXML, Value::date({NAN}), "XML property list: cannot write a date that is not a number"},
      {kBinary, Value::array({Value::integer(1), Value::uid(1)}),
       "binary property list: cannot write a UID, which is not a property-list object at root[1]"},
      {kBinary, Value::dictionary({{"k", Value()}}), "binary property list: cannot write an absent value at root[\"k\"]"},
      // A shared container is reused deeper than where it was first met.
      {kBinary, Value::array({shared, nested(300, shared)}), "binary property list: cannot write nesting deeper than 512"},
      {kBinary, heavy, "binary property list: cannot write the value: through shared references it describes more than "},
      {kArchive, Value::array({Value::uid(3)}), "keyed archive: cannot archive root[\"k\"][0]: a UID, which is not an archivable object"},
      {kArchive, heavy, "keyed archive: cannot archive the error: through shared references it describes more than "},
  };
  for (const auto& c : kRefused) {
    ErrorRef error;
    EXPECT_FALSE(c.writer.write(c.value, &error)) << c.says;
    ASSERT_TRUE(error) << c.says;
    EXPECT_EQ(error->code, c.writer.code) << c.says;
    EXPECT_TRUE(error->localizedDescription().starts_with(c.says)) << error->localizedDescription();
  }
  for (const Writer* writer : {&kJSON, &kXML, &kBinary, &kArchive}) {
    ErrorRef error;
    EXPECT_TRUE(writer->write(nested(writer->deepestArrays), nullptr)) << writer->name;
    EXPECT_FALSE(writer->write(nested(writer->deepestArrays + 1), &error)) << writer->name;
    ASSERT_TRUE(error) << writer->name;
    EXPECT_NE(error->localizedDescription().find("nesting deeper than 512"), std::string::npos)
        << error->localizedDescription();
  }
}

}  // namespace
}  // namespace platform
