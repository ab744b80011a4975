// Keyed archives checked against an independent reading of the layout: Python's
// plistlib, with its UID type, builds archives the way other archivers lay them
// out (class entries after their objects, mutable classes, NSString objects,
// objects shared by several references) for us to decode, and resolves ours by
// the layout's rules for comparison with its own copy of the document.
#include <gtest/gtest.h>

#include <climits>
#include <string>

#include "harness/python_runner.h"
#include "harness/temp_dir.h"
#include "platform/keyed_archive.h"

namespace platform {
namespace {

// Writes DIR/theirs-*.archive; resolves DIR/ours.archive and compares it with
// OURS below. Exits 1 with the differences on standard error.
constexpr const char* kScript = R"PY(
import plistlib, sys
from plistlib import UID

folder = sys.argv[1]

def archive(objects):
    return plistlib.dumps({"$archiver": "NSKeyedArchiver", "$version": 100000,
                           "$top": {"root": UID(1)}, "$objects": objects},
                          fmt=plistlib.FMT_BINARY)

# A messager error (code 6) caused by a property-list error, laid out with the
# class entries after the objects that use them.
shared = [
    "$null",
    {"NSCode": 6, "NSDomain": UID(2), "NSUserInfo": UID(3), "$class": UID(20)},  # 1
    "com.larkspan.messager",
    {"NS.keys": [UID(4), UID(5), UID(6), UID(7), UID(8), UID(9), UID(10)],       # 3
     "NS.objects": [UID(11), UID(12), UID(15), UID(16), UID(16), UID(18), UID(19)],
     "$class": UID(21)},
    "message", "rights", "name", "nested", "again", "when", "NSUnderlyingError",  # 4-10
    6,                                                                            # 11
    {"NS.objects": [UID(13), UID(13), UID(14)], "$class": UID(22)},  # 12: one string twice
    "com.larkspan.quillhaven.settings.modify-1",                                 # 13
    {"NS.string": "com.larkspan.quillhaven.uninstall", "$class": UID(26)},       # 14
    {"NS.string": "Quillhaven", "$class": UID(26)},                              # 15
    {"NS.objects": [UID(17)], "$class": UID(22)},  # 16: under "nested" and "again"
    {"NS.data": b"\x00\xff", "$class": UID(23)},                                 # 17
    {"NS.time": 631530423.5, "$class": UID(24)},                                 # 18
    {"NSCode": 3840, "NSDomain": UID(25), "NSUserInfo": UID(0), "$class": UID(20)},  # 19
    {"$classname": "NSError", "$classes": ["NSError", "NSObject"]},
    {"$classname": "NSMutableDictionary", "$classes": ["NSMutableDictionary", "NSDictionary", "NSObject"]},
    {"$classname": "NSMutableArray", "$classes": ["NSMutableArray", "NSArray", "NSObject"]},
    {"$classname": "NSMutableData", "$classes": ["NSMutableData", "NSData", "NSObject"]},
    {"$classname": "NSDate", "$classes": ["NSDate", "NSObject"]},
    "NSCocoaErrorDomain",                                                        # 25
    {"$classname": "NSMutableString", "$classes": ["NSMutableString", "NSString", "NSObject"]},
]
with open(f"{folder}/theirs-shared.archive", "wb") as f:
    f.write(archive(shared))

# An error caused by itself: a cycle that no decoder may follow for ever.
cycle = [
    "$null",
    {"NSCode": 1, "NSDomain": UID(2), "NSUserInfo": UID(3), "$class": UID(5)},
    "com.larkspan.spawner",
    {"NS.keys": [UID(4)], "NS.objects": [UID(1)], "$class": UID(6)},
    "NSUnderlyingError",
    {"$classname": "NSError", "$classes": ["NSError", "NSObject"]},
    {"$classname": "NSDictionary", "$classes": ["NSDictionary", "NSObject"]},
]
with open(f"{folder}/theirs-cycle.archive", "wb") as f:
    f.write(archive(cycle))

# Ours, resolved by the layout's rules; anything off the layout is reported.
OURS = ("error", "com.larkspan.authorization", -60005, {
    "rights": ["a (1)", "b (2)"],
    "status": -60005,
    "big": 2**64 - 1,
    "ratio": 1.5,
    "flag": False,
    "when": ("date", -0.25),
    "blob": b"\x01\x02",
    "nested": {"caf\u00e9": "\u65e5\u672c", "empty": {}},
    "NSUnderlyingError": ("error", "com.larkspan.messager", 0, None),
})
problems = []

def resolve(reference, objects):
    if not isinstance(reference, UID):
        problems.append(f"{reference!r} where a UID belongs")
        return None
    if reference.data == 0:
        return None
    entry = objects[reference.data]
    if not isinstance(entry, dict):
        return entry
    entry = dict(entry)
    klass = objects[entry.pop("$class").data]
    name = klass["$classname"]
    if klass != {"$classname": name, "$classes": [name, "NSObject"]}:
        problems.append(f"class entry {klass!r}")
    if name == "NSError":
        if not isinstance(entry.get("NSCode"), int):
            problems.append(f"NSCode {entry.get('NSCode')!r} is not an integer in place")
        return ("error", resolve(entry["NSDomain"], objects), entry["NSCode"],
                resolve(entry["NSUserInfo"], objects))
    if name == "NSDictionary":
        return {resolve(k, objects): resolve(v, objects)
                for k, v in zip(entry["NS.keys"], entry["NS.objects"], strict=True)}
    if name == "NSArray":
        return [resolve(v, objects) for v in entry["NS.objects"]]
    if name == "NSDate":
        return ("date", entry["NS.time"])
    if name == "NSData":
        return entry["NS.data"]
    problems.append(f"class {name}")

with open(f"{folder}/ours.archive", "rb") as f:
    ours = plistlib.load(f, fmt=plistlib.FMT_BINARY)
if {k: ours[k] for k in ("$archiver", "$version", "$top")} != {
        "$archiver": "NSKeyedArchiver", "$version": 100000, "$top": {"root": UID(1)}}:
    problems.append(f"header {ours!r:.300}")
if set(ours) != {"$archiver", "$version", "$top", "$objects"} or ours["$objects"][0] != "$null":
    problems.append("top-level keys or $objects[0]")
names = [o["$classname"] for o in ours["$objects"] if isinstance(o, dict) and "$classname" in o]
if len(names) != len(set(names)):
    problems.append(f"class entries repeated: {names}")
resolved = resolve(UID(1), ours["$objects"])
if resolved != OURS:
    problems.append(f"resolved as {resolved!r}")
for problem in problems:
    print(problem, file=sys.stderr)
sys.exit(1 if problems else 0)
)PY";

class KeyedArchivePlistlib : public testing::Test {
 protected:
  void SetUp() override {
    if (!testing_support::pythonHasModule("plistlib")) {
      GTEST_SKIP() << "python3 with plistlib is not installed: archives made elsewhere not checked";
    }
  }

