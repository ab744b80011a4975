// Binary property lists checked against an independent implementation: Python's
// standard plistlib reads what we write and writes what we read. Both sides state
// the expected document on their own, so a fault shared by our reader and writer
// cannot hide.
#include <gtest/gtest.h>

#include <cmath>
#include <string>

#include "harness/python_runner.h"
#include "harness/temp_dir.h"
#include "platform/binary_plist_reader.h"
#include "platform/binary_plist_writer.h"
#include "platform/property_list.h"

namespace platform {
namespace {

// argv: a folder. Reads ours*.bplist there and compares them with its own copy of
// the documents; writes the same documents to theirs*.bplist. Exits 1 on a mismatch.
constexpr const char* kScript = R"PY(
import datetime, plistlib, struct, sys

def deep(levels):
    v = "bottom"
    for _ in range(levels):
        v = [v]
    return v

d = datetime.datetime
DOCUMENT = {
    "booleans": [True, False],
    "integers": [0, 1, -1, 255, 256, 65535, 65536, 2**32 - 1, 2**32, -2**63, 2**63 - 1,
                 2**63, 2**64 - 1],
    "reals": [0.0, -0.0, 0.1, 1.5, -2.5e-300, 1e300, float("inf"), float("-inf")],
    "dates": [d(1900, 1, 1), d(1970, 1, 1), d(2000, 12, 31, 23, 59, 59, 500000),
              d(2001, 1, 1), d(2021, 1, 5, 9, 7, 3)],
    "strings": ["", "plain", "a string longer than fourteen", "h\u00e9llo w\u00f6rld",
                "\u65e5\u672c\u8a9e", "astral \U0001F600", "nul\x00inside"],
    "data": [b"", bytes(range(256)) + bytes(44)],
    "empty": [[], {}],
    "many": list(range(1000, 1300)),
    "deep": deep(200),
    "caf\u00e9": "non-ASCII key",
}
ARCHIVE = {
    "$top": {"root": plistlib.UID(1)},
    "$objects": ["$null", plistlib.UID(0), plistlib.UID(300), plistlib.UID(2**32)],
}

def same(a, b):
    if type(a) is not type(b):
        return False
    if isinstance(a, float):
        return struct.pack(">d", a) == struct.pack(">d", b)
    if isinstance(a, list):
        return len(a) == len(b) and all(same(x, y) for x, y in zip(a, b))
    if isinstance(a, dict):
        return a.keys() == b.keys() and all(same(a[k], b[k]) for k in a)
    return a == b

folder = sys.argv[1]
failed = False
for name, expected in (("", DOCUMENT), ("-archive", ARCHIVE)):
    with open(f"{folder}/ours{name}.bplist", "rb") as f:
        ours = plistlib.load(f, fmt=plistlib.FMT_BINARY)
    for key in expected:
        if key not in ours or not same(ours[key], expected[key]):
            print(f"ours{name}: {key!r} reads as {ours.get(key)!r:.300}", file=sys.stderr)
            failed = True
    for key in ours.keys() - expected.keys():
        print(f"ours{name}: unexpected key {key!r}", file=sys.stderr)
        failed = True
    with open(f"{folder}/theirs{name}.bplist", "wb") as f:
        plistlib.dump(expected, f, fmt=plistlib.FMT_BINARY)
sys.exit(1 if failed else 0)
)PY";

Value deep(int levels) {
  Value v = Value::string("bottom");
  for (int i = 0; i < levels; ++i) v = Value::array({v});
  return v;
}

Value document() {
  Array many;
  for (int i = 1000; i < 1300; ++i) many.push_back(Value::integer(i));
  Bytes data;
  for (int i = 0; i < 256; ++i) data.push_back(static_cast<std::uint8_t>(i));
  data.resize(300);
  return Value::dictionary({
      {"booleans", Value::array({Value::boolean(true), Value::boolean(false)})},
      {"integers", Value::array({Value::integer(0), Value::integer(1), Value::integer(-1),
                                 Value::integer(255), Value::integer(256), Value::integer(65535),
                                 Value::integer(65536), Value::integer(4294967295),
                                 Value::integer(4294967296), Value::integer(INT64_MIN),
                                 Value::integer(INT64_MAX), Value::unsignedInteger(1ULL << 63),
                                 Value::unsignedInteger(UINT64_MAX)})},
      {"reals", Value::array({Value::real(0.0), Value::real(-0.0), Value::real(0.1),
                              Value::real(1.5), Value::real(-2.5e-300), Value::real(1e300),
                              Value::real(HUGE_VAL), Value::real(-HUGE_VAL)})},
      // Seconds since 2001-01-01 of the calendar dates the script names.
      {"dates", Value::array({Value::date({-3187296000.0}), Value::date({-978307200.0}),
                              Value::date({-0.5}), Value::date({0.0}),
                              Value::date({631530423.0})})},
      {"strings", Value::array({Value::string(""), Value::string("plain"),
                                Value::string("a string longer than fourteen"),
                                Value::string("h\u00e9llo w\u00f6rld"),
                                Value::string("\u65e5\u672c\u8a9e"),
                                Value::string("astral \U0001F600"),
                                Value::string(std::string("nul\0inside", 10))})},
      {"data", Value::array({Value::data({}), Value::data(data)})},
      {"empty", Value::array({Value::array({}), Value::dictionary({})})},
      {"many", Value::array(many)},
      {"deep", deep(200)},
      {"caf\u00e9", Value::string("non-ASCII key")},
  });
}

Value archive() {
  return Value::dictionary({
      {"$top", Value::dictionary({{"root", Value::uid(1)}})},
      {"$objects", Value::array({Value::string("$null"), Value::uid(0), Value::uid(300),
                                 Value::uid(1ULL << 32)})},
  });
}

class PlistlibBinary : public testing::Test {
 protected:
  void SetUp() override {
    if (!testing_support::pythonHasModule("plistlib")) {
      GTEST_SKIP() << "python3 with plistlib not found: binary interop not checked";
    }
  }

  void write(const std::string& name, const std::optional<Bytes>& bytes) {
    ASSERT_TRUE(bytes);
    dir_.write(name, std::string(bytes->begin(), bytes->end()));
  }

  Bytes read(const std::string& name) const {
    const std::string text = dir_.read(name);
    return Bytes(text.begin(), text.end());
  }

  testing_support::TempDir dir_;
};

TEST_F(PlistlibBinary, EachReadsWhatTheOtherWrites) {
  write("ours.bplist", dataWithPropertyList(document(), PropertyListFormat::Binary, nullptr));
  std::string problem;
  write("ours-archive.bplist", binary_plist::writeWithUids(archive(), problem));

  const auto run = testing_support::runPython(kScript, {dir_.path()});
  ASSERT_TRUE(run) << "python3 did not start";
  EXPECT_EQ(run->status, 0) << run->err;

  ErrorRef error;
  PropertyListFormat format{};
  EXPECT_EQ(propertyListWithData(read("theirs.bplist"), &format, &error), document())
      << (error ? error->localizedDescription() : "");
  EXPECT_EQ(format, PropertyListFormat::Binary);
  EXPECT_EQ(binary_plist::read(read("theirs-archive.bplist"), problem), archive()) << problem;
}

}  // namespace
}  // namespace platform
