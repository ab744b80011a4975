// Checked against Python's standard plistlib: what it writes, we read; what we write of that, it
// reads as the document it started from. Each format's reader feeds the other format's writer, so
// that no fault of ours can cancel out against its mirror image.
#include <gtest/gtest.h>

#include <string>
#include <tuple>

#include "harness/temp_dir.h"
#include "harness/tool_run.h"
#include "platform/plist/keyed_archive.h"
#include "platform/plist/property_list.h"

namespace platform {
namespace {

// argv: "write" and a folder for theirs.bplist, .xml, .utf16.xml and .archive; or "check" and the folder, to
// compare ours.* there with the documents, exiting 1 with the differences on standard error.
constexpr const char* kScript = R"PY(
import datetime, plistlib, sys
from pathlib import Path
from plistlib import FMT_BINARY, FMT_XML, UID

D, deep = datetime.datetime, bytes(range(40))
for i in range(200):
    deep = [deep] if i % 2 else {"k": deep}
DOCUMENT = {
    "booleans": [True, False],
    "integers": [0, 255, 256, 65535, 65536, 2**32, -1, -2**63, 2**63 - 1, 2**64 - 1],
    "reals": [0.5, 0.1, -2.5e-300, 1e16, float("inf"), float("-inf")],
    "dates": [D(1900, 1, 1), D(1969, 12, 31, 23, 59, 59), D(2001, 1, 1), D(2038, 1, 19, 3, 14, 8)],
    "data": [b"", bytes(range(256)) * 2],
    "strings": ["", "a & b < c > d", "caf\u00e9", "\u20ac \U0001F600 \u65e5\u672c", "tab\tnew\nline"],
    "many": list(range(1000, 1300)),
    "empty": [[], {}],
    "deep": deep,
    "cl\u00e9": {"\u043a\u043b\u044e\u0447": "v"},
}

def klass(name, *bases):
    return {"$classname": name, "$classes": [name, *bases, "NSObject"]}

# An error caused by another, as other archivers lay it out: mutable classes, class entries
# after the objects using them, NSString objects, one array and one string referenced twice.
THEIRS = [
    "$null",
    {"NSCode": -60005, "NSDomain": UID(2), "NSUserInfo": UID(3), "$class": UID(21)},      # 1
    "com.larkspan.authorization",                                                          # 2
    {"NS.keys": [UID(k) for k in range(4, 10)], "NS.objects": [UID(10), UID(10), UID(13), UID(14), UID(15), UID(20)],
     "$class": UID(22)},                                                                   # 3
    "rights", "again", "big", "when", "nested", "NSUnderlyingError",                       # 4-9
    {"NS.objects": [UID(11), UID(11), UID(12)], "$class": UID(23)},                        # 10
    {"NS.string": "a (1)", "$class": UID(24)}, {"NS.data": b"\x00\xff", "$class": UID(25)},  # 11-12
    2**64 - 1, {"NS.time": -0.25, "$class": UID(26)},                                      # 13-14
    {"NS.keys": [UID(16), UID(18)], "NS.objects": [UID(17), UID(19)], "$class": UID(22)},  # 15
    "caf\u00e9", "\u65e5\u672c", "empty", {"NS.keys": [], "NS.objects": [], "$class": UID(22)},  # 16-19
    {"NSCode": 0, "NSDomain": UID(27), "NSUserInfo": UID(0), "$class": UID(21)},           # 20
    klass("NSError"), klass("NSMutableDictionary", "NSDictionary"),                        # 21-22
    klass("NSMutableArray", "NSArray"), klass("NSMutableString", "NSString"),              # 23-24
    klass("NSMutableData", "NSData"), klass("NSDate"), "com.larkspan.messager",            # 25-27
]

# A comparable form that tells True from 1 and 1 from 1.0.
def canon(v):
    if isinstance(v, dict):
        return sorted((k, canon(x)) for k, x in v.items())
    return [canon(x) for x in v] if isinstance(v, (list, tuple)) else (type(v).__name__, v)

# An archived object as plain values, by the keyed-archive layout's rules.
def resolve(objects, reference):
    entry = objects[reference.data] if reference.data else None
    if not isinstance(entry, dict):
        return entry
    classes = objects[entry["$class"].data]["$classes"]
    assert classes[-1] == "NSObject", classes
    field = lambda key: resolve(objects, entry[key])
    if "NSError" in classes:
        return ("error", field("NSDomain"), entry["NSCode"], field("NSUserInfo"))
    if "NSDictionary" in classes:
        return {resolve(objects, k): resolve(objects, v) for k, v in zip(entry["NS.keys"], entry["NS.objects"], strict=True)}
    if "NSArray" in classes:
        return [resolve(objects, v) for v in entry["NS.objects"]]
    return ("date", entry["NS.time"]) if "NSDate" in classes else entry["NS.string" if "NSString" in classes else "NS.data"]

mode, folder = sys.argv[1], Path(sys.argv[2])
header = {"$archiver": "NSKeyedArchiver", "$version": 100000, "$top": {"root": UID(1)}}
if mode == "write":
    for name, value, fmt in (("bplist", DOCUMENT, FMT_BINARY), ("xml", DOCUMENT, FMT_XML),
                             ("archive", {**header, "$objects": THEIRS}, FMT_BINARY)):
        (folder / f"theirs.{name}").write_bytes(plistlib.dumps(value, fmt=fmt))
    xml = plistlib.dumps(DOCUMENT, fmt=FMT_XML).decode().replace('encoding="UTF-8"', 'encoding="UTF-16"', 1)
    (folder / "theirs.utf16.xml").write_bytes(xml.encode("utf-16"))
    sys.exit(0)
problems = []
for name, fmt in (("bplist", FMT_BINARY), ("xml", FMT_XML), ("utf16.bplist", FMT_BINARY)):
    ours = plistlib.loads((folder / f"ours.{name}").read_bytes(), fmt=fmt)
    problems += [f"{name} {k!r}: {ours.get(k)!r:.200}" for k in DOCUMENT.keys() | ours.keys()
                 if canon(ours.get(k)) != canon(DOCUMENT.get(k))]
archive = plistlib.loads((folder / "ours.archive").read_bytes(), fmt=FMT_BINARY)
if {**archive, "$objects": None} != {**header, "$objects": None} or archive["$objects"][0] != "$null":
    problems.append(f"archive header {archive!r:.300}")
if canon(resolve(archive["$objects"], UID(1))) != canon(resolve(THEIRS, UID(1))):
    problems.append(f"archive resolves as {resolve(archive['$objects'], UID(1))!r}")
print(*problems, sep="\n", file=sys.stderr)
sys.exit(1 if problems else 0)
)PY";

TEST(Plistlib, EachReadsWhatTheOtherWrites) {
  testing_support::TempDir dir;
  const auto python = [&](const char* mode) {
    return testing_support::runProgram("/usr/bin/env", {"python3", "-c", kScript, mode, dir.path()});
  };
  const auto load = [&](const char* name) { const std::string text = dir.read(name); return Bytes(text.begin(), text.end()); };
  const auto save = [&](const char* name, const std::optional<Bytes>& bytes) {
    dir.write(name, bytes ? std::string(bytes->begin(), bytes->end()) : "");
  };
  const testing_support::RunResult wrote = python("write");
  if (wrote.exitStatus == 127) GTEST_SKIP() << "python3 not found: not checked against plistlib";
  ASSERT_EQ(wrote.exitStatus, 0) << wrote.err;

  const std::tuple<const char*, const char*, PropertyListFormat, PropertyListFormat> kCrossings[] = {
      {"theirs.bplist", "ours.xml", PropertyListFormat::Binary, PropertyListFormat::XML},
      {"theirs.xml", "ours.bplist", PropertyListFormat::XML, PropertyListFormat::Binary},
      {"theirs.utf16.xml", "ours.utf16.bplist", PropertyListFormat::XML, PropertyListFormat::Binary}};
  for (const auto& [theirs, ours, read, written] : kCrossings) {
    ErrorRef error;
    PropertyListFormat format{};
    const Value document = propertyListWithData(load(theirs), &format, &error);
    ASSERT_TRUE(document.asDictionary()) << theirs << ": " << error->localizedDescription();
    EXPECT_EQ(format, read);
    save(ours, dataWithPropertyList(document, written, &error));
  }
  ErrorRef failure;
  const ErrorRef theirs = unarchivedErrorFromData(load("theirs.archive"), &failure);
  ASSERT_TRUE(theirs) << failure->localizedDescription();
  EXPECT_EQ(theirs->code, -60005);
  // Referenced twice, decoded once.
  EXPECT_EQ(theirs->userInfo.get("rights").asArray(), theirs->userInfo.get("again").asArray());
  save("ours.archive", archivedDataWithRootError(theirs, &failure));

  const testing_support::RunResult checked = python("check");
  EXPECT_EQ(checked.exitStatus, 0) << checked.err;
  // Both follow the platform's XML layout, so the bytes agree too.
  EXPECT_EQ(dir.read("ours.xml"), dir.read("theirs.xml"));
}

}  // namespace
}  // namespace platform