  // Writes our archive of `error` where the script looks for it, and runs it.
  void runScript(const ErrorRef& error) {
    const std::optional<Bytes> ours = archivedDataWithRootError(error, nullptr);
    ASSERT_TRUE(ours);
    folder_.write("ours.archive", std::string(ours->begin(), ours->end()));
    const auto run = testing_support::runPython(kScript, {folder_.path()});
    ASSERT_TRUE(run);
    ASSERT_EQ(run->status, 0) << run->err;
  }

  Bytes theirs(const std::string& name) const {
    const std::string text = folder_.read("theirs-" + name + ".archive");
    return Bytes(text.begin(), text.end());
  }

  testing_support::TempDir folder_;
};

// The document that the script's OURS states on its side.
ErrorRef ours() {
  return Error::make(
      "com.larkspan.authorization", -60005,
      {
          {"rights", Value::array({Value::string("a (1)"), Value::string("b (2)")})},
          {"status", Value::integer(-60005)},
          {"big", Value::unsignedInteger(UINT64_MAX)},
          {"ratio", Value::real(1.5)},
          {"flag", Value::boolean(false)},
          {"when", Value::date({-0.25})},
          {"blob", Value::data({0x01, 0x02})},
          {"nested", Value::dictionary({{"caf\u00e9", Value::string("\u65e5\u672c")},
                                        {"empty", Value::dictionary({})}})},
          {NSUnderlyingErrorKey, Value::error(Error::make("com.larkspan.messager", 0))},
      });
}

TEST_F(KeyedArchivePlistlib, EachReadsWhatTheOtherArchives) {
  runScript(ours());

  ErrorRef failure;
  const ErrorRef shared = unarchivedErrorFromData(theirs("shared"), &failure);
  ASSERT_TRUE(shared) << failure->localizedDescription();
  const Value settingsRight = Value::string("com.larkspan.quillhaven.settings.modify-1");
  const Value nested = Value::array({Value::data({0x00, 0xFF})});
  const ErrorRef expected = Error::make(
      "com.larkspan.messager", 6,
      {
          {"message", Value::integer(6)},
          {"rights", Value::array({settingsRight, settingsRight,
                                   Value::string("com.larkspan.quillhaven.uninstall")})},
          {"name", Value::string("Quillhaven")},
          {"nested", nested},
          {"again", nested},
          {"when", Value::date({631530423.5})},
          {NSUnderlyingErrorKey, Value::error(Error::make(NSCocoaErrorDomain, 3840))},
      });
  EXPECT_EQ(*shared, *expected);
  // Referenced twice, decoded once.
  EXPECT_EQ(shared->userInfo.get("nested").asArray(), shared->userInfo.get("again").asArray());

  EXPECT_EQ(unarchivedErrorFromData(theirs("cycle"), &failure), nullptr);
  ASSERT_TRUE(failure);
  EXPECT_NE(failure->localizedDescription().find("object 1 contains itself"), std::string::npos)
      << failure->localizedDescription();
}

}  // namespace
}  // namespace platform
