// The process information's operating-system version query. Linux counts as a
// current system: the query exists and answers with a version newer than any
// the tool asks about. Tests install another answer, or a system whose process
// information has no version query at all.
#pragma once

#include <cstdint>
#include <optional>

namespace platform {

struct OperatingSystemVersion {
  std::int64_t majorVersion = 0;
  std::int64_t minorVersion = 0;
  std::int64_t patchVersion = 0;
};

// True when `running` is `wanted` or later, compared major, then minor, then patch.
bool operatingSystemVersionAtLeast(const OperatingSystemVersion& running,
                                   const OperatingSystemVersion& wanted);

class ProcessInfo {
 public:
  virtual ~ProcessInfo() = default;

  // The running system's version; nullopt when the system offers no version query.
  virtual std::optional<OperatingSystemVersion> operatingSystemVersion() const = 0;

  // The process-wide instance: the machine's, or the one installed by setForTesting.
  static const ProcessInfo& current();
  // Makes current() return `info` (owned by the caller), nullptr the machine's; returns the one it replaces.
  static const ProcessInfo* setForTesting(const ProcessInfo* info);
};

// A process information with a fixed answer, for tests.
class FixedProcessInfo : public ProcessInfo {
 public:
  // `version` nullopt stands for a system without the version query.
  explicit FixedProcessInfo(std::optional<OperatingSystemVersion> version) : version_(version) {}
  std::optional<OperatingSystemVersion> operatingSystemVersion() const override {
    return version_;
  }

 private:
  std::optional<OperatingSystemVersion> version_;
};

}  // namespace platform
