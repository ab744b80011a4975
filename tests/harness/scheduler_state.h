// The development scheduler's state directory as tests use it: what it
// recorded, its settings, the update it offers and the faults it injects, all
// through its state files, whether it serves from a process of its own or in
// the test's. Whatever of this fails is reported as a test failure.
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "harness/temp_dir.h"
#include "messaging/helper_messages.h"
#include "platform/plist/value.h"

namespace testing_support {

// One request as the scheduler recorded it.
struct RecordedRequest {
  std::optional<std::int64_t> message;  // nullopt when it named none
  platform::Value payload;              // absent when none came or it did not parse
  bool authPresent = false;
  std::optional<bool> authValid;  // checked only when the message needs rights and "auth" came
};

// What the scheduler answers to one message instead of carrying it out: an
// entry of its faults file.
using SchedulerFault = platform::Dictionary;
// A reply whose payload is `payload` (any property list).
SchedulerFault replyPayloadFault(platform::Value payload);
// A reply carrying `error`, whose user info must be a property list.
SchedulerFault replyErrorFault(const platform::ErrorRef& error);
// A fault that needs nothing but its kind, one of the dev_scheduler::kFault names.
SchedulerFault faultOfKind(const char* kind);

class SchedulerState {
 public:
  // A fresh, empty state directory, removed at the end.
  SchedulerState() = default;
  SchedulerState(const SchedulerState&) = delete;
  SchedulerState& operator=(const SchedulerState&) = delete;

  const std::string& stateDirectory() const { return state_.path(); }
  // The path of `file` (a name of scheduler/state_files.h) in the state directory.
  std::string statePath(const char* file) const { return state_.file(file); }

  // Every request received so far, oldest first.
  std::vector<RecordedRequest> requests() const;
  // Forgets the requests received so far.
  void clearRequests();

  // The stored settings.
  platform::Dictionary settings() const;

  // Offers an update until one is installed; without one, an update check
  // answers that the installed version is the latest.
  void setAvailableUpdate(const std::string& humanVersion, std::int64_t version);

  // Makes `message` answered by `fault` from its next request on.
  void setFault(QHVHelperMessage message, const SchedulerFault& fault);

 private:
  platform::Value read(const char* file) const;
  void write(const char* file, const platform::Value& value) const;

  TempDir state_;
};

}  // namespace testing_support
