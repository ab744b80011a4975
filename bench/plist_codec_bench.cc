// Property-list codecs on a settings-like document of about 1 MiB (nested
// dictionaries and arrays of strings, integers, booleans, reals, dates and small
// data): decoding and encoding throughput of the binary and XML formats. After
// the table, CPython's plistlib loads and dumps the same bytes, timed once in a
// child python3, for comparison.
#include <benchmark/benchmark.h>
#include <stdlib.h>
#include <unistd.h>

#include <cstdio>
#include <filesystem>
#include <fstream>
#include <optional>
#include <string>

#include "platform/plist/property_list.h"

namespace {

using platform::Array;
using platform::Bytes;
using platform::Date;
using platform::Dictionary;
using platform::PropertyListFormat;
using platform::Value;

// One profile of the document; every text carries its number, so that the binary
// writer's merging of equal strings does not make the document unrealistically small.
Value profile(int n) {
  const std::string id = std::to_string(n);
  Array exclusions;
  for (int i = 0; i < 6; ++i) {
    exclusions.push_back(Value::string("/Users/user" + id + "/Library/Caches/com.example.app" + std::to_string(i)));
  }
  Array destinations;
  for (int d = 0; d < 2; ++d) {
    Bytes token;
    for (int i = 0; i < 16; ++i) token.push_back(static_cast<std::uint8_t>(n * 31 + d * 7 + i));
    destinations.push_back(Value::dictionary({
        {"Identifier", Value::string("8F0C" + id + "-" + std::to_string(d) + "-4B1E-9A57-0D3C2E6B7A10")},
        {"Capacity", Value::integer(2'000'000'000'000LL + n * 4096LL + d)},
        {"LastBackup", Value::date({700'000'000.0 + n * 3600 + d})},
        {"Encrypted", Value::boolean((n + d) % 2 == 0)},
        {"Token", Value::data(std::move(token))},
    }));
  }
  return Value::dictionary({
      {"Name", Value::string("Profile " + id)},
      {"Enabled", Value::boolean(n % 3 != 0)},
      {"Interval", Value::integer(3600 + n)},
      {"Ratio", Value::real(0.5 + n / 1024.0)},
      {"Created", Value::date({600'000'000.0 + n * 86400.0})},
      {"Exclusions", Value::array(std::move(exclusions))},
      {"Destinations", Value::array(std::move(destinations))},
      {"Schedule", Value::dictionary({{"Days", Value::array({Value::integer(1), Value::integer(3), Value::integer(5)})},
                                      {"Hour", Value::integer(n % 24)},
                                      {"Minute", Value::integer(n % 60)}})},
  });
}

// Profiles enough for about 1 MiB in binary form.
const Value& settingsDocument() {
  static const Value document = [] {
    Dictionary profiles;
    for (int n = 0; n < 1500; ++n) {
      char name[32];
      std::snprintf(name, sizeof name, "profile-%04d", n);
      profiles.set(name, profile(n));
    }
    return Value::dictionary({{"Version", Value::integer(5)}, {"Profiles", Value::dictionary(std::move(profiles))}});
  }();
  return document;
}

const Bytes& encoded(PropertyListFormat format) {
  static const Bytes binary = *platform::dataWithPropertyList(settingsDocument(), PropertyListFormat::Binary, nullptr);
  static const Bytes xml = *platform::dataWithPropertyList(settingsDocument(), PropertyListFormat::XML, nullptr);
  return format == PropertyListFormat::Binary ? binary : xml;
}

void decode(benchmark::State& state, PropertyListFormat format) {
  const Bytes& bytes = encoded(format);
  for (auto _ : state) {
    Value read = platform::propertyListWithData(bytes, nullptr, nullptr);
    if (!read) state.SkipWithError("the document does not read back");
    benchmark::DoNotOptimize(read);
  }
  state.SetBytesProcessed(static_cast<std::int64_t>(state.iterations() * bytes.size()));
  state.counters["bytes"] = static_cast<double>(bytes.size());
}

void encode(benchmark::State& state, PropertyListFormat format) {
  const Value& document = settingsDocument();
  std::size_t size = 0;
  for (auto _ : state) {
    std::optional<Bytes> written = platform::dataWithPropertyList(document, format, nullptr);
    if (!written) state.SkipWithError("the document does not write");
    size = written ? written->size() : 0;
    benchmark::DoNotOptimize(written);
  }
  state.SetBytesProcessed(static_cast<std::int64_t>(state.iterations() * size));
  state.counters["bytes"] = static_cast<double>(size);
}

void BM_DecodeBinary(benchmark::State& state) { decode(state, PropertyListFormat::Binary); }
void BM_EncodeBinary(benchmark::State& state) { encode(state, PropertyListFormat::Binary); }
void BM_DecodeXml(benchmark::State& state) { decode(state, PropertyListFormat::XML); }
void BM_EncodeXml(benchmark::State& state) { encode(state, PropertyListFormat::XML); }
// Wall-clock time, as plistlib is timed below.
BENCHMARK(BM_DecodeBinary)->Unit(benchmark::kMillisecond)->UseRealTime();
BENCHMARK(BM_EncodeBinary)->Unit(benchmark::kMillisecond)->UseRealTime();
BENCHMARK(BM_DecodeXml)->Unit(benchmark::kMillisecond)->UseRealTime();
BENCHMARK(BM_EncodeXml)->Unit(benchmark::kMillisecond)->UseRealTime();

// Times plistlib.loads and plistlib.dumps of the files given, each the best of
// several rounds, and prints one line per measurement.
constexpr const char* kPlistlibScript = R"PY(
import plistlib, sys, time

ROUNDS = 7
for name, path, fmt in (("binary", sys.argv[1], plistlib.FMT_BINARY), ("XML", sys.argv[2], plistlib.FMT_XML)):
    data = open(path, "rb").read()
    def best(action):
        times = []
        for _ in range(ROUNDS):
            start = time.perf_counter()
            action()
            times.append(time.perf_counter() - start)
        return min(times)
    document = plistlib.loads(data)
    loads = best(lambda: plistlib.loads(data))
    dumped = plistlib.dumps(document, fmt=fmt)
    dumps = best(lambda: plistlib.dumps(document, fmt=fmt))
    mib = 1024 * 1024
    print(f"plistlib {name:6} loads {loads * 1e3:8.1f} ms {len(data) / mib / loads:8.1f} MiB/s"
          f"   dumps {dumps * 1e3:8.1f} ms {len(dumped) / mib / dumps:8.1f} MiB/s")
)PY";

