#include <gtest/gtest.h>

#include <bit>
#include <string>

#include "platform/binary_plist_reader.h"
#include "platform/binary_plist_writer.h"
#include "platform/property_list.h"
#include "tests/platform/binary_plist_builder.h"

namespace platform {
namespace {

using testing_support::bigEndian;
using testing_support::binaryPlist;
using testing_support::BinaryPlistLayout;

std::string b(std::initializer_list<int> bytes) {
  std::string out;
  for (int byte : bytes) out.push_back(static_cast<char>(byte));
  return out;
}

std::string written(const Value& v) {
  std::string problem;
  const std::optional<Bytes> bytes = binary_plist::writeWithUids(v, problem);
  EXPECT_TRUE(bytes) << problem;
  return bytes ? std::string(bytes->begin(), bytes->end()) : std::string();
}

// The trailer's reference size and offset size of a written file.
int referenceSizeOf(const std::string& file) { return file[file.size() - 32 + 7]; }
int offsetSizeOf(const std::string& file) { return file[file.size() - 32 + 6]; }

Value arrayOf(std::size_t count, Value item) { return Value::array(Array(std::vector<Value>(count, item))); }

TEST(BinaryPlistWriter, IntegersTakeTheFewestBytes) {
  const std::string zeros(8, '\0');
  const struct {
    Value value;
    std::string object;
  } kCases[] = {
      {Value::integer(0), b({0x10, 0})},
      {Value::integer(255), b({0x10, 0xFF})},
      {Value::integer(256), b({0x11, 1, 0})},
      {Value::integer(65535), b({0x11, 0xFF, 0xFF})},
      {Value::integer(65536), b({0x12, 0, 1, 0, 0})},
      {Value::integer(4294967295), b({0x12, 0xFF, 0xFF, 0xFF, 0xFF})},
      {Value::integer(4294967296), b({0x13}) + bigEndian(4294967296, 8)},
      {Value::integer(INT64_MAX), b({0x13}) + bigEndian(INT64_MAX, 8)},
      // Negative numbers always take the signed 8-byte form.
      {Value::integer(-1), b({0x13}) + bigEndian(UINT64_MAX, 8)},
      {Value::integer(INT64_MIN), b({0x13, 0x80}) + std::string(7, '\0')},
      // Above INT64_MAX: the 16-byte form.
      {Value::unsignedInteger(1ULL << 63), b({0x14}) + zeros + bigEndian(1ULL << 63, 8)},
      {Value::unsignedInteger(UINT64_MAX), b({0x14}) + zeros + bigEndian(UINT64_MAX, 8)},
  };
  for (const auto& c : kCases) {
    EXPECT_EQ(written(c.value), binaryPlist({c.object})) << c.value.description();
  }
}

TEST(BinaryPlistWriter, ScalarLayouts) {
  EXPECT_EQ(written(Value::boolean(true)), binaryPlist({b({0x09})}));
  EXPECT_EQ(written(Value::boolean(false)), binaryPlist({b({0x08})}));
  EXPECT_EQ(written(Value::real(0.5)), binaryPlist({b({0x23}) + bigEndian(std::bit_cast<std::uint64_t>(0.5), 8)}));
  EXPECT_EQ(written(Value::date({-1.0})), binaryPlist({b({0x33}) + bigEndian(std::bit_cast<std::uint64_t>(-1.0), 8)}));
  EXPECT_EQ(written(Value::string("")), binaryPlist({b({0x50})}));
  EXPECT_EQ(written(Value::string("abc")), binaryPlist({b({0x53}) + "abc"}));
  EXPECT_EQ(written(Value::string("\u00e9")), binaryPlist({b({0x61, 0x00, 0xE9})}));
  EXPECT_EQ(written(Value::string("\U0001D11E")), binaryPlist({b({0x62, 0xD8, 0x34, 0xDD, 0x1E})}));
  EXPECT_EQ(written(Value::data({})), binaryPlist({b({0x40})}));
  // Fourteen fits the marker; fifteen moves the count into an integer object.
  EXPECT_EQ(written(Value::string(std::string(14, 'x'))), binaryPlist({b({0x5E}) + std::string(14, 'x')}));
  EXPECT_EQ(written(Value::string(std::string(15, 'x'))), binaryPlist({b({0x5F, 0x10, 15}) + std::string(15, 'x')}));
  EXPECT_EQ(written(Value::data(Bytes(256, 7))), binaryPlist({b({0x4F, 0x11, 1, 0}) + std::string(256, '\7')}));
}

TEST(BinaryPlistWriter, UidsTakeTheFewestBytes) {
  EXPECT_EQ(written(Value::uid(0)), binaryPlist({b({0x80, 0})}));
  EXPECT_EQ(written(Value::uid(255)), binaryPlist({b({0x80, 0xFF})}));
  EXPECT_EQ(written(Value::uid(256)), binaryPlist({b({0x81, 1, 0})}));
  EXPECT_EQ(written(Value::uid(65536)), binaryPlist({b({0x83, 0, 1, 0, 0})}));
  EXPECT_EQ(written(Value::uid(1ULL << 32)), binaryPlist({b({0x87}) + bigEndian(1ULL << 32, 8)}));
}

TEST(BinaryPlistWriter, EqualScalarsAreWrittenOnce) {
  EXPECT_EQ(written(Value::array({Value::string("a"), Value::integer(1), Value::string("a"),
                                  Value::integer(1), Value::boolean(true), Value::boolean(true)})),
            binaryPlist({b({0xA6, 1, 2, 1, 2, 3, 3}), b({0x51}) + "a", b({0x10, 1}), b({0x09})}));
  // Equal under comparison is not enough: 0.0 and -0.0 stay apart, and 1, 1.0
  // and "1" are different kinds.
  EXPECT_EQ(written(Value::array({Value::real(0.0), Value::real(-0.0), Value::real(0.0)})),
            binaryPlist({b({0xA3, 1, 2, 1}), b({0x23}) + std::string(8, '\0'), b({0x23, 0x80}) + std::string(7, '\0')}));
  EXPECT_EQ(written(Value::array({Value::integer(1), Value::real(1.0), Value::string("1")})),
            binaryPlist({b({0xA3, 1, 2, 3}), b({0x10, 1}), b({0x23}) + bigEndian(std::bit_cast<std::uint64_t>(1.0), 8),
                         b({0x51}) + "1"}));
}

TEST(BinaryPlistWriter, DictionaryKeysAreSortedAndShareObjectsWithValues) {
  Dictionary d;
  d.set("b", Value::string("a"));
  d.set("a", Value::string("b"));
  EXPECT_EQ(written(Value::dictionary(d)),
            binaryPlist({b({0xD2, 1, 2, 2, 1}), b({0x51}) + "a", b({0x51}) + "b"}));
}

TEST(BinaryPlistWriter, SharedContainersAreWrittenOnceEqualOnesTwice) {
  const Value inner = Value::array({Value::integer(1)});
  EXPECT_EQ(written(Value::array({inner, inner})),
            binaryPlist({b({0xA2, 1, 1}), b({0xA1, 2}), b({0x10, 1})}));
  EXPECT_EQ(written(Value::array({Value::array({Value::integer(1)}), Value::array({Value::integer(1)})})),
            binaryPlist({b({0xA2, 1, 3}), b({0xA1, 2}), b({0x10, 1}), b({0xA1, 2})}));
}

TEST(BinaryPlistWriter, ManySharedLevelsStayLinear) {
  // 2^64 paths through 65 objects.
  Value v = Value::integer(1);
  for (int i = 0; i < 64; ++i) v = Value::array({v, v});
  const std::string file = written(v);
  EXPECT_EQ(file.size(), 8 + 64 * 3 + 2 + 65 + 32u);
  std::string problem;
  EXPECT_EQ(written(binary_plist::read(testing_support::bytesOf(file), problem)), file) << problem;
}

TEST(BinaryPlistWriter, ReferenceSizeGrowsPast256Objects) {
  // n distinct integers plus the array: the largest reference is n.
  auto integers = [](int n) {
    Array a;
    for (int i = 0; i < n; ++i) a.push_back(Value::integer(i));
    return Value::array(a);
  };
  EXPECT_EQ(referenceSizeOf(written(integers(255))), 1);
  const std::string twoBytes = written(integers(256));
  EXPECT_EQ(referenceSizeOf(twoBytes), 2);
  std::string problem;
  EXPECT_EQ(binary_plist::read(testing_support::bytesOf(twoBytes), problem), integers(256)) << problem;
}

TEST(BinaryPlistWriter, OffsetSizeFollowsTheLastObjectsOffset) {
  // [data, 1]: the integer sits at 8 + 3 + (3 + n) bytes.
  auto file = [](std::size_t n) { return written(Value::array({Value::data(Bytes(n, 0)), Value::integer(1)})); };
  EXPECT_EQ(offsetSizeOf(file(241)), 1);  // last object at byte 255, offset table at 257
  EXPECT_EQ(offsetSizeOf(file(242)), 2);  // last object at byte 256
}

TEST(BinaryPlistWriter, LongContainerCounts) {
  const std::string file = written(arrayOf(15, Value::boolean(true)));
  EXPECT_EQ(file.substr(8, 3), b({0xAF, 0x10, 15}));
}

Value nestedArrays(std::size_t levels, Value innermost = Value::array({})) {
  Value v = std::move(innermost);
  for (std::size_t i = 1; i < levels; ++i) v = Value::array({v});
  return v;
}

TEST(BinaryPlistWriter, NestingIsCapped) {
  std::string problem;
  EXPECT_TRUE(binary_plist::write(nestedArrays(512), problem));
  EXPECT_FALSE(binary_plist::write(nestedArrays(513), problem));
  EXPECT_TRUE(problem.starts_with("binary property list: cannot write nesting deeper than 512 levels at root[0][0]"))
      << problem;
  // A shared container is reused deeper than where it was first met.
  const Value shared = nestedArrays(300);
  EXPECT_FALSE(binary_plist::write(Value::array({shared, nestedArrays(300, shared)}), problem));
  EXPECT_NE(problem.find("nesting deeper than 512 levels"), std::string::npos) << problem;
}

// Values that are not property-list objects make writing fail, saying where.
TEST(BinaryPlistWriter, RefusesWhatIsNotAPropertyList) {
  Dictionary withAbsent;
  withAbsent.set("k", Value());
  Dictionary withBadKey;
  withBadKey.set("\xFF", Value::integer(1));
  const struct {
    Value value;
    const char* problem;
  } kCases[] = {
      {Value::error(Error::make("Domain", 5)),
       "an error object (Domain 5), which is not a property-list object at root"},
      {Value::array({Value::integer(1), Value::uid(1)}), "a UID, which is not a property-list object at root[1]"},
      {Value(), "an absent value at root"},
      {Value::dictionary({{"a", Value::integer(1)}, {"b", Value::dictionary(withAbsent)}}),
       "an absent value at root[\"b\"][\"k\"]"},
      {Value::string("\xC3"), "a string that is not valid UTF-8 at root"},
      {Value::dictionary(withBadKey), "a string that is not valid UTF-8 at root[\"\xFF\"]"},
  };
  for (const auto& c : kCases) {
    std::string problem;
    EXPECT_FALSE(binary_plist::write(c.value, problem)) << c.problem;
    EXPECT_EQ(problem, std::string("binary property list: cannot write ") + c.problem);
  }
}

TEST(BinaryPlistWriter, RegistryWritesBinaryAndReportsInvalidObjects) {
  const Value plist = Value::dictionary({{"k", Value::integer(1)}});
  ErrorRef error;
  const std::optional<Bytes> bytes = dataWithPropertyList(plist, PropertyListFormat::Binary, &error);
  ASSERT_TRUE(bytes);
  EXPECT_EQ(std::string(bytes->begin(), bytes->end()),
            binaryPlist({b({0xD1, 1, 2}), b({0x51}) + "k", b({0x10, 1})}));

  EXPECT_FALSE(dataWithPropertyList(Value::array({Value::uid(3)}), PropertyListFormat::Binary, &error));
  ASSERT_TRUE(error);
  EXPECT_EQ(error->domain, NSCocoaErrorDomain);
  EXPECT_EQ(error->code, NSPropertyListWriteInvalidError);
  EXPECT_EQ(error->localizedDescription(),
            "binary property list: cannot write a UID, which is not a property-list object at root[0]");
}

}  // namespace
}  // namespace platform
