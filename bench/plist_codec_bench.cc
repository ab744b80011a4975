// Property-list codecs on a settings-like document of about 1 MiB (nested
// dictionaries and arrays of strings, integers, booleans, reals, dates and small
// data): decoding and encoding throughput of the binary and XML formats, beside
// libplist's on the same bytes when it was found at build time. After the table,
// CPython's plistlib loads and dumps the same bytes in a child python3, and each
// figure is printed as a ratio to both.
#include <benchmark/benchmark.h>
#include <stdlib.h>
#include <unistd.h>

#include <cstdio>
#include <filesystem>
#include <fstream>
#include <map>
#include <optional>
#include <string>
#include <vector>

#if QHV_HAVE_LIBPLIST
#include <plist/plist.h>
#endif

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

// The four figures, each named as its row in the comparison after the table.
constexpr const char* kFigures[] = {"binary decode", "binary encode", "XML decode", "XML encode"};

void BM_DecodeBinary(benchmark::State& state) { decode(state, PropertyListFormat::Binary); }
void BM_EncodeBinary(benchmark::State& state) { encode(state, PropertyListFormat::Binary); }
void BM_DecodeXml(benchmark::State& state) { decode(state, PropertyListFormat::XML); }
void BM_EncodeXml(benchmark::State& state) { encode(state, PropertyListFormat::XML); }
// Processor time, as plistlib is timed below, so that other work on a shared
// machine does not move the ratios.
BENCHMARK(BM_DecodeBinary)->Unit(benchmark::kMillisecond);
BENCHMARK(BM_EncodeBinary)->Unit(benchmark::kMillisecond);
BENCHMARK(BM_DecodeXml)->Unit(benchmark::kMillisecond);
BENCHMARK(BM_EncodeXml)->Unit(benchmark::kMillisecond);

#if QHV_HAVE_LIBPLIST
// libplist reads the same bytes; it encodes the document it read from them.
void libplistDecode(benchmark::State& state, PropertyListFormat format) {
  const Bytes& bytes = encoded(format);
  const char* text = reinterpret_cast<const char*>(bytes.data());
  const auto length = static_cast<std::uint32_t>(bytes.size());
  for (auto _ : state) {
    plist_t read = nullptr;
    if (format == PropertyListFormat::Binary) {
      plist_from_bin(text, length, &read);
    } else {
      plist_from_xml(text, length, &read);
    }
    if (!read) state.SkipWithError("libplist does not read the document");
    plist_free(read);
  }
  state.SetBytesProcessed(static_cast<std::int64_t>(state.iterations() * bytes.size()));
  state.counters["bytes"] = static_cast<double>(bytes.size());
}

void libplistEncode(benchmark::State& state, PropertyListFormat format) {
  const Bytes& bytes = encoded(PropertyListFormat::Binary);
  plist_t document = nullptr;
  plist_from_bin(reinterpret_cast<const char*>(bytes.data()), static_cast<std::uint32_t>(bytes.size()), &document);
  if (!document) return state.SkipWithError("libplist does not read the document");
  std::uint32_t size = 0;
  for (auto _ : state) {
    char* written = nullptr;
    if (format == PropertyListFormat::Binary) {
      plist_to_bin(document, &written, &size);
      plist_to_bin_free(written);
    } else {
      plist_to_xml(document, &written, &size);
      plist_to_xml_free(written);
    }
    if (!written) state.SkipWithError("libplist does not write the document");
  }
  plist_free(document);
  state.SetBytesProcessed(static_cast<std::int64_t>(state.iterations() * size));
  state.counters["bytes"] = static_cast<double>(size);
}

void BM_DecodeBinary_libplist(benchmark::State& state) { libplistDecode(state, PropertyListFormat::Binary); }
void BM_EncodeBinary_libplist(benchmark::State& state) { libplistEncode(state, PropertyListFormat::Binary); }
void BM_DecodeXml_libplist(benchmark::State& state) { libplistDecode(state, PropertyListFormat::XML); }
void BM_EncodeXml_libplist(benchmark::State& state) { libplistEncode(state, PropertyListFormat::XML); }
BENCHMARK(BM_DecodeBinary_libplist)->Unit(benchmark::kMillisecond);
BENCHMARK(BM_EncodeBinary_libplist)->Unit(benchmark::kMillisecond);
BENCHMARK(BM_DecodeXml_libplist)->Unit(benchmark::kMillisecond);
BENCHMARK(BM_EncodeXml_libplist)->Unit(benchmark::kMillisecond);
#endif

// The benchmarks of each figure, ours first, in the order of kFigures.
constexpr const char* kOurs[] = {"BM_DecodeBinary", "BM_EncodeBinary", "BM_DecodeXml", "BM_EncodeXml"};
constexpr const char* kLibplist[] = {"BM_DecodeBinary_libplist", "BM_EncodeBinary_libplist", "BM_DecodeXml_libplist",
                                     "BM_EncodeXml_libplist"};

constexpr double kMiB = 1024.0 * 1024.0;

// Prints the table as usual and keeps each benchmark's throughput in MiB/s: the
// median when it is repeated, the one run otherwise.
class ThroughputReporter : public benchmark::ConsoleReporter {
 public:
  void ReportRuns(const std::vector<Run>& runs) override {
    ConsoleReporter::ReportRuns(runs);
    for (const Run& run : runs) {
      if (run.run_type == Run::RT_Aggregate && run.aggregate_name != "median") continue;
      const auto rate = run.counters.find("bytes_per_second");
      if (rate != run.counters.end() && !run.error_occurred) {
        mibPerSecond[run.run_name.function_name] = rate->second.value / kMiB;
      }
    }
  }
  std::map<std::string, double> mibPerSecond;
};

