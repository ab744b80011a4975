#include "platform/foundation/main_bundle.h"

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

const MainBundle& MainBundle::mainBundle() {
  static const MainBundle bundle;
  return bundle;
}

const Dictionary& MainBundle::infoDictionary() const {
  static const Dictionary info = [this] {
    const Value plist = propertyListWithData(infoPropertyListData(), nullptr, nullptr);
    const Dictionary* dictionary = plist.asDictionary();
    return dictionary ? *dictionary : Dictionary();
  }();
  return info;
}

std::span<const std::uint8_t> MainBundle::infoPropertyListData() const {
  if (!__start_qhv_info_plist || !__stop_qhv_info_plist) return {};
  return {__start_qhv_info_plist, __stop_qhv_info_plist};
}

std::string MainBundle::localizedStringForKey(std::string_view key, std::string_view value,
                                              const char*) const {
  return std::string(key.empty() ? value : key);
}

}  // namespace platform
