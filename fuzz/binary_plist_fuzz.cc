// Arbitrary bytes through the binary property-list reader. Whatever parses must
// write back, unless it is too heavy for the smaller document written, and read
// back as the same document, and writing that again must give the same bytes.
#include <cstdint>
#include <cstdlib>
#include <bit>
#include <set>
#include <span>
#include <string>
#include <utility>

#include "fuzz/weight_refusal.h"
#include "platform/plist/binary_reader.h"
#include "platform/plist/binary_writer.h"

namespace {

using platform::Value;

// Equality with reals and dates compared by their bits, so that NaN equals
// itself and -0.0 differs from 0.0. A pair of containers found equal once is
// not compared again: a document that shares containers costs its size, not
// the number of its paths.
class SameDocument {
 public:
  bool operator()(const Value& a, const Value& b) {
    if (a.kind() != b.kind()) return false;
    switch (a.kind()) {
      case Value::Kind::Real:
        return std::bit_cast<std::uint64_t>(*a.asReal()) == std::bit_cast<std::uint64_t>(*b.asReal());
      case Value::Kind::Date:
        return std::bit_cast<std::uint64_t>(a.asDate()->sinceReferenceDate) ==
               std::bit_cast<std::uint64_t>(b.asDate()->sinceReferenceDate);
      case Value::Kind::Array: {
        const platform::Array& x = *a.asArray();
        const platform::Array& y = *b.asArray();
        if (!firstTime(&x, &y)) return true;
        if (x.size() != y.size()) return false;
        for (std::size_t i = 0; i < x.size(); ++i) {
          if (!(*this)(x[i], y[i])) return false;
        }
        return true;
      }
      case Value::Kind::Dictionary: {
        const platform::Dictionary& x = *a.asDictionary();
        const platform::Dictionary& y = *b.asDictionary();
        if (!firstTime(&x, &y)) return true;
        if (x.size() != y.size()) return false;
        for (auto i = x.begin(), j = y.begin(); i != x.end(); ++i, ++j) {
          if (i->first != j->first || !(*this)(i->second, j->second)) return false;
        }
        return true;
      }
      default:
        return a == b;
    }
  }

 private:
  bool firstTime(const void* x, const void* y) { return compared_.insert({x, y}).second; }

  std::set<std::pair<const void*, const void*>> compared_;
};

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  using namespace platform;
  std::string problem;
  const Value value = binary_plist::read(std::span(data, size), problem);
  if (!value) {
    if (problem.empty()) std::abort();  // a refusal always says why
    return 0;
  }
  const std::optional<Bytes> written = binary_plist::writeWithUids(value, problem);
  if (!written) {
    if (!fuzzing::refusedForWeight(problem)) std::abort();
    return 0;
  }
  const Value reread = binary_plist::read(*written, problem);
  if (!reread || !SameDocument()(value, reread)) std::abort();
  const std::optional<Bytes> rewritten = binary_plist::writeWithUids(reread, problem);
  if (!rewritten || *rewritten != *written) std::abort();
  return 0;
}
