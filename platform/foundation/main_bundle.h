// The executable's own bundle: the information property list compiled into the
// tool. Nothing is read at start-up; the list is read on first use.
#pragma once

#include <cstdint>
#include <span>
#include <string>
#include <string_view>

#include "platform/plist/value.h"

namespace platform {

class MainBundle {
 public:
  // The process-wide bundle of the running executable; made once, thread-safely.
  static const MainBundle& mainBundle();

  // The embedded information dictionary, parsed at the first call. An empty
  // dictionary when the embedded list does not parse (never in a correct build).
  const Dictionary& infoDictionary() const;

  // The embedded information property list as stored, which the build writes in
  // the binary format; empty in a program that embeds none.
  std::span<const std::uint8_t> infoPropertyListData() const;

  // The localized text for `key`: there are no string tables, so the key itself,
  // or `value` when the key is empty. `table` is accepted and not used.
  std::string localizedStringForKey(std::string_view key, std::string_view value,
                                    const char* table) const;

 private:
  MainBundle() = default;
};

}  // namespace platform
