// Interoperability of binary property lists is checked against plistlib elsewhere.
#include <gtest/gtest.h>

#include <bit>
#include <optional>
#include <span>
#include <string>
#include <vector>

#include "harness/shared_arrays.h"
#include "platform/plist/binary_reader.h"
#include "platform/plist/binary_writer.h"
#include "platform/plist/codec_support.h"
#include "platform/plist/json_writer.h"
#include "platform/plist/property_list.h"
#include "platform/xpc/frame.h"

namespace platform {
namespace {

// Bytes spelled as numbers: hex escapes in literals run into following letters.
std::string b(std::initializer_list<int> bytes) { return std::string(bytes.begin(), bytes.end()); }

std::string bigEndian(std::uint64_t value, int size) {
  std::string out;
  while (size-- > 0) out.push_back(static_cast<char>(value >> (8 * size)));
  return out;
}

// A file of `objects`, given as their bytes, with its offset table and trailer;
// offsets take `offsetSize` bytes and references `referenceSize`.
std::string plist(const std::vector<std::string>& objects, int offsetSize, int referenceSize) {
  std::string out = "bplist00", table;
  for (const std::string& object : objects) {
    table += bigEndian(out.size(), offsetSize);
    out += object;
  }
  return out + table + std::string(6, '\0') + static_cast<char>(offsetSize) + static_cast<char>(referenceSize) +
         bigEndian(objects.size(), 8) + bigEndian(0, 8) + bigEndian(out.size(), 8);
}

std::string plist(const std::vector<std::string>& objects, int size = 1) { return plist(objects, size, size); }

// Objects 0 to n-1, each an array holding the next, except that `empty` is an
// empty array and the last one holds `last`; `top`, when given, replaces object 0.
std::string chain(int n, int empty, int last, const std::string& top = "") {
  std::vector<std::string> objects;
  for (int i = 0; i < n; ++i) objects.push_back(i == empty ? b({0xA0}) : b({0xA1}) + bigEndian(i + 1 < n ? i + 1 : last, 2));
  if (!top.empty()) objects[0] = top;
  return plist(objects, 2);
}

Value read(const std::string& file) { return propertyListWithData(Bytes(file.begin(), file.end()), nullptr, nullptr); }

std::string fileOf(const Bytes& bytes) { return std::string(bytes.begin(), bytes.end()); }

std::string written(const Value& v) {
  const std::optional<Bytes> bytes = dataWithPropertyList(v, PropertyListFormat::Binary, nullptr);
  return bytes ? fileOf(*bytes) : std::string(40, '\0');  // fails the checks below
}

// Each file must be refused with a read error, never crash, hang or allocate
// for a count it does not hold.
TEST(BinaryPlistReader, HostileInputs) {
  // Valid, though close: 512 levels, null and fill references (left out of their container).
  EXPECT_TRUE(read(chain(512, 511, 0)));
  EXPECT_EQ(read(plist({b({0xA3, 1, 2, 3}), b({0x00}), b({0x10, 1}), b({0x0F})})), Value::array({Value::integer(1)}));
  // Keys in any order, one repeated (the last value stays), one in UTF-16.
  EXPECT_EQ(read(plist({b({0xD4, 1, 2, 1, 6, 3, 4, 5, 3}), b({0x51, 'b'}), b({0x51, 'a'}), b({0x10, 1}), b({0x10, 2}),
                        b({0x10, 3}), b({0x61, 0x00, 0xE9})})),
            Value::dictionary({{"a", Value::integer(2)}, {"b", Value::integer(3)}, {"\u00e9", Value::integer(1)}}));
  const std::string one = plist({b({0x09})}), huge = bigEndian(UINT64_MAX, 8);
  // `one` with bytes replaced at `fromEnd`: its offset table at -33, the offset and reference
  // sizes at -26 and -25, and the last bytes of the object count, top and table offset at -17, -9, -1.
  const auto patched = [&](std::ptrdiff_t fromEnd, const std::string& bytes) {
    return std::string(one).replace(one.size() + fromEnd, bytes.size(), bytes);
  };
  const struct {
    const char* why;
    std::string file;
    const char* says = "";  // where the refusal must name the check that caught it
  } kBad[] = {
      {"header only", "bplist00"},
      {"wrong magic", "bplist01" + one.substr(8)},
      {"offset size 0", patched(-26, b({0}))},
      {"reference size 0", patched(-25, b({0}))},
      {"no objects", patched(-17, b({0}))},
      {"top object past the count", patched(-9, b({1}))},
      {"offset table inside the header", patched(-1, b({4}))},
      {"offset table past the trailer", patched(-1, b({200}))},
      {"object count overflows the table size", patched(-26, b({8, 1}) + bigEndian(UINT64_MAX / 8 + 2, 8))},
      {"object offset on the offset table", patched(-33, b({9}))},
      {"reference past the object count", plist({b({0xA1, 2}), b({0x09})}), "past the object count 2"},
      {"cycle through two arrays", plist({b({0xA1, 1}), b({0xA1, 0})})},
      {"array count of 2^64-1", plist({b({0xAF, 0x13}) + huge, b({0x09})})},
      {"dictionary count of 2^63", plist({b({0xDF, 0x13, 0x80}) + std::string(7, '\0')})},
      {"UTF-16 length of 2^64-1 units", plist({b({0x6F, 0x13}) + huge})},
      {"data length past the objects", plist({b({0x44, 1, 2})})},
      {"count that is not an integer", plist({b({0x5F, 0x23}) + std::string(8, '\0')})},
      {"unpaired surrogate", plist({b({0x61, 0xDC, 0x00})})},
      {"non-ASCII byte in an ASCII string", plist({b({0x51, 0xE9})})},
      {"integer of 32 bytes", plist({b({0x15}) + std::string(32, '\0')})},
      {"16-byte integer above 2^64", plist({b({0x14}) + bigEndian(1, 8) + std::string(8, '\0')})},
      {"integer cut off", plist({b({0x13, 0, 0})})},
      {"unknown marker", plist({b({0x70})})},
      {"null top object", plist({b({0x00})})},
      {"513 nested arrays", chain(513, 512, 0)},
      {"10,000 nested arrays", chain(10000, 9999, 0)},
      // [1, 301]: 1-300 nest 300 deep and are read first; 301-600 nest 300 more, then hold 1.
      {"601 levels through a shared object", chain(601, 300, 1, b({0xA2, 0, 1, 1, 45}))},
      {"2^32 objects", patched(-26, b({8, 1}) + bigEndian(std::uint64_t{1} << 32, 8)), "more than 2^32 - 1"},
      {"2^60 paths through 60 arrays that each hold the next twice", fileOf(testing_support::doubledArraysDocument(60)),
       "through shared references the document describes more than"},
  };
  for (const auto& bad : kBad) {
    std::string problem;
    EXPECT_FALSE(binary_plist::read(Bytes(bad.file.begin(), bad.file.end()), problem)) << bad.why;
    EXPECT_TRUE(problem.starts_with("binary property list: ")) << bad.why << ": " << problem;
    EXPECT_NE(problem.find(bad.says), std::string::npos) << bad.why << ": " << problem;
  }
}

// From the trailer: the reference size, and the low byte of the object count.
int referenceSize(const std::string& file) { return file[file.size() - 25]; }
int objectCount(const std::string& file) { return static_cast<std::uint8_t>(file[file.size() - 17]); }

TEST(BinaryPlistWriter, FewestBytesAndEachObjectOnce) {
  EXPECT_EQ(written(Value::integer(255)), plist({b({0x10, 0xFF})}));
  EXPECT_EQ(written(Value::integer(256)), plist({b({0x11, 1, 0})}));
  EXPECT_EQ(written(Value::unsignedInteger(UINT64_MAX)), plist({b({0x14}) + bigEndian(0, 8) + bigEndian(UINT64_MAX, 8)}));
  // 255 distinct integers and their array fit 1-byte references; 256 do not.
  Array integers;
  for (int i = 0; i < 255; ++i) integers.push_back(Value::integer(i));
  EXPECT_EQ(referenceSize(written(Value::array(integers))), 1);
  integers.push_back(Value::integer(255));
  EXPECT_EQ(referenceSize(written(Value::array(integers))), 2);
  // Equal scalars once, but 0.0 and -0.0 apart, and 1 and 1.0 are different kinds.
  const Value a = Value::string("a"), one = Value::integer(1);
  EXPECT_EQ(objectCount(written(Value::array({a, one, a, one, Value::real(0.0), Value::real(-0.0), Value::real(1.0)}))), 6);
  // A container shared 15 levels deep: 2^15 paths, 16 objects.
  EXPECT_EQ(objectCount(written(testing_support::doubledArrays(15))), 16);
}

// A thread's writers reuse their working memory, yet lay out each document as
// if it came first: after a larger one holding the same objects, and after a refusal.
TEST(BinaryPlistWriter, EachDocumentAsIfWrittenFirst) {
  const Value inner = Value::array({Value::string("a"), Value::integer(1)});
  const std::string alone = plist({b({0xA2, 1, 2}), b({0x51, 'a'}), b({0x10, 1})});
  EXPECT_EQ(written(inner), alone);
  Array items;
  for (int i = 0; i < 1000; ++i) items.push_back(Value::array({Value::integer(i + 2), inner}));
  const Value larger = Value::array(std::move(items));
  EXPECT_EQ(read(written(larger)), larger);
  EXPECT_EQ(written(inner), alone);
  EXPECT_FALSE(dataWithPropertyList(Value::array({Value::string("b"), inner, Value()}), PropertyListFormat::Binary, nullptr));
  EXPECT_EQ(written(inner), alone);
}

// The tree that doubledArrays() shares, built without sharing.
Value unsharedTree(int levels) {
  return levels == 0 ? Value::integer(1) : Value::array({unsharedTree(levels - 1), unsharedTree(levels - 1)});
}

std::string text(const std::optional<Bytes>& bytes) {
  return bytes ? std::string(bytes->begin(), bytes->end()) : "<failed>";
}

// A document that shares objects reads while its expanded weight is within what
// its size admits, and then prints, in every format, as its unshared twin does.
TEST(BinaryPlistReader, SharingWithinTheBudget) {
  // As the platform writes it: one 100-byte string 10,000 times, stored once.
  const Value uniqued = Value::array(Array(std::vector<Value>(10'000, Value::string(std::string(100, 'u')))));
  EXPECT_EQ(read(written(uniqued)), uniqued);
  const Value shared = Value::dictionary({{"a", Value::integer(1)}, {"b", Value::string("x y")}});
  const Value reused = Value::array({shared, Value::dictionary({{"c", shared}}), shared});
  EXPECT_EQ(read(written(reused)).description(), reused.description());
  int largest = 0;
  for (int levels = 1; levels <= 24; ++levels) {
    const Bytes file = testing_support::doubledArraysDocument(levels);
    const bool admitted =
        testing_support::doubledArraysWeight(levels) <= codec::ExpansionBudget(file.size()).limit();
    EXPECT_EQ(!!read(fileOf(file)), admitted) << levels << " levels";
    if (admitted) largest = levels;
  }
  ASSERT_GE(largest, 12);
  ASSERT_LT(largest, 24);
  // Printing walks every path; 12 levels keep the texts small.
  const std::string file = written(testing_support::doubledArrays(12));
  const Value document = read(file), twin = unsharedTree(12);
  EXPECT_EQ(written(document), file);
  EXPECT_EQ(document.description(), twin.description());
  EXPECT_EQ(text(dataWithPropertyList(document, PropertyListFormat::XML, nullptr)),
            text(dataWithPropertyList(twin, PropertyListFormat::XML, nullptr)));
  EXPECT_EQ(text(json::dataWithJSONObject(document, nullptr)), text(json::dataWithJSONObject(twin, nullptr)));
}

// Every line printed is indented as deep as its object stands, so depth weighs
// too: 2^11 paths 400 to 500 levels down cross the budget, though the same paths
// at the top weigh a fiftieth of it.
TEST(BinaryPlistReader, DepthWeighsAsItIndents) {
  int admitted = 0, refused = 0;
  for (int wraps = 400; wraps <= 500; wraps += 4) {
    const Bytes file = testing_support::doubledArraysDocument(10, wraps);
    const codec::ExpansionBudget budget(file.size());
    ASSERT_LT(testing_support::doubledArraysWeight(10), budget.limit() / 50);
    std::string problem;
    const bool reads = !!binary_plist::read(file, problem);
    EXPECT_EQ(reads, testing_support::doubledArraysWeight(10, wraps) <= budget.limit()) << wraps << " wraps";
    if (reads) {
      ++admitted;
    } else {
      EXPECT_NE(problem.find(codec::ExpansionBudget::kRefusalPhrase), std::string::npos) << problem;
      ++refused;
    }
  }
  EXPECT_GT(admitted, 0);
  EXPECT_GT(refused, 0);
}

// `items` references to one dictionary {key: 1}, and the file the writer makes of
// it, laid out by hand: the array, the dictionary, its key and the 1, in that
// order; 1-byte references, 2-byte offsets.
Value sharedDictionary(std::size_t items, std::size_t keyLength) {
  const Value entry = Value::dictionary({{std::string(keyLength, 'k'), Value::integer(1)}});
  return Value::array(Array(std::vector<Value>(items, entry)));
}

std::string sharedDictionaryFile(std::size_t items, std::size_t keyLength) {
  return plist({b({0xAF, 0x11}) + bigEndian(items, 2) + std::string(items, '\1'), b({0xD1, 2, 3}),
                b({0x5F, 0x11}) + bigEndian(keyLength, 2) + std::string(keyLength, 'k'), b({0x10, 1})},
               2, 1);
}

// The writer refuses a value exactly when the reader refuses the document it
// would make of it, weighing keys and every reference to a shared container as
// the reader does. 2,000 references weigh 2,000 more for each byte of the key,
// while the budget grows by 16: between keys of 530 and 560 bytes, the document
// becomes too heavy for its size.
TEST(BinaryPlistWriter, WritesExactlyWhatTheReaderReads) {
  int writes = 0, refusals = 0;
  for (std::size_t keyLength = 530; keyLength <= 560; ++keyLength) {
    const std::string file = sharedDictionaryFile(2000, keyLength);
    std::string problem;
    const bool reads = !!binary_plist::read(Bytes(file.begin(), file.end()), problem);
    problem.clear();
    const std::optional<Bytes> bytes = binary_plist::write(sharedDictionary(2000, keyLength), problem);
    ASSERT_EQ(!!bytes, reads) << keyLength << "-byte key: " << problem;
    if (bytes) {
      EXPECT_EQ(fileOf(*bytes), file) << keyLength << "-byte key";
      ++writes;
    } else {
      EXPECT_EQ(problem, "binary property list: cannot write the value: " +
                             codec::ExpansionBudget(file.size()).refusal("it"));
      ++refusals;
    }
  }
  EXPECT_GT(writes, 0);
  EXPECT_GT(refusals, 0);
}

// A frame whose body shares arrays, admitted for its padding and duplicate
// objects, writes smaller than it came; within the floor, it still reads back.
TEST(BinaryPlist, APaddedBodyRewrittenSmallerReadsBack) {
  const std::optional<Bytes> frame = codec::decodeBase64(
      "WFBDMQAAAO8AAAAAAAAAAAAAAAAAAAABYnBsaXN0MDDSAQIDBFdwYXlsb2FkVnNoYXJlZAAAaWJwbGlzdDAw0wECAwQFBVNBbGxVRmlyc3RU"
      "TGFzdKMFBQXSBgcICVdFbmFibGVkVE5hbWUJWURvY3VtZW50cwgPExkeIicvNDUAAAAAAAABAQAAAAAAAAAKAAAAAAAAAAAAAAAAAAAAP6IF"
      "BaIGBqIHB6IICKIMDqIKCqILC6IMDKINDaIODqIPD6IQEKIREaISEqITE6IUFBABCA0VHIiLjpGUl5qdoKOmqayvsrW4AAAAAAAAAQEAAAAA"
      "AAAAFQAAAAAAAAAAAAAAAAAAALo=");
  ASSERT_TRUE(frame);
  const std::optional<Dictionary> message =
      decodeXPCFrameBody(std::span(*frame).subspan(kXPCFrameHeaderSize), nullptr);
  ASSERT_TRUE(message);
  ErrorRef error;
  const std::optional<Bytes> body = encodeXPCFrameBody(*message, &error);
  ASSERT_TRUE(body) << Value::error(error).description();
  EXPECT_LT(body->size(), frame->size() - kXPCFrameHeaderSize);
  const std::optional<Dictionary> again = decodeXPCFrameBody(*body, &error);
  ASSERT_TRUE(again) << Value::error(error).description();
  EXPECT_EQ(*again, *message);
}

// Not-a-number dates and reals read and write as they are, and equal themselves.
TEST(BinaryPlist, NotANumberKeepsItsBits) {
  const double quiet = std::bit_cast<double>(0x7FF8'0000'0000'1234ULL);
  const Value v = Value::array({Value::date({quiet}), Value::real(-quiet)});
  const std::string file = written(v);
  EXPECT_EQ(read(file), v);
  EXPECT_EQ(written(read(file)), file);
}

}  // namespace
}  // namespace platform
