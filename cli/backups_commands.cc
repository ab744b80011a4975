#include "cli/backups_commands.h"

#include <cstdio>
#include <cstdlib>
#include <string_view>

#include "cli/replies.h"
#include "cli/request.h"
#include "cli/usage.h"
#include "platform/foundation/strings.h"

namespace {

// The backup modes the service knows, matched exactly.
constexpr std::string_view kBackupModes[] = {"WhenInactive", "Interval", "CalendarIntervals"};

int backups_mode(int argc, char** argv) {
  if (argc < 2) {
    const platform::Value reply = send_message_payload_error(QHVHelperMessageGetBackupsMode, {}, nullptr);
    if (!reply) return 1;
    const std::string* mode = reply_value(reply, "Mode").asString();
    std::puts(mode ? mode->c_str() : "");
    return 0;
  }
  const std::string_view mode = argv[1];
  for (std::string_view known : kBackupModes) {
    if (mode != known) continue;
    return exit_status(send_message_payload_error(
        QHVHelperMessageSetBackupsMode, platform::Value::dictionary({{"Mode", platform::Value::string(argv[1])}}),
        nullptr));
  }
  std::puts("Mode must be either \"WhenInactive\", \"Interval\" or \"CalendarIntervals\".");
  return 1;
}

int backups_when_inactive(int argc, char** argv) {
  if (argc < 2) return print_enabled(QHVHelperMessageGetBackupsWhenInactive);
  if (!platform::stringBoolValue(argv[1])) {
    std::puts("Only accepted value is 'yes'");
    return 1;
  }
  return exit_status(send_message_payload_error(QHVHelperMessageSetBackupsWhenInactive, {}, nullptr));
}

// The payload key of the one character after an interval's digits; anything
// but d, h and w (m among them, and the end of the text) means minutes.
const char* interval_unit(char suffix) {
  switch (suffix) {
    case 'd': return "Days";
    case 'h': return "Hours";
    case 'w': return "Weeks";
    default: return "Minutes";
  }
}

}  // namespace

int backups_cmd(int argc, char** argv) {
  if (argc < 2) {
    print_usage(false);
    return 1;
  }
  const std::string_view sub = argv[1];
  if (sub == "enabled") {
    return yes_no_setting(argc - 1, argv + 1, QHVHelperMessageGetBackupsEnabled, QHVHelperMessageSetBackupsEnabled);
  }
  if (sub == "mode") return backups_mode(argc - 1, argv + 1);
  if (sub == "interval") return backups_interval_cmd(argc - 1, argv + 1);
  if (sub == "when-inactive") return backups_when_inactive(argc - 1, argv + 1);
  if (sub == "kickstart") return exit_status(send_message_payload_error(QHVHelperMessageKickstartBackup, {}, nullptr));
  print_usage(false);
  return 1;
}

int snapshots_cmd(int argc, char** argv) {
  if (argc < 2 || std::string_view(argv[1]) != "enabled") {
    print_usage(false);
    return 1;
  }
  return yes_no_setting(argc - 1, argv + 1, QHVHelperMessageGetSnapshotsEnabled, QHVHelperMessageSetSnapshotsEnabled);
}

int backups_interval_cmd(int argc, char** argv) {
  if (argc < 2) {
    const platform::Value reply = send_message_payload_error(QHVHelperMessageGetBackupsInterval, {}, nullptr);
    if (!reply) return 1;
    std::puts(reply.description().c_str());
    return 0;
  }
  char* end = nullptr;
  // strtoul as the C library reads it: leading blanks and a sign accepted.
  const unsigned long count = std::strtoul(argv[1], &end, 10);
  if (count == 0) {
    std::puts("Interval value must be equal or greater than one.");
    return 1;
  }
  return exit_status(send_message_payload_error(
      QHVHelperMessageSetBackupsInterval,
      platform::Value::dictionary({{interval_unit(*end), platform::Value::unsignedInteger(count)}}), nullptr));
}

int set_when_inactive_cmd(int, char**) {
  return exit_status(send_message_payload_error(QHVHelperMessageSetBackupsWhenInactive, {}, nullptr));
}
