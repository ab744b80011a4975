// What a small document that shares objects costs whoever walks what was read:
// the heaviest documents of at most 600 bytes that the writer stores and the
// reader admits, read, then printed as a description, XML and JSON. Two shapes:
// "text", one long string reached through 11 levels of arrays that each hold
// the next twice, where the weight is in the string's bytes; "deep", 12 levels
// of the same doubling under as many single-item arrays as are admitted, where
// the weight is in how far every line printed is indented.
#include <benchmark/benchmark.h>

#include <cstdio>
#include <functional>
#include <optional>
#include <string>

#include "platform/plist/binary_reader.h"
#include "platform/plist/binary_writer.h"
#include "platform/plist/json_writer.h"
#include "platform/plist/property_list.h"

namespace {

using platform::Bytes;
using platform::Value;

constexpr std::size_t kDocumentBytes = 600;

Value doubled(int levels, Value leaf) {
  for (int i = 0; i < levels; ++i) leaf = Value::array({leaf, leaf});
  return leaf;
}

Value wrapped(int levels, Value inner) {
  for (int i = 0; i < levels; ++i) inner = Value::array({inner});
  return inner;
}

// The document of the largest `size` for which `shape` writes, within kDocumentBytes.
Bytes largestDocument(const std::function<Value(int)>& shape) {
  Bytes largest;
  std::string problem;
  for (int size = 0;; ++size) {
    std::optional<Bytes> bytes = platform::binary_plist::write(shape(size), problem);
    if (!bytes || bytes->size() > kDocumentBytes) return largest;
    largest = std::move(*bytes);
  }
}

const Bytes& document(bool deep) {
  static const Bytes text = largestDocument([](int length) {
    return doubled(11, Value::string(std::string(static_cast<std::size_t>(length), 's')));
  });
  static const Bytes nested = largestDocument([](int levels) { return wrapped(levels, doubled(12, Value::integer(1))); });
  return deep ? nested : text;
}

Value read(const Bytes& bytes) {
  std::string problem;
  return platform::binary_plist::read(bytes, problem);
}

void walk(benchmark::State& state, bool deep, const std::function<std::size_t(const Value&)>& print) {
  const Bytes& bytes = document(deep);
  const Value value = read(bytes);
  if (!value) state.SkipWithError("the document does not read back");
  std::size_t printed = 0;
  for (auto _ : state) {
    printed = print(value);
    benchmark::DoNotOptimize(printed);
  }
  state.counters["document"] = static_cast<double>(bytes.size());
  state.counters["printed"] = static_cast<double>(printed);
}

std::size_t describe(const Value& v) { return v.description().size(); }
std::size_t xml(const Value& v) {
  return platform::dataWithPropertyList(v, platform::PropertyListFormat::XML, nullptr).value_or(Bytes()).size();
}
std::size_t json(const Value& v) { return platform::json::dataWithJSONObject(v, nullptr).value_or(Bytes()).size(); }

void BM_Read(benchmark::State& state, bool deep) {
  for (auto _ : state) benchmark::DoNotOptimize(read(document(deep)));
}

BENCHMARK_CAPTURE(BM_Read, text, false)->Unit(benchmark::kMicrosecond);
BENCHMARK_CAPTURE(BM_Read, deep, true)->Unit(benchmark::kMicrosecond);
BENCHMARK_CAPTURE(walk, description_text, false, describe)->Unit(benchmark::kMillisecond);
BENCHMARK_CAPTURE(walk, xml_text, false, xml)->Unit(benchmark::kMillisecond);
BENCHMARK_CAPTURE(walk, json_text, false, json)->Unit(benchmark::kMillisecond);
BENCHMARK_CAPTURE(walk, description_deep, true, describe)->Unit(benchmark::kMillisecond);
BENCHMARK_CAPTURE(walk, xml_deep, true, xml)->Unit(benchmark::kMillisecond);
BENCHMARK_CAPTURE(walk, json_deep, true, json)->Unit(benchmark::kMillisecond);

}  // namespace

BENCHMARK_MAIN();
