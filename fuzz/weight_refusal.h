// The one refusal a fuzz target accepts when it writes again what it read: a
// document read within the budget of its own size may weigh more than the budget
// of the smaller document that the writer, storing equal objects once, makes of
// it. Any other refusal of what was read is a fault.
#pragma once

#include <string_view>

#include "platform/plist/codec_support.h"
#include "platform/plist/value.h"

namespace fuzzing {

inline bool refusedForWeight(std::string_view problem) {
  return problem.find(platform::codec::ExpansionBudget::kRefusalPhrase) != std::string_view::npos;
}

// True when `error` or an error under it is the budget's refusal.
inline bool refusedForWeight(const platform::ErrorRef& error) {
  for (platform::ErrorRef e = error; e; e = e->underlyingError()) {
    if (refusedForWeight(e->localizedDescription())) return true;
  }
  return false;
}

}  // namespace fuzzing
