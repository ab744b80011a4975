#include "cli/status_commands.h"

#include <cstdio>
#include <string_view>

#include "cli/printers.h"
#include "cli/replies.h"
#include "cli/request.h"
#include "platform/foundation/file_contents.h"
#include "platform/foundation/strings.h"
#include "platform/plist/property_list.h"

namespace {

struct OutputFormat {
  bool xml = false;
  bool json = false;
};

// Only the first argument after the command word counts, and only when it is
// exactly "-x" or "-j"; anything else asks for the plain text.
OutputFormat output_format(int argc, char** argv) {
  if (argc < 2) return {};
  const std::string_view flag = argv[1];
  return {flag == "-x", flag == "-j"};
}

bool settings_flag(const platform::Value& settings, std::string_view key) {
  return reply_value(settings, key).boolValue();
}

// The settings as sent back with one or more entries replaced.
platform::Dictionary settings_copy(const platform::Value& settings) {
  const platform::Dictionary* dictionary = settings.asDictionary();
  return dictionary ? *dictionary : platform::Dictionary();
}

enum Feature : unsigned { kBackups = 1, kSnapshots = 2, kUpdates = 4 };

// enable and disable: without features the plain message; with them the
// settings switches and the updates switch, every word checked before anything is sent.
int switch_features(int argc, char** argv, QHVHelperMessage plain, bool on) {
  if (argc < 2) return exit_status(send_message_payload_error(plain, {}, nullptr));
  unsigned features = 0;
  for (int i = 1; i < argc; ++i) {
    const std::string_view word = argv[i];
    if (word == "backups") {
      features |= kBackups;
    } else if (word == "snapshots") {
      features |= kSnapshots;
    } else if (word == "updates") {
      features |= kUpdates;
    } else {
      std::printf("Unknown option: '%s'.\n", argv[i]);
      return 1;
    }
  }
  if (features & (kBackups | kSnapshots)) {
    const platform::Value settings = send_message_payload_error(QHVHelperMessageGetSettings, {}, nullptr);
    if (!settings) return 1;
    platform::Dictionary changed = settings_copy(settings);
    if (features & kBackups) changed.set("Backups", platform::Value::boolean(on));
    if (features & kSnapshots) changed.set("Snapshots", platform::Value::boolean(on));
    if (!send_message_payload_error(QHVHelperMessageSetSettings, platform::Value::dictionary(std::move(changed)),
                                    nullptr)) {
      return 1;
    }
  }
  if (features & kUpdates) return on ? updates_enable_cmd() : updates_disable_cmd();
  return 0;
}

int set_updates_enabled(bool enabled) {
  return exit_status(send_message_payload_error(QHVHelperMessageSetUpdatesEnabled, enabled_payload(enabled), nullptr));
}

}  // namespace

int status_cmd(int argc, char** argv) {
  const platform::Value settings = send_message_payload_error(QHVHelperMessageGetSettings, {}, nullptr);
  // 0 without a reply too, deliberately: the failure is printed, and status never fails on it.
  if (!settings) return 0;
  const auto state = [](bool enabled) { return platform::Value::string(enabled ? "enabled" : "disabled"); };
  const platform::Dictionary status{
      {"MasterSwitch", state(!settings_flag(settings, "Disabled"))},
      {"Backups", state(settings_flag(settings, "Backups"))},
      {"Snapshots", state(settings_flag(settings, "Snapshots"))},
  };
  const OutputFormat format = output_format(argc, argv);
  print_dictionary(platform::Value::dictionary(status), format.xml, format.json);
  return 0;
}

int info_cmd(int, char**) {
  const platform::Value reply = send_message_payload_error(QHVHelperMessageGetInfo, {}, nullptr);
  if (!reply) return 1;
  const platform::Dictionary* info = reply.asDictionary();
  const platform::Dictionary none;
  if (!info) info = &none;
  std::printf("> Backups\n");
  print_info(info->get("backups"));
  std::printf("\n> Snapshots\n");
  print_info(info->get("snapshots"));
  std::printf("\n> Updater\n");
  print_info(info->get("updates"));
  return 0;
}

int settings_cmd(int argc, char** argv) {
  if (argc >= 2 && std::string_view(argv[1]) == "import") return settings_import_cmd(argc - 1, argv + 1);
  const platform::Value settings = send_message_payload_error(QHVHelperMessageGetSettings, {}, nullptr);
  if (settings) {
    const OutputFormat format = output_format(argc, argv);
    print_dictionary(settings, format.xml, format.json);
  }
  // 0 without a reply too, deliberately, as for status.
  return 0;
}

int enabled_cmd(int argc, char** argv) {
  const platform::Value settings = send_message_payload_error(QHVHelperMessageGetSettings, {}, nullptr);
  if (!settings) return 1;
  if (argc < 2) {
    std::puts(settings_flag(settings, "Disabled") ? "no" : "yes");
    return 0;
  }
  platform::Dictionary changed = settings_copy(settings);
  // The service keeps the switch as a number, not a boolean.
  changed.set("Disabled", platform::Value::integer(platform::stringBoolValue(argv[1]) ? 0 : 1));
  return exit_status(
      send_message_payload_error(QHVHelperMessageSetSettings, platform::Value::dictionary(std::move(changed)), nullptr));
}

int enable_cmd(int argc, char** argv) { return switch_features(argc, argv, QHVHelperMessageEnable, true); }

int disable_cmd(int argc, char** argv) { return switch_features(argc, argv, QHVHelperMessageDisable, false); }

int settings_import_cmd(int argc, char** argv) {
  if (argc < 2) {
    std::puts("Path must be specified to settings file.");
    return 1;
  }
  const std::string path = platform::stringByStandardizingPath(argv[1]);
  platform::Bytes contents;
  platform::ErrorRef error;
  switch (platform::readFile(path, &contents, &error)) {
    case platform::FileReadResult::Missing:
      std::printf("File does not exist at path: %s\n", path.c_str());
      return 1;
    case platform::FileReadResult::Failed:
      std::printf("Failed to read file: %s\n", error->localizedDescription().c_str());
      return 1;
    case platform::FileReadResult::Read:
      break;
  }
  const platform::Value settings = platform::propertyListWithData(contents, nullptr, &error);
  if (!settings) {
    std::printf("Failed to deserialize file: %s\n", error->localizedDescription().c_str());
    return 1;
  }
  // Sent as read: the service validates it and reports what it refuses.
  return exit_status(send_message_payload_error(QHVHelperMessageSetSettings, settings, nullptr));
}

int updates_enable_cmd() { return set_updates_enabled(true); }

int updates_disable_cmd() { return set_updates_enabled(false); }
