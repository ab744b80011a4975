#include "support/system_version.h"

namespace {

// Value n below this asks for 10.(10 + n).0; any other value for 10.0.0.
constexpr unsigned kNamedVersions = 6;

// The oldest supported system, the one without the version query.
constexpr platform::OperatingSystemVersion kOldestSystem{10, 9, 0};

}  // namespace

LKSSystemVersionManager& LKSSystemVersionManager::sharedManager() {
  static LKSSystemVersionManager manager;
  return manager;
}

bool LKSSystemVersionManager::runningAtLeast(LKSSystemVersion version) const {
  if (!platform::ProcessInfo::current().operatingSystemVersion()) return false;
  const std::int64_t minor = version < kNamedVersions ? 10 + static_cast<std::int64_t>(version) : 0;
  return runningAtLeastVersion({10, minor, 0});
}

bool LKSSystemVersionManager::runningAtLeastVersion(platform::OperatingSystemVersion version) const {
  const std::optional<platform::OperatingSystemVersion> running =
      platform::ProcessInfo::current().operatingSystemVersion();
  if (!running) {
    return version.majorVersion == kOldestSystem.majorVersion &&
           version.minorVersion == kOldestSystem.minorVersion;
  }
  return platform::operatingSystemVersionAtLeast(*running, version);
}
