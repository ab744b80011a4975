#include <gtest/gtest.h>

#include <bit>
#include <cmath>
#include <string>

#include "platform/binary_plist_reader.h"
#include "platform/property_list.h"
#include "tests/platform/binary_plist_builder.h"

namespace platform {
namespace {

using testing_support::bigEndian;
using testing_support::binaryPlist;
using testing_support::BinaryPlistLayout;
using testing_support::bytesOf;

// Bytes spelled as numbers: hex escapes in literals run into following letters.
std::string b(std::initializer_list<int> bytes) {
  std::string out;
  for (int byte : bytes) out.push_back(static_cast<char>(byte));
  return out;
}

std::string doubleObject(int marker, double d) { return b({marker}) + bigEndian(std::bit_cast<std::uint64_t>(d), 8); }

Value readBytes(const std::string& file, std::string* problem = nullptr) {
  std::string ignored;
  return binary_plist::read(bytesOf(file), problem ? *problem : ignored);
}

// The value of a file whose only object is `object`.
Value readOne(const std::string& object) { return readBytes(binaryPlist({object})); }

TEST(BinaryPlistReader, ReadsEveryKind) {
  // {"a": [true, false, null], "d": date, "data": <01 02>, "i": -2, "r": 1.5,
  //  "s": "hi", "u": "é", "set": {3}, "uid": UID 7, "f": 0.25 as float}
  const std::string file = binaryPlist({
      b({0xDA, 1, 2, 3, 4, 5, 6, 7, 8, 9, 10, 11, 12, 13, 14, 15, 16, 17, 18, 19, 20}),
      b({0x51}) + "a", b({0x51}) + "d", b({0x54}) + "data", b({0x51}) + "i", b({0x51}) + "r",
      b({0x51}) + "s", b({0x51}) + "u", b({0x53}) + "set", b({0x53}) + "uid", b({0x51}) + "f",
      b({0xA3, 21, 22, 23}),                   // 11: the array
      doubleObject(0x33, -86400.5),            // 12
      b({0x42, 1, 2}),                         // 13
      b({0x13}) + bigEndian(static_cast<std::uint64_t>(-2), 8),  // 14
      doubleObject(0x23, 1.5),                 // 15
      b({0x52}) + "hi",                        // 16
      b({0x61, 0x00, 0xE9}),                   // 17
      b({0xC1, 24}),                           // 18: a set
      b({0x80, 7}),                            // 19
      b({0x22, 0x3E, 0x80, 0x00, 0x00}),       // 20: float 0.25
      b({0x09}), b({0x08}), b({0x00}),         // 21-23
      b({0x10, 3}),                            // 24
  });
  const Value v = readBytes(file);
  ASSERT_TRUE(v);
  const Dictionary& d = *v.asDictionary();
  EXPECT_EQ(d.size(), 10u);
  EXPECT_EQ(d.get("a"), Value::array({Value::boolean(true), Value::boolean(false)}));
  EXPECT_EQ(d.get("d"), Value::date({-86400.5}));
  EXPECT_EQ(d.get("data"), Value::data({1, 2}));
  EXPECT_EQ(d.get("i"), Value::integer(-2));
  EXPECT_EQ(d.get("r"), Value::real(1.5));
  EXPECT_EQ(d.get("s"), Value::string("hi"));
  EXPECT_EQ(d.get("u"), Value::string("\u00e9"));
  EXPECT_EQ(d.get("set"), Value::array({Value::integer(3)}));
  EXPECT_EQ(d.get("uid"), Value::uid(7));
  EXPECT_EQ(d.get("f"), Value::real(0.25));
}

TEST(BinaryPlistReader, IntegerWidths) {
  const std::string zeros(8, '\0'), ones(8, '\xff');
  EXPECT_EQ(readOne(b({0x10, 0xFF})), Value::integer(255));
  EXPECT_EQ(readOne(b({0x11, 0xFF, 0xFF})), Value::integer(65535));
  // 1-, 2- and 4-byte integers are unsigned.
  EXPECT_EQ(readOne(b({0x12, 0xFF, 0xFF, 0xFF, 0xFF})), Value::integer(4294967295));
  EXPECT_EQ(readOne(b({0x13}) + ones), Value::integer(-1));
  EXPECT_EQ(readOne(b({0x13, 0x80}) + std::string(7, '\0')), Value::integer(INT64_MIN));
  EXPECT_EQ(readOne(b({0x14}) + zeros + ones), Value::unsignedInteger(UINT64_MAX));
  EXPECT_EQ(readOne(b({0x14}) + zeros + bigEndian(5, 8)), Value::integer(5));
  EXPECT_EQ(readOne(b({0x14}) + ones + ones), Value::integer(-1));
  EXPECT_EQ(readOne(b({0x14}) + ones + b({0x80}) + std::string(7, '\0')), Value::integer(INT64_MIN));
}

TEST(BinaryPlistReader, StringsInBothEncodings) {
  EXPECT_EQ(readOne(b({0x50})), Value::string(""));
  EXPECT_EQ(readOne(b({0x60})), Value::string(""));
  // U+1D11E as a surrogate pair.
  EXPECT_EQ(readOne(b({0x62, 0xD8, 0x34, 0xDD, 0x1E})), Value::string("\U0001D11E"));
  // A long count, in a 1-byte and a 2-byte integer.
  const std::string twenty(20, 'x');
  EXPECT_EQ(readOne(b({0x5F, 0x10, 20}) + twenty), Value::string(twenty));
  EXPECT_EQ(readOne(b({0x5F, 0x11, 0, 20}) + twenty), Value::string(twenty));
  EXPECT_EQ(readOne(b({0x4F, 0x10, 20}) + twenty), Value::data(Bytes(20, 'x')));
}

TEST(BinaryPlistReader, UidsOfEverySize) {
  EXPECT_EQ(readOne(b({0x80, 0})), Value::uid(0));
  EXPECT_EQ(readOne(b({0x82, 1, 0, 0})), Value::uid(65536));
  EXPECT_EQ(readOne(b({0x8F}) + std::string(8, '\0') + bigEndian(UINT64_MAX, 8)), Value::uid(UINT64_MAX));
}

TEST(BinaryPlistReader, NullAndFillAreLeftOutOfContainers) {
  EXPECT_EQ(readBytes(binaryPlist({b({0xA3, 1, 2, 3}), b({0x00}), b({0x10, 1}), b({0x0F})})),
            Value::array({Value::integer(1)}));
  EXPECT_EQ(readBytes(binaryPlist({b({0xD1, 1, 2}), b({0x51}) + "k", b({0x00})})), Value::dictionary({}));
}

TEST(BinaryPlistReader, LaterDuplicateKeyWins) {
  EXPECT_EQ(readBytes(binaryPlist({b({0xD2, 1, 1, 2, 3}), b({0x51}) + "k", b({0x10, 1}), b({0x10, 2})})),
            Value::dictionary({{"k", Value::integer(2)}}));
}

// Each reference and offset width reads the same document.
TEST(BinaryPlistReader, EveryReferenceAndOffsetSize) {
  for (std::uint8_t size = 1; size <= 8; ++size) {
    BinaryPlistLayout layout;
    layout.offsetSize = size;
    layout.referenceSize = size;
    const std::string file = binaryPlist(
        {b({0xA2}) + bigEndian(1, size) + bigEndian(2, size), b({0x10, 7}), b({0x51}) + "z"}, layout);
    EXPECT_EQ(readBytes(file), Value::array({Value::integer(7), Value::string("z")})) << int{size};
  }
}

TEST(BinaryPlistReader, SharedObjectsAreReadOnce) {
  // 64 levels of [next, next]: 2^64 paths, 65 objects.
  std::vector<std::string> objects;
  for (int i = 0; i < 64; ++i) objects.push_back(b({0xA2, i + 1, i + 1}));
  objects.push_back(b({0x10, 1}));
  const Value v = readBytes(binaryPlist(objects));
  ASSERT_TRUE(v);
  const Array& top = *v.asArray();
  EXPECT_EQ(top[0].asArray(), top[1].asArray());
}

std::string nestedArrays(std::size_t levels) {
  // Object i is an array holding object i+1; the innermost is empty.
  std::vector<std::string> objects;
  BinaryPlistLayout layout;
  layout.referenceSize = 2;
  layout.offsetSize = 4;
  for (std::size_t i = 0; i + 1 < levels; ++i) objects.push_back(b({0xA1}) + bigEndian(i + 1, 2));
  objects.push_back(b({0xA0}));
  return binaryPlist(objects, layout);
}

TEST(BinaryPlistReader, NestingIsCappedAndSaysSo) {
  EXPECT_TRUE(readBytes(nestedArrays(512)));
  std::string problem;
  EXPECT_FALSE(readBytes(nestedArrays(513), &problem));
  EXPECT_EQ(problem, "binary property list: nesting deeper than 512 levels (object 512 at byte 1544)");
  EXPECT_FALSE(readBytes(nestedArrays(10000), &problem));
  EXPECT_NE(problem.find("nesting deeper than 512 levels"), std::string::npos);
}

TEST(BinaryPlistReader, NestingThroughASharedObjectIsCappedToo) {
  // top = [A1, B1]; A1..A300 nest 300 deep and are read first; B1..B300 nest
  // another 300 and end in A1, so the value is over 600 levels deep.
  std::vector<std::string> objects(601);
  BinaryPlistLayout layout;
  layout.referenceSize = 2;
  layout.offsetSize = 4;
  objects[0] = b({0xA2}) + bigEndian(1, 2) + bigEndian(301, 2);
  for (int i = 1; i < 300; ++i) objects[i] = b({0xA1}) + bigEndian(i + 1, 2);
  objects[300] = b({0xA0});
  for (int i = 301; i < 600; ++i) objects[i] = b({0xA1}) + bigEndian(i + 1, 2);
  objects[600] = b({0xA1}) + bigEndian(1, 2);
  std::string problem;
  EXPECT_FALSE(readBytes(binaryPlist(objects, layout), &problem));
  EXPECT_NE(problem.find("nesting deeper than 512 levels"), std::string::npos) << problem;
}

TEST(BinaryPlistReader, ErrorsSayWhatAndWhere) {
  std::string problem;
  EXPECT_FALSE(readBytes(binaryPlist({b({0xA1, 5}), b({0x09})}), &problem));
  EXPECT_EQ(problem,
            "binary property list: reference 5 at byte 9 is past the object count 2 (object 0 at byte 8)");
  EXPECT_FALSE(readBytes(binaryPlist({b({0xA1, 1}), b({0x61, 0xDC, 0x00})}), &problem));
  EXPECT_EQ(problem,
            "binary property list: unpaired surrogate at byte 11 of a UTF-16 string (object 1 at byte 10)");
}

TEST(BinaryPlistReader, RegistryDetectsTheFormatAndReportsCorruption) {
  PropertyListFormat format{};
  const std::string good = binaryPlist({b({0x09})});
  EXPECT_EQ(propertyListWithData(bytesOf(good), &format, nullptr), Value::boolean(true));
  EXPECT_EQ(format, PropertyListFormat::Binary);

  ErrorRef error;
  const std::string bad = binaryPlist({b({0x70})});
  EXPECT_FALSE(propertyListWithData(bytesOf(bad), &format, &error));
  ASSERT_TRUE(error);
  EXPECT_EQ(error->domain, NSCocoaErrorDomain);
  EXPECT_EQ(error->code, NSPropertyListReadCorruptError);
  EXPECT_EQ(error->localizedDescription(),
            "binary property list: unknown object marker 0x70 (object 0 at byte 8)");
}

// Each input must fail with a problem, never crash, hang or allocate for a count
// it does not hold.
TEST(BinaryPlistReader, HostileInputs) {
  const std::string valid = binaryPlist({b({0xA1, 1}), b({0x10, 1})});
  const std::string huge = bigEndian(UINT64_MAX, 8);
  auto withTrailerByte = [&](std::size_t at, int byte) {
    std::string file = valid;
    file[file.size() - 32 + at] = static_cast<char>(byte);
    return file;
  };
  auto layoutWith = [](auto change) {
    BinaryPlistLayout layout;
    change(layout);
    return layout;
  };
  const struct {
    const char* why;
    std::string file;
  } kBad[] = {
      {"header only", "bplist00"},
      {"wrong magic", "bplist01" + valid.substr(8)},
      {"truncated trailer", valid.substr(0, valid.size() - 1)},
      {"offset size 0", withTrailerByte(6, 0)},
      {"offset size 9", withTrailerByte(6, 9)},
      {"reference size 0", withTrailerByte(7, 0)},
      {"no objects", binaryPlist({b({0x09})}, layoutWith([](auto& l) { l.objectCount = 0; }))},
      {"top object past the count", binaryPlist({b({0x09})}, layoutWith([](auto& l) { l.top = 1; }))},
      {"offset table inside the header", binaryPlist({b({0x09})}, layoutWith([](auto& l) { l.tableOffset = 4; }))},
      {"offset table past the trailer", binaryPlist({b({0x09})}, layoutWith([](auto& l) { l.tableOffset = 1000; }))},
      {"object count overflows the table size",
       binaryPlist({b({0x09})}, layoutWith([](auto& l) { l.objectCount = UINT64_MAX / 8 + 2; l.offsetSize = 8; }))},
      {"object offset past the object area",
       binaryPlist({b({0x09})}, layoutWith([](auto& l) { l.offsets = std::vector<std::uint64_t>{200}; }))},
      {"object offset inside the header",
       binaryPlist({b({0x09})}, layoutWith([](auto& l) { l.offsets = std::vector<std::uint64_t>{3}; }))},
      {"object offset on the offset table",
       binaryPlist({b({0x09})}, layoutWith([](auto& l) { l.offsets = std::vector<std::uint64_t>{9}; }))},
      {"reference past the object count", binaryPlist({b({0xA1, 2}), b({0x09})})},
      {"array contains itself", binaryPlist({b({0xA1, 0})})},
      {"cycle through two arrays", binaryPlist({b({0xA1, 1}), b({0xA1, 0})})},
      {"dictionary holds itself as a value", binaryPlist({b({0xD1, 1, 0}), b({0x51}) + "k"})},
      {"array count past the object area", binaryPlist({b({0xA5, 1}), b({0x09})})},
      {"array count of 2^64-1", binaryPlist({b({0xAF, 0x13}) + huge, b({0x09})})},
      {"dictionary count of 2^63", binaryPlist({b({0xDF, 0x13, 0x80}) + std::string(7, '\0')})},
      {"string length past the object area", binaryPlist({b({0x5F, 0x12, 0x7F, 0xFF, 0xFF, 0xFF}) + "abc"})},
      {"UTF-16 length of 2^64-1 units", binaryPlist({b({0x6F, 0x13}) + huge})},
      {"data length past the object area", binaryPlist({b({0x44, 1, 2})})},
      {"count marker is not an integer", binaryPlist({b({0x5F, 0x23}) + std::string(8, '\0')})},
      {"count marker of 16 bytes", binaryPlist({b({0x5F, 0x14}) + std::string(16, '\0')})},
      {"count marker cut off", binaryPlist({b({0x5F})})},
      {"integer key", binaryPlist({b({0xD1, 1, 1}), b({0x10, 1})})},
      {"array key", binaryPlist({b({0xD1, 1, 2}), b({0xA0}), b({0x09})})},
      {"null key", binaryPlist({b({0xD1, 1, 2}), b({0x00}), b({0x09})})},
      {"lone low surrogate", binaryPlist({b({0x61, 0xDC, 0x00})})},
      {"high surrogate at the end", binaryPlist({b({0x61, 0xD8, 0x00})})},
      {"high surrogate before a letter", binaryPlist({b({0x62, 0xD8, 0x00, 0x00, 0x41})})},
      {"odd byte of a UTF-16 string cut off", binaryPlist({b({0x61, 0x00})})},
      {"non-ASCII byte in an ASCII string", binaryPlist({b({0x51, 0xE9})})},
      {"integer of 32 bytes", binaryPlist({b({0x15}) + std::string(32, '\0')})},
      {"integer marker 0x1F", binaryPlist({b({0x1F, 0x10, 1})})},
      {"16-byte integer above 2^64", binaryPlist({b({0x14}) + bigEndian(1, 8) + std::string(8, '\0')})},
      {"16-byte negative whose low half is positive", binaryPlist({b({0x14}) + huge + bigEndian(1, 8)})},
      {"integer cut off", binaryPlist({b({0x13, 0, 0})})},
      {"2-byte real", binaryPlist({b({0x21, 0, 0})})},
      {"real cut off", binaryPlist({b({0x23, 0, 0})})},
      {"date with a 4-byte payload", binaryPlist({b({0x32, 0, 0, 0, 0})})},
      {"date cut off", binaryPlist({b({0x33, 0})})},
      {"UID above 64 bits", binaryPlist({b({0x88, 1}) + std::string(8, '\0')})},
      {"UID cut off", binaryPlist({b({0x83, 1})})},
      {"unknown marker 0x70", binaryPlist({b({0x70})})},
      {"unknown marker 0x90", binaryPlist({b({0x90})})},
      {"unknown marker 0xB0", binaryPlist({b({0xB0})})},
      {"unknown marker 0xE0", binaryPlist({b({0xE0})})},
      {"unknown marker 0xF0", binaryPlist({b({0xF0})})},
      {"unknown marker 0x01", binaryPlist({b({0x01})})},
      {"10,000 nested arrays", nestedArrays(10000)},
      {"null top object", binaryPlist({b({0x00})})},
      {"fill top object", binaryPlist({b({0x0F})})},
  };
  for (const auto& bad : kBad) {
    std::string problem;
    EXPECT_FALSE(readBytes(bad.file, &problem)) << bad.why;
    EXPECT_TRUE(problem.starts_with("binary property list: ")) << bad.why << ": " << problem;
  }
}

}  // namespace
}  // namespace platform
