#include "cli/version_cmd.h"

#include <cstdio>

#include "platform/foundation/main_bundle.h"

int version_cmd(int, char**) {
  const platform::Dictionary& info = platform::MainBundle::mainBundle().infoDictionary();
  // description() of an absent value is "(null)", as "%s" prints a missing string.
  std::printf("%s (%s)\n", info.get("CFBundleShortVersionString").description().c_str(),
              info.get("CFBundleVersion").description().c_str());
  return 0;
}
