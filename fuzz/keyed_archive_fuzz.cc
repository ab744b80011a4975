// Arbitrary bytes through the keyed-archive decoder. Whatever decodes must
// archive again, unless it is too heavy for the smaller archive written, decode
// again, and archive to the same bytes: the encoder's output depends only on the
// error (and on which of its objects are shared, which decoding keeps), so equal
// bytes mean an equal error, NaN reals included, which comparing values would
// not accept. A refusal must always say why.
#include <cstdint>
#include <cstdlib>
#include <span>

#include "fuzz/weight_refusal.h"
#include "platform/plist/keyed_archive.h"

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  using namespace platform;
  ErrorRef failure;
  const ErrorRef error = unarchivedErrorFromData(std::span(data, size), &failure);
  if (!error) {
    if (!failure) std::abort();
    return 0;
  }
  ErrorRef refusal;
  const std::optional<Bytes> archived = archivedDataWithRootError(error, &refusal);
  if (!archived) {
    if (!fuzzing::refusedForWeight(refusal)) std::abort();
    return 0;
  }
  const ErrorRef again = unarchivedErrorFromData(*archived, nullptr);
  if (!again) std::abort();
  const std::optional<Bytes> rearchived = archivedDataWithRootError(again, nullptr);
  if (!rearchived || *rearchived != *archived) std::abort();
  return 0;
}