// Times plistlib.loads and plistlib.dumps of the files given, each the best of
// several rounds, and prints one line per figure: its name and MiB/s.
constexpr const char* kPlistlibScript = R"PY(
import plistlib, sys, time

ROUNDS = 7
for name, path, fmt in (("binary", sys.argv[1], plistlib.FMT_BINARY), ("XML", sys.argv[2], plistlib.FMT_XML)):
    data = open(path, "rb").read()
    def best(action):
        times = []
        for _ in range(ROUNDS):
            start = time.process_time()
            action()
            times.append(time.process_time() - start)
        return min(times)
    document = plistlib.loads(data)
    loads = best(lambda: plistlib.loads(data))
    dumped = plistlib.dumps(document, fmt=fmt)
    dumps = best(lambda: plistlib.dumps(document, fmt=fmt))
    mib = 1024 * 1024
    print(f"{name} decode\t{len(data) / mib / loads:.1f}")
    print(f"{name} encode\t{len(dumped) / mib / dumps:.1f}")
)PY";

void writeFile(const std::string& path, const Bytes& bytes) {
  std::ofstream(path, std::ios::binary).write(reinterpret_cast<const char*>(bytes.data()),
                                              static_cast<std::streamsize>(bytes.size()));
}

// plistlib's MiB/s by figure; empty when python3 could not be run.
std::map<std::string, double> runPlistlib() {
  std::map<std::string, double> figures;
  char folder[] = "/tmp/qhv-plist-bench-XXXXXX";
  if (!mkdtemp(folder)) return figures;
  const std::string base = folder;
  writeFile(base + "/settings.bplist", encoded(PropertyListFormat::Binary));
  writeFile(base + "/settings.plist", encoded(PropertyListFormat::XML));
  std::ofstream(base + "/time.py") << kPlistlibScript;
  const std::string command = "python3 '" + base + "/time.py' '" + base + "/settings.bplist' '" + base +
                              "/settings.plist' 2>/dev/null";
  if (FILE* output = popen(command.c_str(), "r")) {
    char line[128];
    while (std::fgets(line, sizeof line, output)) {
      char format[16], operation[16];
      double mib = 0;
      if (std::sscanf(line, "%15s %15[^\t]\t%lf", format, operation, &mib) == 3) {
        figures[std::string(format) + " " + operation] = mib;
      }
    }
    pclose(output);
  }
  std::filesystem::remove_all(base);
  return figures;
}

// "   1.23x" of ours against another figure, or a dash where either is missing.
std::string ratio(double ours, std::optional<double> other) {
  char text[32];
  if (ours > 0 && other && *other > 0) {
    std::snprintf(text, sizeof text, "%8.2fx", ours / *other);
  } else {
    std::snprintf(text, sizeof text, "%9s", "-");
  }
  return text;
}

std::string throughput(std::optional<double> mib) {
  char text[32];
  if (mib) {
    std::snprintf(text, sizeof text, "%9.1f", *mib);
  } else {
    std::snprintf(text, sizeof text, "%9s", "-");
  }
  return text;
}

std::optional<double> lookUp(const std::map<std::string, double>& figures, const std::string& name) {
  const auto found = figures.find(name);
  return found == figures.end() ? std::nullopt : std::optional<double>(found->second);
}

void printComparison(const ThroughputReporter& reporter) {
  const std::map<std::string, double> plistlib = runPlistlib();
  if (plistlib.empty()) std::printf("\nplistlib: python3 could not be run; its column is skipped\n");
#if !QHV_HAVE_LIBPLIST
  std::printf("\nlibplist: not found when this benchmark was built (install libplist-dev); its column is skipped\n");
#endif
  std::printf("\nMiB/s (plistlib: best of 7)  %9s %9s %9s %9s %9s\n", "qhvctl", "libplist", "plistlib", "/libplist",
              "/plistlib");
  for (std::size_t i = 0; i < std::size(kFigures); ++i) {
    const std::optional<double> ours = lookUp(reporter.mibPerSecond, kOurs[i]);
    const std::optional<double> libplist = lookUp(reporter.mibPerSecond, kLibplist[i]);
    const std::optional<double> python = lookUp(plistlib, kFigures[i]);
    std::printf("%-28s %s %s %s %s %s\n", kFigures[i], throughput(ours).c_str(), throughput(libplist).c_str(),
                throughput(python).c_str(), ratio(ours.value_or(0), libplist).c_str(),
                ratio(ours.value_or(0), python).c_str());
  }
}

}  // namespace

int main(int argc, char** argv) {
  benchmark::Initialize(&argc, argv);
  if (benchmark::ReportUnrecognizedArguments(argc, argv)) return 1;
  std::printf("Document: %zu bytes binary, %zu bytes XML\n", encoded(PropertyListFormat::Binary).size(),
              encoded(PropertyListFormat::XML).size());
  ThroughputReporter reporter;
  benchmark::RunSpecifiedBenchmarks(&reporter);
  benchmark::Shutdown();
  printComparison(reporter);
  return 0;
}
