// Archives both ways, and archives made elsewhere, are checked against plistlib in plistlib_test.cc.
#include "platform/plist/keyed_archive.h"

#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "harness/shared_arrays.h"
#include "platform/plist/binary_writer.h"
#include "platform/plist/codec_support.h"

namespace platform {
namespace {

Value s(const char* text) { return Value::string(text); }
Value uid(std::uint64_t index) { return Value::uid(index); }

Value classEntry(const char* name) {
  return Value::dictionary({{"$classname", s(name)}, {"$classes", Value::array({s(name), s("NSObject")})}});
}

// An object of the class whose entry is at `classIndex`.
Value object(std::uint64_t classIndex, Dictionary fields) {
  fields.set("$class", uid(classIndex));
  return Value::dictionary(std::move(fields));
}

// An archive whose "$objects" are "$null" and then `objects`, rooted at 1;
// `changes` replace parts of it.
Bytes archive(std::vector<Value> objects, const Dictionary& changes = {}) {
  objects.insert(objects.begin(), s("$null"));
  Dictionary plist{{"$archiver", s("NSKeyedArchiver")},
                   {"$version", Value::integer(100000)},
                   {"$top", Value::dictionary({{"root", uid(1)}})},
                   {"$objects", Value::array(Array(std::move(objects)))}};
  for (const auto& [key, value] : changes) plist.set(key, value);
  std::string problem;
  return binary_plist::writeWithUids(Value::dictionary(plist), problem).value_or(Bytes());
}

Bytes rootedAt(Value root) { return archive({s("d")}, {{"$top", Value::dictionary({{"root", std::move(root)}})}}); }

// The error (object 1, domain 2 "d", class 3) whose user info is object 4, with
// class entry 5 and `more` from object 6 on.
Bytes withUserInfo(Value userInfo, Value userInfoClass, std::vector<Value> more = {}) {
  std::vector<Value> objects = {object(3, {{"NSCode", Value::integer(1)}, {"NSDomain", uid(2)}, {"NSUserInfo", uid(4)}}),
                                s("d"), classEntry("NSError"), std::move(userInfo), std::move(userInfoClass)};
  objects.insert(objects.end(), more.begin(), more.end());
  return archive(std::move(objects));
}

Bytes withDictionary(Array keys, Array members, std::vector<Value> more = {}) {
  return withUserInfo(object(5, {{"NS.keys", Value::array(std::move(keys))}, {"NS.objects", Value::array(std::move(members))}}),
                      classEntry("NSDictionary"), std::move(more));
}

// User info {"d": object 6}, where `arrays` arrays from object 6 on each hold the
// next one `fanOut` times, and the last holds the string `leaf` as often.
Bytes arrayChain(std::uint64_t arrays, std::size_t fanOut, const std::string& leaf = "leaf") {
  const std::uint64_t leafAt = 6 + arrays;
  std::vector<Value> more;
  for (std::uint64_t at = 6; at < leafAt; ++at) {
    more.push_back(object(leafAt + 1, {{"NS.objects", Value::array(Array(std::vector<Value>(fanOut, uid(at + 1))))}}));
  }
  more.push_back(Value::string(leaf));
  more.push_back(classEntry("NSArray"));
  return withDictionary({uid(2)}, {uid(6)}, std::move(more));
}

// The error "d" 1 whose user info {"k": [entry, entry, ...]} holds one dictionary
// entry {key: 1} `items` times.
ErrorRef sharedDictionaryError(std::size_t items, const std::string& key) {
  const Value entry = Value::dictionary({{key, Value::integer(1)}});
  return Error::make("d", 1, {{"k", Value::array(Array(std::vector<Value>(items, entry)))}});
}

// Its archive, laid out by hand in the encoder's order: the error, its domain,
// its user info, "k", the array, the entry, its key and 1, then the class
// entries as they are first needed.
Bytes sharedDictionaryArchive(std::size_t items, const std::string& key) {
  return archive({object(11, {{"NSCode", Value::integer(1)}, {"NSDomain", uid(2)}, {"NSUserInfo", uid(3)}}), s("d"),
                  object(9, {{"NS.keys", Value::array({uid(4)})}, {"NS.objects", Value::array({uid(5)})}}), s("k"),
                  object(10, {{"NS.objects", Value::array(Array(std::vector<Value>(items, uid(6))))}}),
                  object(9, {{"NS.keys", Value::array({uid(7)})}, {"NS.objects", Value::array({uid(8)})}}),
                  Value::string(key), Value::integer(1), classEntry("NSDictionary"), classEntry("NSArray"),
                  classEntry("NSError")});
}

// The encoder refuses an error exactly when the decoder refuses the archive it
// would make of it, weighing keys and every reference to a shared object as the
// decoder does. 2,000 references weigh 2,000 more for each byte of the key while
// the budget grows by 16: between keys of 530 and 560 bytes, the archive becomes
// too heavy for its size.
TEST(KeyedArchive, ArchivesExactlyWhatDecodes) {
  // As the platform archives it: one 100-byte string 10,000 times, stored once.
  const Value text = Value::string(std::string(100, 'u'));
  const ErrorRef uniqued = Error::make("d", 1, {{"k", Value::array(Array(std::vector<Value>(10'000, text)))}});
  const std::optional<Bytes> uniquedArchive = archivedDataWithRootError(uniqued, nullptr);
  ASSERT_TRUE(uniquedArchive);
  const ErrorRef uniquedAgain = unarchivedErrorFromData(*uniquedArchive, nullptr);
  ASSERT_TRUE(uniquedAgain);
  EXPECT_EQ(*uniquedAgain, *uniqued);

  int archives = 0, refusals = 0;
  for (std::size_t keyLength = 530; keyLength <= 560; ++keyLength) {
    const std::string key(keyLength, 'k');
    const Bytes byHand = sharedDictionaryArchive(2000, key);
    const bool decodes = !!unarchivedErrorFromData(byHand, nullptr);
    ErrorRef failure;
    const std::optional<Bytes> bytes = archivedDataWithRootError(sharedDictionaryError(2000, key), &failure);
    ASSERT_EQ(!!bytes, decodes) << keyLength << "-byte key";
    if (bytes) {
      EXPECT_EQ(*bytes, byHand) << keyLength << "-byte key";
      ++archives;
    } else {
      ASSERT_TRUE(failure);
      EXPECT_EQ(failure->code, 4866);
      EXPECT_EQ(failure->localizedDescription(),
                "keyed archive: cannot archive the error: " + codec::ExpansionBudget(byHand.size()).refusal("it"));
      ++refusals;
    }
  }
  EXPECT_GT(archives, 0);
  EXPECT_GT(refusals, 0);
}

TEST(KeyedArchive, RefusesBrokenAndHostileArchives) {
  // 2^12 strings decode; 511 arrays under the error and its user info reach the cap.
  const Bytes good = arrayChain(12, 2);
  ASSERT_TRUE(unarchivedErrorFromData(good, nullptr));
  EXPECT_TRUE(unarchivedErrorFromData(arrayChain(511, 1), nullptr));
  const Value error = classEntry("NSError"), anArray = object(5, {{"NS.objects", Value::array({})}});
  std::string problem;
  const struct {
    const char* why;
    Bytes bytes;
    const char* saying;  // part of the failure's description
  } kBad[] = {
      {"XML, not binary", Bytes{'<', '?', 'x', 'm', 'l'}, "not a binary property list"},
      {"cut short", Bytes(good.begin(), good.end() - 10), "binary property list:"},
      {"top object not a dictionary", binary_plist::writeWithUids(Value::array({}), problem).value(), "not a dictionary"},
      {"another archiver", archive({}, {{"$archiver", s("Other")}}), "NSKeyedArchiver"},
      {"no root", archive({}, {{"$top", Value::dictionary({})}}), "names no root"},
      {"root of another kind", rootedAt(uid(1)), "root object is not an error"},
      {"reference past the objects", archive({object(2, {{"NSDomain", uid(99)}}), error}), "past the 3 objects"},
      {"class not admitted", withUserInfo(anArray, classEntry("NSSet")), "class \"NSSet\""},
      {"bare array in $objects", withUserInfo(Value::array({}), classEntry("NSArray")), "object 4 is an array"},
      {"cause that is the error itself", withDictionary({uid(6)}, {uid(1)}, {s(NSUnderlyingErrorKey)}), "object 1 contains itself"},
      {"more keys than objects", withDictionary({uid(2), uid(6)}, {uid(2)}, {s("k")}), "2 keys and 1 objects"},
      {"code that is a string", archive({object(3, {{"NSCode", s("1")}, {"NSDomain", uid(2)}}), s("d"), error}), "code of error object 1 is a string"},
      {"user info that is an array", withUserInfo(anArray, classEntry("NSArray")), "user info of error object 1 is not a dictionary"},
      {"date without its time", withDictionary({uid(2)}, {uid(6)}, {object(7, {{"NS.time", s("now")}}), classEntry("NSDate")}),
       "date object 6 has no \"NS.time\""},
      {"2^60 strings from 60 arrays", arrayChain(60, 2), "through shared references the archive describes more than"},
      {"a 200-byte string 10,000 times", arrayChain(1, 10'000, std::string(200, 's')),
       "the archive describes more than"},
      {"2^60 paths to one array for an archive", testing_support::doubledArraysDocument(60),
       "binary property list: through shared references the document"},
      {"512 arrays", arrayChain(512, 1), "nesting deeper than 512"},
      {"10,000 arrays", arrayChain(10000, 1), "nesting deeper than 512"},
  };
  for (const auto& bad : kBad) {
    ErrorRef failure;
    EXPECT_EQ(unarchivedErrorFromData(bad.bytes, &failure), nullptr) << bad.why;
    ASSERT_TRUE(failure) << bad.why;
    EXPECT_EQ(failure->code, 4864) << bad.why;
    EXPECT_NE(failure->localizedDescription().find(bad.saying), std::string::npos)
        << bad.why << ": " << failure->localizedDescription();
  }
}

}  // namespace
}  // namespace platform
