#include "platform/foundation/main_bundle.h"

#include <cstdint>
#include <span>
#include <string>

#include "platform/plist/property_list.h"

// The linker brackets the section "qhv_info_plist" with these two symbols when
// an executable embeds its information property list there (see
// cli/info_plist.cc); in any other program they stay null.
extern "C" {
extern const std::uint8_t __start_qhv_info_plist[] __attribute__((weak));
extern const std::uint8_t __stop_qhv_info_plist[] __attribute__((weak));
}

namespace platform {
namespace {

Dictionary parseEmbeddedInfoPlist() {
  if (!__start_qhv_info_plist || !__stop_qhv_info_plist) return {};
  const std::span<const std::uint8_t> bytes(__start_qhv_info_plist, __stop_qhv_info_plist);
  const Value plist = propertyListWithData(bytes, nullptr, nullptr);
  const Dictionary* dictionary = plist.asDictionary();
  return dictionary ? *dictionary : Dictionary();
}

}  // namespace

const MainBundle& MainBundle::mainBundle() {
  static const MainBundle bundle;
  return bundle;
}

const Dictionary& MainBundle::infoDictionary() const {
  static const Dictionary info = parseEmbeddedInfoPlist();
  return info;
}

std::string MainBundle::localizedStringForKey(std::string_view key, std::string_view value,
                                              const char*) const {
  return std::string(key.empty() ? value : key);
}

}  // namespace platform
