// The development scheduler as tests use it: started in the background over a
// fresh state directory (inside the current sandbox, or serving in a socket
// directory of its own), stopped at the end; what it recorded, its settings,
// the update it offers and the faults it injects, read and set through the
// files of its state directory while it serves (scheduler/state_files.h).
//
//   DevScheduler scheduler;
//   scheduler.setFault(QHVHelperMessageInstallUpdate, SchedulerFault::closeConnection());
//   ... run the tool ...
//   EXPECT_EQ(scheduler.requests().back().message, QHVHelperMessageInstallUpdate);
//
// A scheduler that cannot be started or stopped, or a state file that cannot
// be read or written, is reported as a test failure. One that would serve the
// system's service directory outside a sandbox is not started: make it after
// the sandbox is entered (in the test's body, not as a member of its fixture).
#pragma once

#include <sys/types.h>

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "harness/temp_dir.h"
#include "harness/tool_run.h"
#include "messaging/helper_messages.h"
#include "platform/value.h"

namespace testing_support {

// One request as the scheduler recorded it.
struct RecordedRequest {
  std::optional<std::int64_t> message;  // nullopt when it named none
  platform::Value payload;              // absent when none came or it did not parse
  bool payloadUnreadable = false;       // a payload came that did not parse
  bool authPresent = false;
  std::optional<bool> authValid;  // checked only when the message needs rights and "auth" came
  uid_t uid = 0;
  pid_t pid = 0;
};

// What the scheduler answers to one message instead of carrying it out.
class SchedulerFault {
 public:
  // A reply whose payload is `payload` (any property list).
  static SchedulerFault replyPayload(platform::Value payload);
  // A reply carrying `error` and its chain of causes (their user info must be
  // property lists, apart from the causes).
  static SchedulerFault replyError(const platform::ErrorRef& error);
  // A reply whose "payload" is no property list.
  static SchedulerFault unparsablePayload();
  // A reply whose "error" is a keyed archive of a dictionary, not of an error.
  static SchedulerFault unarchivableError();
  // A reply whose "error" is no keyed archive at all.
  static SchedulerFault garbageError();
  // No reply: the connection is closed.
  static SchedulerFault closeConnection();
  // A reply frame with a wrong magic, then the connection closed.
  static SchedulerFault brokenFrame();

  // The entry of the faults file.
  const platform::Dictionary& entry() const { return entry_; }

 private:
  explicit SchedulerFault(platform::Dictionary entry) : entry_(std::move(entry)) {}
  // A fault that needs nothing but its kind.
  static SchedulerFault ofKind(const char* kind);
  platform::Dictionary entry_;
};

struct DevSchedulerOptions {
  // Where it serves; empty for the system's service directory, as in a sandbox.
  std::string socketDirectory;
  // How long a kickstarted backup runs; the scheduler's default when unset.
  std::optional<double> backupSeconds;
};

class DevScheduler {
 public:
  // Started and serving.
  DevScheduler() : DevScheduler(DevSchedulerOptions()) {}
  explicit DevScheduler(DevSchedulerOptions options);
  // Stopped, its state directory removed.
  ~DevScheduler();
  DevScheduler(const DevScheduler&) = delete;
  DevScheduler& operator=(const DevScheduler&) = delete;

  // Starts it again over the same state directory; true once it serves.
  bool start();
  // Stops it; true once it has gone and removed its socket.
  bool stop();
  // The id of the serving process; 0 when it is not serving.
  pid_t pid() const;

  const std::string& stateDirectory() const { return state_.path(); }
  // The path of `file` (a name of scheduler/state_files.h) in the state directory.
  std::string statePath(const char* file) const { return state_.file(file); }

  // Every request received so far, oldest first.
  std::vector<RecordedRequest> requests() const;
  // Forgets the requests received so far.
  void clearRequests();

  // The stored settings.
  platform::Dictionary settings() const;
  // Replaces the stored settings, or one entry of them.
  void setSettings(const platform::Dictionary& settings);
  void setSetting(const std::string& key, platform::Value value);

  // Offers an update; without one, an update check answers that the installed
  // version is the latest.
  void setAvailableUpdate(const std::string& humanVersion, std::int64_t version);
  void clearAvailableUpdate();

  // The activity record, and replacing it (dates of runs and tries, a running backup).
  platform::Dictionary activity() const;
  void setActivity(const platform::Dictionary& activity);

  // Makes `message` answered by `fault` from its next request on.
  void setFault(QHVHelperMessage message, const SchedulerFault& fault);
  void clearFault(QHVHelperMessage message);
  void clearFaults();

  // What the scheduler reported about itself.
  std::string log() const;

 private:
  // Runs the scheduler's `command` for this state directory.
  RunResult command(const std::string& command) const;
  platform::Dictionary faults() const;
  platform::Value read(const char* file) const;
  void write(const char* file, const platform::Value& value) const;

  DevSchedulerOptions options_;
  TempDir state_;
  bool serving_ = false;
};

// The built development scheduler.
std::string schedulerPath();

// runProgram with the built development scheduler.
RunResult runScheduler(const std::vector<std::string>& args, const RunOptions& options = {});

}  // namespace testing_support
