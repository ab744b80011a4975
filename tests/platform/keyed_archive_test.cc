// Keyed archives of error objects: what the encoder lays out, what the decoder
// admits, and the faults it refuses with an error instead of a crash.
#include "platform/keyed_archive.h"

#include <gtest/gtest.h>

#include <climits>
#include <string>
#include <vector>

#include "platform/binary_plist_reader.h"
#include "platform/binary_plist_writer.h"

namespace platform {
namespace {

// A chain of two errors whose user info holds every kind an archive carries.
ErrorRef sampleChain() {
  const ErrorRef cause = Error::make(NSCocoaErrorDomain, 3840,
                                     {{NSLocalizedDescriptionKey, Value::string("broken at byte 8")}});
  return Error::make(
      "com.larkspan.messager", 6,
      {
          {"message", Value::integer(6)},
          {"negative", Value::integer(-42)},
          {"huge", Value::unsignedInteger(UINT64_MAX)},
          {"ratio", Value::real(0.25)},
          {"flag", Value::boolean(true)},
          {"off", Value::boolean(false)},
          {"when", Value::date({631530423.0})},
          {"blob", Value::data({0x00, 0x01, 0xFE, 0xFF})},
          {"rights", Value::array({Value::string("a (1)"), Value::string("b (-60005)")})},
          {"nested", Value::dictionary({{"caf\u00e9", Value::string("\u65e5\u672c")},
                                        {"empty", Value::array({})}})},
          {"empty-string", Value::string("")},
          {NSUnderlyingErrorKey, Value::error(cause)},
      });
}

Bytes archived(const ErrorRef& error) {
  ErrorRef failure;
  const std::optional<Bytes> bytes = archivedDataWithRootError(error, &failure);
  EXPECT_TRUE(bytes) << (failure ? failure->localizedDescription() : "no error");
  return bytes.value_or(Bytes());
}

// The archive as a property list, UIDs included.
Dictionary archiveOf(const Bytes& bytes) {
  std::string problem;
  const Value plist = binary_plist::read(bytes, problem);
  EXPECT_TRUE(plist.asDictionary()) << problem;
  return plist.asDictionary() ? *plist.asDictionary() : Dictionary();
}

// What `reference` points at in `objects`; absent unless it is a UID in range.
const Value& pointee(const Array& objects, const Value& reference) {
  static const Value absent;
  const std::optional<Uid> uid = reference.asUid();
  EXPECT_TRUE(uid && uid->index < objects.size()) << reference.description();
  return uid && uid->index < objects.size() ? objects[uid->index] : absent;
}

const Dictionary& fieldsOf(const Value& object) {
  static const Dictionary none;
  EXPECT_TRUE(object.asDictionary()) << object.description();
  return object.asDictionary() ? *object.asDictionary() : none;
}

const Dictionary& entryAt(const Array& objects, const Value& reference) {
  return fieldsOf(pointee(objects, reference));
}

Value classEntry(const char* name) {
  return Value::dictionary({{"$classname", Value::string(name)},
                            {"$classes", Value::array({Value::string(name), Value::string("NSObject")})}});
}

TEST(KeyedArchive, ChainsComeBackEqual) {
  const ErrorRef chain = sampleChain();
  ErrorRef failure;
  const ErrorRef decoded = unarchivedErrorFromData(archived(chain), &failure);
  ASSERT_TRUE(decoded) << failure->localizedDescription();
  EXPECT_EQ(*decoded, *chain);
  EXPECT_EQ(failure, nullptr);

  const ErrorRef bare = Error::make("other", -1);
  const ErrorRef decodedBare = unarchivedErrorFromData(archived(bare), nullptr);
  ASSERT_TRUE(decodedBare);
  EXPECT_EQ(*decodedBare, *bare);
}

TEST(KeyedArchive, LayoutIsThePlatformsOwn) {
  const Dictionary archive = archiveOf(archived(sampleChain()));
  EXPECT_EQ(archive.size(), 4u);
  EXPECT_EQ(archive.get("$archiver"), Value::string("NSKeyedArchiver"));
  EXPECT_EQ(archive.get("$version"), Value::integer(100000));
  EXPECT_EQ(archive.get("$top"), Value::dictionary({{"root", Value::uid(1)}}));
  ASSERT_TRUE(archive.get("$objects").asArray());
  const Array& objects = *archive.get("$objects").asArray();
  ASSERT_FALSE(objects.empty());
  EXPECT_EQ(objects[0], Value::string("$null"));

  // The error: its code in place, everything else by reference.
  const Dictionary& error = entryAt(objects, Value::uid(1));
  EXPECT_EQ(error.get("NSCode"), Value::integer(6));
  EXPECT_EQ(pointee(objects, error.get("NSDomain")), Value::string("com.larkspan.messager"));
  EXPECT_EQ(Value::dictionary(entryAt(objects, error.get("$class"))), classEntry("NSError"));

  const Dictionary& userInfo = entryAt(objects, error.get("NSUserInfo"));
  EXPECT_EQ(Value::dictionary(entryAt(objects, userInfo.get("$class"))), classEntry("NSDictionary"));
  const Array* keys = userInfo.get("NS.keys").asArray();
  const Array* members = userInfo.get("NS.objects").asArray();
  ASSERT_TRUE(keys && members);
  ASSERT_EQ(keys->size(), 12u);
  ASSERT_EQ(members->size(), 12u);
  Dictionary entries;  // user-info key -> what its member's UID points at
  for (std::size_t i = 0; i < keys->size(); ++i) {
    const std::string* key = pointee(objects, (*keys)[i]).asString();
    ASSERT_TRUE(key);
    entries.set(*key, pointee(objects, (*members)[i]));
  }
  // Numbers, booleans and strings sit in "$objects" as they are.
  EXPECT_EQ(entries.get("message"), Value::integer(6));
  EXPECT_EQ(entries.get("huge"), Value::unsignedInteger(UINT64_MAX));
  EXPECT_EQ(entries.get("ratio"), Value::real(0.25));
  EXPECT_EQ(entries.get("flag"), Value::boolean(true));
  EXPECT_EQ(entries.get("empty-string"), Value::string(""));
  // Dates, data and arrays are objects of their classes.
  const Dictionary& date = fieldsOf(entries.get("when"));
  EXPECT_EQ(date.get("NS.time"), Value::real(631530423.0));
  EXPECT_EQ(Value::dictionary(entryAt(objects, date.get("$class"))), classEntry("NSDate"));
  const Dictionary& data = fieldsOf(entries.get("blob"));
  EXPECT_EQ(data.get("NS.data"), Value::data({0x00, 0x01, 0xFE, 0xFF}));
  EXPECT_EQ(Value::dictionary(entryAt(objects, data.get("$class"))), classEntry("NSData"));
  const Dictionary& rights = fieldsOf(entries.get("rights"));
  EXPECT_EQ(Value::dictionary(entryAt(objects, rights.get("$class"))), classEntry("NSArray"));
  const Array* rightsMembers = rights.get("NS.objects").asArray();
  ASSERT_TRUE(rightsMembers && rightsMembers->size() == 2);
  EXPECT_EQ(pointee(objects, (*rightsMembers)[1]), Value::string("b (-60005)"));
  // The cause is an error object under "NSUnderlyingError".
  const Dictionary& cause = fieldsOf(entries.get(NSUnderlyingErrorKey));
  EXPECT_EQ(cause.get("NSCode"), Value::integer(3840));
  EXPECT_EQ(cause.get("$class"), error.get("$class"));  // one class entry per class

  // An error made without user info archives nil for it.
  const Dictionary bare = archiveOf(archived(Error::make("other", 1)));
  ASSERT_TRUE(bare.get("$objects").asArray());
  EXPECT_EQ(entryAt(*bare.get("$objects").asArray(), Value::uid(1)).get("NSUserInfo"), Value::uid(0));
}

TEST(KeyedArchive, SharedObjectsAreArchivedOnceAndComeBackShared) {
  // Equal data counts as shared too, since binary property lists merge it.
  const Value shared = Value::array({Value::string("x"), Value::string("x"), Value::data({1})});
  const ErrorRef error =
      Error::make("d", 1, {{"a", shared}, {"b", shared}, {"c", Value::string("x")}, {"d", Value::data({1})}});
  const Bytes bytes = archived(error);
  const Dictionary archive = archiveOf(bytes);
  ASSERT_TRUE(archive.get("$objects").asArray());
  std::size_t arrays = 0, strings = 0, data = 0;
  for (const Value& object : *archive.get("$objects").asArray()) {
    const Dictionary* fields = object.asDictionary();
    if (fields && fields->contains("NS.objects") && !fields->contains("NS.keys")) ++arrays;
    if (fields && fields->contains("NS.data")) ++data;
    if (object == Value::string("x")) ++strings;
  }
  EXPECT_EQ(arrays, 1u);
  EXPECT_EQ(strings, 1u);
  EXPECT_EQ(data, 1u);

  const ErrorRef decoded = unarchivedErrorFromData(bytes, nullptr);
  ASSERT_TRUE(decoded);
  EXPECT_EQ(*decoded, *error);
  EXPECT_EQ(decoded->userInfo.get("a").asArray(), decoded->userInfo.get("b").asArray());
}

Value deepArray(int levels) {
  Value v = Value::string("bottom");
  for (int i = 0; i < levels; ++i) v = Value::array({v});
  return v;
}

TEST(KeyedArchive, WhatCannotBeArchivedIsRefusedWithAReason) {
  struct Case {
    const char* why;
    ErrorRef error;
    const char* saying;
  };
  const Case cases[] = {
      {"nothing to archive", nullptr, "no error"},
      {"a UID is no object", Error::make("d", 1, {{"k", Value::array({Value::uid(3)})}}), "root[\"k\"][0]: a UID"},
      {"nesting past the cap", Error::make("d", 1, {{"deep", deepArray(600)}}), "nesting deeper"},
      {"text that is not UTF-8", Error::make("d", 1, {{"k", Value::string("\xFF")}}), "not valid UTF-8"},
  };
  for (const Case& c : cases) {
    ErrorRef failure;
    EXPECT_FALSE(archivedDataWithRootError(c.error, &failure)) << c.why;
    ASSERT_TRUE(failure) << c.why;
    EXPECT_EQ(failure->domain, NSCocoaErrorDomain) << c.why;
    EXPECT_EQ(failure->code, 4866) << c.why;
    EXPECT_NE(failure->localizedDescription().find(c.saying), std::string::npos)
        << c.why << ": " << failure->localizedDescription();
    EXPECT_FALSE(archivedDataWithRootError(c.error, nullptr)) << c.why;
  }
  // Under the root error and its user info, 511 arrays reach the cap of 512.
  EXPECT_TRUE(archivedDataWithRootError(Error::make("d", 1, {{"deep", deepArray(511)}}), nullptr));
  EXPECT_FALSE(archivedDataWithRootError(Error::make("d", 1, {{"deep", deepArray(512)}}), nullptr));
}

// An archive whose "$objects" are "$null" followed by `objects`, rooted at 1.
Bytes archiveWith(std::vector<Value> objects, Value root = Value::uid(1)) {
  objects.insert(objects.begin(), Value::string("$null"));
  const Value plist = Value::dictionary({
      {"$archiver", Value::string("NSKeyedArchiver")},
      {"$version", Value::integer(100000)},
      {"$top", Value::dictionary({{"root", std::move(root)}})},
      {"$objects", Value::array(Array(std::move(objects)))},
  });
  std::string problem;
  return binary_plist::writeWithUids(plist, problem).value_or(Bytes());
}

Value uid(std::uint64_t index) { return Value::uid(index); }

Value errorEntry(Value code, Value domain, Value userInfo, Value classUid) {
  Dictionary fields{{"NSDomain", std::move(domain)}, {"$class", std::move(classUid)}};
  if (code) fields.set("NSCode", std::move(code));
  if (userInfo) fields.set("NSUserInfo", std::move(userInfo));
  return Value::dictionary(std::move(fields));
}

Value dictionaryEntry(Array keys, Array members, Value classUid) {
  return Value::dictionary({{"NS.keys", Value::array(std::move(keys))},
                            {"NS.objects", Value::array(std::move(members))},
                            {"$class", std::move(classUid)}});
}

Value arrayEntry(Array members, Value classUid) {
  return Value::dictionary({{"NS.objects", Value::array(std::move(members))}, {"$class", std::move(classUid)}});
}

TEST(KeyedArchive, AdmitsTheMutableClassesAndWrappedValues) {
  // 1 error, 2 domain, 3 user info, 4-7 classes, 8-15 members and keys.
  const Bytes bytes = archiveWith({
      errorEntry(Value::integer(-7), uid(2), uid(3), uid(4)),
      Value::string("com.larkspan.quillhaven"),
      dictionaryEntry({uid(8), uid(9), uid(10), uid(11)}, {uid(12), uid(13), uid(14), uid(15)}, uid(5)),
      classEntry("NSError"),
      classEntry("NSMutableDictionary"),
      classEntry("NSMutableString"),
      classEntry("NSMutableData"),
      Value::string("key"), Value::string("bytes"), Value::string("list"), Value::string("plain"),
      Value::dictionary({{"NS.string", Value::string("Sync")}, {"$class", uid(6)}}),
      Value::dictionary({{"NS.data", Value::data({7})}, {"$class", uid(7)}}),
      arrayEntry({uid(8), uid(8)}, Value::uid(16)),
      Value::data({9}),  // data kept as it is in "$objects"
      classEntry("NSMutableArray"),
  });
  ErrorRef failure;
  const ErrorRef decoded = unarchivedErrorFromData(bytes, &failure);
  ASSERT_TRUE(decoded) << failure->localizedDescription();
  const ErrorRef expected = Error::make("com.larkspan.quillhaven", -7,
                                        {{"key", Value::string("Sync")},
                                         {"bytes", Value::data({7})},
                                         {"list", Value::array({Value::string("key"), Value::string("key")})},
                                         {"plain", Value::data({9})}});
  EXPECT_EQ(*decoded, *expected);

  // No code reads as 0, and no user info (absent or nil) as an empty one.
  for (const Value& userInfo : {Value(), uid(0)}) {
    const ErrorRef minimal =
        unarchivedErrorFromData(archiveWith({errorEntry(Value(), uid(2), userInfo, uid(3)), Value::string("d"),
                                             classEntry("NSError")}),
                                nullptr);
    ASSERT_TRUE(minimal);
    EXPECT_EQ(*minimal, *Error::make("d", 0));
  }
}

struct BadArchive {
  const char* why;
  Bytes bytes;
  const char* saying;  // part of the failure's description
};

std::vector<BadArchive> badArchives() {
  const Value error = classEntry("NSError");
  const Value dictionary = classEntry("NSDictionary");
  const Value array = classEntry("NSArray");
  const Bytes good = archiveWith({errorEntry(Value::integer(1), uid(2), Value(), uid(3)), Value::string("d"), error});
  std::string problem;
  const auto plist = [&](const Value& v) { return binary_plist::writeWithUids(v, problem).value_or(Bytes()); };
  const Value top = Value::dictionary({{"root", uid(1)}});
  const Value objects = Value::array({Value::string("$null")});

  // Each: why it is not an error's archive.
  return {
      {"XML, not binary", Bytes{'<', '?', 'x', 'm', 'l'}, "not a binary property list"},
      {"cut short", Bytes(good.begin(), good.end() - 10), "binary property list:"},
      {"top object not a dictionary", plist(Value::array({})), "top object is not a dictionary"},
      {"another archiver",
       plist(Value::dictionary({{"$archiver", Value::string("Other")}, {"$version", Value::integer(100000)},
                                {"$top", top}, {"$objects", objects}})),
       "NSKeyedArchiver"},
      {"another version",
       plist(Value::dictionary({{"$archiver", Value::string("NSKeyedArchiver")}, {"$version", Value::integer(2)},
                                {"$top", top}, {"$objects", objects}})),
       "version 100000"},
      {"objects without $null first",
       plist(Value::dictionary({{"$archiver", Value::string("NSKeyedArchiver")}, {"$version", Value::integer(100000)},
                                {"$top", top}, {"$objects", Value::array({Value::string("d")})}})),
       "does not start with \"$null\""},
      {"no root",
       plist(Value::dictionary({{"$archiver", Value::string("NSKeyedArchiver")}, {"$version", Value::integer(100000)},
                                {"$top", Value::dictionary({})}, {"$objects", objects}})),
       "names no root"},
      {"nil root", archiveWith({Value::string("d")}, uid(0)), "root object is nil"},
      {"root of another kind", archiveWith({Value::string("d")}), "root object is not an error"},
      {"root not a UID", archiveWith({Value::string("d")}, Value::integer(1)), "not a UID"},
      {"root a dictionary object",
       archiveWith({dictionaryEntry({}, {}, uid(2)), dictionary}), "root object is not an error"},
      {"reference past the objects",
       archiveWith({errorEntry(Value::integer(1), uid(99), Value(), uid(2)), error}), "past the 3 objects"},
      {"class not admitted",
       archiveWith({errorEntry(Value::integer(1), uid(2), uid(3), uid(4)), Value::string("d"),
                    arrayEntry({}, uid(5)), error, classEntry("NSSet")}),
       "class \"NSSet\""},
      {"class reference to a string",
       archiveWith({errorEntry(Value::integer(1), uid(2), Value(), uid(2)), Value::string("d")}),
       "not a class entry"},
      {"object without a class", archiveWith({Value::dictionary({{"NSCode", Value::integer(1)}})}), "no \"$class\""},
      {"bare array in $objects",
       archiveWith({errorEntry(Value::integer(1), uid(2), uid(4), uid(3)), Value::string("d"), error,
                    Value::array({})}),
       "object 4 is an array"},
      {"cause that is the error itself",
       archiveWith({errorEntry(Value::integer(1), uid(2), uid(4), uid(3)), Value::string("d"), error,
                    dictionaryEntry({uid(6)}, {uid(1)}, uid(5)), dictionary, Value::string(NSUnderlyingErrorKey)}),
       "object 1 contains itself"},
      {"dictionary holding itself",
       archiveWith({errorEntry(Value::integer(1), uid(2), uid(4), uid(3)), Value::string("d"), error,
                    dictionaryEntry({uid(6)}, {uid(4)}, uid(5)), dictionary, Value::string("k")}),
       "object 4 contains itself"},
      {"more keys than objects",
       archiveWith({errorEntry(Value::integer(1), uid(2), uid(4), uid(3)), Value::string("d"), error,
                    dictionaryEntry({uid(2), uid(6)}, {uid(2)}, uid(5)), dictionary, Value::string("k")}),
       "2 keys and 1 objects"},
      {"key that is a number",
       archiveWith({errorEntry(Value::integer(1), uid(2), uid(4), uid(3)), Value::string("d"), error,
                    dictionaryEntry({uid(6)}, {uid(2)}, uid(5)), dictionary, Value::integer(5)}),
       "key 0 of dictionary object 4 is an integer"},
      {"nil member",
       archiveWith({errorEntry(Value::integer(1), uid(2), uid(4), uid(3)), Value::string("d"), error,
                    dictionaryEntry({uid(2)}, {uid(0)}, uid(5)), dictionary}),
       "is nil"},
      {"member that is not a reference",
       archiveWith({errorEntry(Value::integer(1), uid(2), uid(4), uid(3)), Value::string("d"), error,
                    dictionaryEntry({uid(2)}, {Value::integer(2)}, uid(5)), dictionary}),
       "is an integer, not a UID"},
      {"code that is a string",
       archiveWith({errorEntry(Value::string("1"), uid(2), Value(), uid(3)), Value::string("d"), error}),
       "code of error object 1 is a string"},
      {"domain that is a number",
       archiveWith({errorEntry(Value::integer(1), uid(2), Value(), uid(3)), Value::integer(7), error}),
       "domain of error object 1 is not a string"},
      {"nil domain", archiveWith({errorEntry(Value::integer(1), uid(0), Value(), uid(2)), error}),
       "domain of error object 1 is not a string"},
      {"user info that is an array",
       archiveWith({errorEntry(Value::integer(1), uid(2), uid(4), uid(3)), Value::string("d"), error,
                    arrayEntry({}, uid(5)), array}),
       "user info of error object 1 is not a dictionary"},
      {"dictionary without keys",
       archiveWith({errorEntry(Value::integer(1), uid(2), uid(4), uid(3)), Value::string("d"), error,
                    arrayEntry({}, uid(5)), dictionary}),
       "no \"NS.keys\" array"},
      {"date without its time",
       archiveWith({errorEntry(Value::integer(1), uid(2), uid(4), uid(3)), Value::string("d"), error,
                    dictionaryEntry({uid(2)}, {uid(6)}, uid(5)), dictionary,
                    Value::dictionary({{"NS.time", Value::string("now")}, {"$class", uid(7)}}), classEntry("NSDate")}),
       "date object 6 has no \"NS.time\""},
      {"string object holding data",
       archiveWith({errorEntry(Value::integer(1), uid(2), uid(4), uid(3)), Value::string("d"), error,
                    dictionaryEntry({uid(2)}, {uid(6)}, uid(5)), dictionary,
                    Value::dictionary({{"NS.string", Value::data({1})}, {"$class", uid(7)}}),
                    classEntry("NSString")}),
       "object 6 has no string under \"NS.string\""},
  };
}

TEST(KeyedArchive, RefusesBrokenArchivesWithAReason) {
  for (const BadArchive& bad : badArchives()) {
    ErrorRef failure;
    EXPECT_EQ(unarchivedErrorFromData(bad.bytes, &failure), nullptr) << bad.why;
    ASSERT_TRUE(failure) << bad.why;
    EXPECT_EQ(failure->domain, NSCocoaErrorDomain) << bad.why;
    EXPECT_EQ(failure->code, 4864) << bad.why;
    EXPECT_NE(failure->localizedDescription().find(bad.saying), std::string::npos)
        << bad.why << ": " << failure->localizedDescription();
    EXPECT_EQ(unarchivedErrorFromData(bad.bytes, nullptr), nullptr) << bad.why;
  }
}

// The error (UID 1) whose user info (UID 4) holds "d" -> UID 6, with `arrays`
// arrays from UID 6 on, each holding the next one `fanOut` times; the last one
// holds the string "leaf" as often.
Bytes arrayChainArchive(std::size_t arrays, std::size_t fanOut) {
  std::vector<Value> objects = {errorEntry(Value::integer(1), uid(3), uid(4), uid(2)), classEntry("NSError"),
                                Value::string("d"), dictionaryEntry({uid(3)}, {uid(6)}, uid(5)),
                                classEntry("NSDictionary")};
  const std::uint64_t leaf = 6 + arrays;
  for (std::uint64_t at = 6; at < leaf; ++at) {
    objects.push_back(arrayEntry(Array(std::vector<Value>(fanOut, uid(at + 1))), uid(leaf + 1)));
  }
  objects.push_back(Value::string("leaf"));
  objects.push_back(classEntry("NSArray"));
  return archiveWith(std::move(objects));
}

TEST(KeyedArchive, RefusesValuesTooLargeToDescribe) {
  // 2^12 strings decode; 2^60 would not fit in memory, whatever the archive's size.
  ErrorRef failure;
  ASSERT_TRUE(unarchivedErrorFromData(arrayChainArchive(12, 2), &failure)) << failure->localizedDescription();
  EXPECT_EQ(unarchivedErrorFromData(arrayChainArchive(60, 2), &failure), nullptr);
  ASSERT_TRUE(failure);
  EXPECT_NE(failure->localizedDescription().find("more than 1000000 objects"), std::string::npos)
      << failure->localizedDescription();
}

TEST(KeyedArchive, RefusesNestingPastTheCap) {
  // Under the root error and its user info, 511 arrays reach the cap of 512.
  EXPECT_TRUE(unarchivedErrorFromData(arrayChainArchive(511, 1), nullptr));
  ErrorRef failure;
  EXPECT_EQ(unarchivedErrorFromData(arrayChainArchive(512, 1), &failure), nullptr);
  ASSERT_TRUE(failure);
  EXPECT_NE(failure->localizedDescription().find("nesting deeper than 512"), std::string::npos)
      << failure->localizedDescription();
}

}  // namespace
}  // namespace platform
