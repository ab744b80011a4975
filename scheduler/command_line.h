// The development scheduler's command line.
#pragma once

#include <cstdint>
#include <optional>
#include <string>

#include "platform/xpc/listener.h"

namespace dev_scheduler {

enum class SchedulerCommand {
  Run,     // serve in the foreground until SIGINT or SIGTERM
  Start,   // serve in the background; return once serving
  Stop,    // stop the one serving the state directory; return once it is gone
  Status,  // say whether one serves the state directory
  Help,    // print the usage
};

inline constexpr double kDefaultBackupSeconds = 30;

struct SchedulerOptions {
  SchedulerCommand command = SchedulerCommand::Help;
  std::string stateDirectory;   // absolute
  std::string socketDirectory;  // empty: the system's service directory
  double backupSeconds = kDefaultBackupSeconds;
  platform::XPCListenerLimits limits;  // how long peers may idle or stall
  std::optional<std::uint64_t> maxOpenFiles;  // a lower descriptor limit to serve under
};

// The usage text, ending with a line end.
extern const char* const kSchedulerUsage;

// The options that `arguments` (after the program name) give; nullopt with
// what is wrong in `problem`.
std::optional<SchedulerOptions> parseCommandLine(int count, const char* const* arguments, std::string* problem);

}  // namespace dev_scheduler
