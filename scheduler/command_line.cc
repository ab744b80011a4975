#include "scheduler/command_line.h"

#include <unistd.h>

#include <chrono>
#include <cmath>
#include <cstdlib>
#include <string_view>

namespace dev_scheduler {
namespace {

struct CommandName {
  std::string_view name;
  SchedulerCommand command;
};

constexpr CommandName kCommands[] = {
    {"run", SchedulerCommand::Run},       {"start", SchedulerCommand::Start},
    {"stop", SchedulerCommand::Stop},     {"status", SchedulerCommand::Status},
    {"--help", SchedulerCommand::Help},   {"-h", SchedulerCommand::Help},
};

// A number of seconds, at least `least`; nullopt when `value` is none.
std::optional<double> secondsOf(const std::string& value, double least) {
  char* end = nullptr;
  const double seconds = std::strtod(value.c_str(), &end);
  if (value.empty() || *end != '\0' || !std::isfinite(seconds) || seconds < least) return std::nullopt;
  return seconds;
}

std::chrono::milliseconds millisecondsOf(double seconds) {
  return std::chrono::milliseconds(std::llround(seconds * 1000));
}

std::string absolutePath(const std::string& path) {
  if (path.starts_with('/')) return path;
  char* current = ::getcwd(nullptr, 0);
  std::string absolute = std::string(current ? current : "") + "/" + path;
  std::free(current);
  return absolute;
}

}  // namespace

const char* const kSchedulerUsage =
    "Usage: qhv-dev-scheduler run|start|stop|status --state DIR [--socket-dir DIR] [--backup-seconds N]\n"
    "                         [--idle-seconds N] [--stall-seconds N] [--max-open-files N]\n"
    "\n"
    "Serves com.larkspan.quillhaven.scheduler for development and tests.\n"
    "\n"
    "  run      serve in the foreground until SIGINT or SIGTERM\n"
    "  start    serve in the background; prints the process id once serving\n"
    "  stop     stop the scheduler of DIR and wait until it is gone\n"
    "  status   exit status 0 when a scheduler serves DIR, 3 when none does\n"
    "\n"
    "  --state DIR          settings, activity, faults and the request record (required)\n"
    "  --socket-dir DIR     serve in DIR instead of /var/run/xpc\n"
    "  --backup-seconds N   how long a kickstarted backup runs (default 30)\n"
    "  --idle-seconds N     close a connection that sends no request for N seconds (default 60)\n"
    "  --stall-seconds N    close a connection whose frame or reply takes N seconds (default 10)\n"
    "  --max-open-files N   serve with at most N open descriptors\n";

std::optional<SchedulerOptions> parseCommandLine(int count, const char* const* arguments, std::string* problem) {
  if (count < 1) {
    *problem = "no command given";
    return std::nullopt;
  }
  SchedulerOptions options;
  bool known = false;
  for (const CommandName& entry : kCommands) {
    if (entry.name == arguments[0]) {
      options.command = entry.command;
      known = true;
    }
  }
  if (!known) {
    *problem = std::string("unknown command '") + arguments[0] + "'";
    return std::nullopt;
  }
  if (options.command == SchedulerCommand::Help) return options;
  for (int i = 1; i < count; i += 2) {
    const std::string_view option = arguments[i];
    if (i + 1 >= count) {
      *problem = "option " + std::string(option) + " needs a value";
      return std::nullopt;
    }
    const std::string value = arguments[i + 1];
    if (option == "--state") {
      options.stateDirectory = absolutePath(value);
    } else if (option == "--socket-dir") {
      options.socketDirectory = absolutePath(value);
    } else if (option == "--backup-seconds" || option == "--idle-seconds" || option == "--stall-seconds") {
      // A timeout of nothing would close every connection at once.
      const std::optional<double> seconds = secondsOf(value, option == "--backup-seconds" ? 0 : 0.001);
      if (!seconds) {
        *problem = std::string(option) + " needs a number of seconds, not '" + value + "'";
        return std::nullopt;
      }
      if (option == "--backup-seconds") options.backupSeconds = *seconds;
      if (option == "--idle-seconds") options.limits.idleTimeout = millisecondsOf(*seconds);
      if (option == "--stall-seconds") options.limits.stallTimeout = millisecondsOf(*seconds);
    } else if (option == "--max-open-files") {
      char* end = nullptr;
      const unsigned long long descriptors = std::strtoull(value.c_str(), &end, 10);
      if (value.empty() || value[0] == '-' || *end != '\0' || descriptors == 0) {
        *problem = "--max-open-files needs a number of descriptors, not '" + value + "'";
        return std::nullopt;
      }
      options.maxOpenFiles = descriptors;
    } else {
      *problem = "unknown option " + std::string(option);
      return std::nullopt;
    }
  }
  if (options.stateDirectory.empty()) {
    *problem = "--state DIR is required";
    return std::nullopt;
  }
  return options;
}

}  // namespace dev_scheduler
