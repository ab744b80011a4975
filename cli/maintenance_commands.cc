#include "cli/maintenance_commands.h"

#include <unistd.h>

#include <cstdio>
#include <string>
#include <string_view>
#include <vector>

#include "cli/replies.h"
#include "cli/request.h"
#include "errors/lks_error.h"
#include "log/log.h"
#include "platform/foundation/strings.h"
#include "support/spawner.h"
#include "support/system_version.h"

namespace {

constexpr const char* kSubsystemPredicate = "subsystem = 'com.larkspan.quillhaven'";
constexpr const char* kSubsystem = "com.larkspan.quillhaven";

bool running_at_least(LKSSystemVersion version) {
  return LKSSystemVersionManager::sharedManager().runningAtLeast(version);
}

// Waits for the legacy log, so that a record is complete before the line that reports it.
void sync_log() {
  if (!LKSLOG_UNIFIED) _LKSLogSync();
}

// "--last" and its value, when given as the first two arguments.
const char* last_value(int argc, char** argv) {
  return argc >= 3 && std::string_view(argv[1]) == "--last" ? argv[2] : nullptr;
}

}  // namespace

int uninstall_cmd(int, char**) {
  const char* argv[] = {"/bin/sh", "/Library/Quillhaven/uninstall.sh", nullptr};
  platform::ErrorRef error;
  if (spawn_tool(argv, &error)) {
    LKSLog(LKSLogLevelDefault, "Quillhaven has been uninstalled.");
    sync_log();
    std::puts("Quillhaven has been uninstalled.");
    return 0;
  }
  const std::string description = LKSError::localizedDescriptionForError(error);
  LKSLog(LKSLogLevelError, "Could not uninstall. %@", description);
  sync_log();
  std::printf("Could not uninstall. %s\n", description.c_str());
  return 1;
}

int _uninstall_cmd(int argc, char** argv) {
  // Out of the caller's session, so that the script outlives it.
  ::setsid();
  return uninstall_cmd(argc, argv);
}

int log_cmd(int argc, char** argv) {
  const char* last = last_value(argc, argv);
  std::vector<const char*> viewer;
  std::string since;
  if (running_at_least(LKSSystemVersion10_12)) {
    viewer = {"/usr/bin/log", "show", "--debug", "--info"};
    if (last) viewer.insert(viewer.end(), {"--last", last});
    const char* style = running_at_least(LKSSystemVersion10_13) ? "compact" : "syslog";
    viewer.insert(viewer.end(), {"--predicate", kSubsystemPredicate, "--style", style});
  } else {
    viewer = {"/usr/bin/syslog", "-k", "Facility", kSubsystem};
    if (last) {
      since = std::string("-") + last;
      viewer.insert(viewer.end(), {"-k", "Time", "ge", since.c_str()});
    }
  }
  viewer.push_back(nullptr);
  // The viewer reports its own troubles; the command's outcome does not depend on them.
  spawn_tool(viewer.data(), nullptr);
  return 0;
}

int debug_logs_cmd(int argc, char** argv) {
  if (argc < 2) {
    std::puts("Missing yes/no argument.");
    return 1;
  }
  if (!running_at_least(LKSSystemVersion10_12)) {
    std::fputs("Requires macOS 10.12 or later.", stdout);
    return 1;
  }
  const char* mode = platform::stringBoolValue(argv[1]) ? "level:debug,persist:info" : "level:info,persist:default";
  const char* config[] = {"/usr/bin/log", "config", "--subsystem", kSubsystem, "--mode", mode, nullptr};
  return spawn_tool(config, nullptr) ? 0 : 1;
}

int dry_run_cmd(int argc, char** argv) {
  return yes_no_setting(argc, argv, QHVHelperMessageGetDryRun, QHVHelperMessageSetDryRun);
}