void writeFile(const std::string& path, const Bytes& bytes) {
  std::ofstream(path, std::ios::binary).write(reinterpret_cast<const char*>(bytes.data()),
                                              static_cast<std::streamsize>(bytes.size()));
}

void runPlistlib() {
  char folder[] = "/tmp/qhv-plist-bench-XXXXXX";
  if (!mkdtemp(folder)) return;
  const std::string base = folder;
  writeFile(base + "/settings.bplist", encoded(PropertyListFormat::Binary));
  writeFile(base + "/settings.plist", encoded(PropertyListFormat::XML));
  std::ofstream(base + "/time.py") << kPlistlibScript;
  std::printf("\nThe same documents through CPython's plistlib (best of 7):\n");
  std::fflush(stdout);
  const std::string command = "python3 '" + base + "/time.py' '" + base + "/settings.bplist' '" + base +
                              "/settings.plist' 2>&1";
  if (std::system(command.c_str()) != 0) std::printf("plistlib: python3 could not be run; not measured\n");
  std::filesystem::remove_all(base);
}

}  // namespace

int main(int argc, char** argv) {
  benchmark::Initialize(&argc, argv);
  if (benchmark::ReportUnrecognizedArguments(argc, argv)) return 1;
  std::printf("Document: %zu bytes binary, %zu bytes XML\n", encoded(PropertyListFormat::Binary).size(),
              encoded(PropertyListFormat::XML).size());
  benchmark::RunSpecifiedBenchmarks();
  benchmark::Shutdown();
  runPlistlib();
  return 0;
}
