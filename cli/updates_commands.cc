#include "cli/updates_commands.h"

#include <unistd.h>

#include <cstdio>
#include <cstring>
#include <string>
#include <string_view>

#include "cli/replies.h"
#include "cli/request.h"
#include "cli/status_commands.h"
#include "cli/usage.h"
#include "errors/lks_error.h"
#include "log/log.h"
#include "platform/foundation/distributed_notification.h"
#include "platform/foundation/power_assertion.h"
#include "platform/foundation/strings.h"
#include "support/spawner.h"

namespace {

// The update channels, matched exactly; the same names serve as modes and feeds.
constexpr std::string_view kChannels[] = {"std", "beta", "test"};

constexpr const char* kAssertionName = "com.larkspan.quillhaven.update";

bool is_channel(std::string_view name) {
  for (std::string_view channel : kChannels) {
    if (name == channel) return true;
  }
  return false;
}

// One update channel setting: its key in the payloads, its two messages and
// its name in the refusal of an unknown channel.
struct ChannelSetting {
  const char* key;
  QHVHelperMessage get;
  QHVHelperMessage set;
  const char* noun;
};

constexpr ChannelSetting kMode = {"Mode", QHVHelperMessageGetUpdatesMode, QHVHelperMessageSetUpdatesMode, "mode"};
constexpr ChannelSetting kFeed = {"Feed", QHVHelperMessageGetUpdatesFeed, QHVHelperMessageSetUpdatesFeed, "feed"};

int channel_setting(const ChannelSetting& setting, int argc, char** argv) {
  if (argc > 1) {
    if (!is_channel(argv[1])) {
      std::printf("Unknown %s: '%s'.\n", setting.noun, argv[1]);
      return 1;
    }
    return exit_status(send_message_payload_error(
        setting.set, platform::Value::dictionary({{setting.key, platform::Value::string(argv[1])}}), nullptr));
  }
  const platform::Value reply = send_message_payload_error(setting.get, {}, nullptr);
  if (!reply) return 1;
  const platform::Value& value = reply_value(reply, setting.key);
  std::puts(value ? value.description().c_str() : "");
  return 0;
}

enum class Answer { Install, Decline, EndOfInput };

// Reads the answer to the update question: lines of at most 15 characters, an
// empty line skipped; whatever follows those characters stays unread.
Answer read_answer() {
  // The question may sit in a buffer when standard output is not a terminal.
  std::fflush(stdout);
  char line[16];
  for (;;) {
    if (!std::fgets(line, sizeof line, stdin)) return Answer::EndOfInput;
    if (platform::stringBoolValue(line)) return Answer::Install;
    if (std::strcmp(line, "\n") != 0) return Answer::Decline;
  }
}

// Has the service install the offered update. Losing the service on the way
// counts as success: installing replaces the service itself.
int install_update() {
  platform::ErrorRef error;
  const bool replied = static_cast<bool>(_send_message_payload_error(QHVHelperMessageInstallUpdate, {}, &error));
  const bool serviceGone =
      !replied && error && error->domain == LKSMessagerErrorDomain &&
      (error->code == LKSMessagerErrorServiceUnavailable || error->code == LKSMessagerErrorServiceDisappeared);
  if (replied || serviceGone) {
    std::puts("Quillhaven has been updated.");
    return 0;
  }
  std::fprintf(stderr, "%s\n", LKSError::localizedDescriptionForError(error).c_str());
  return 1;
}

int check_for_updates(int argc, char** argv) {
  const bool install = argc > 1 && std::string_view(argv[1]) == "-i";
  platform::ErrorRef error;
  const platform::Value reply = send_message_payload_error(QHVHelperMessageCheckForUpdates, {}, &error);
  if (!reply) {
    // Already up to date: the service's answer was printed, and it is no failure.
    return error && error->domain == LKSUpdaterErrorDomain && error->code == LKSUpdaterErrorAlreadyUpToDate ? 0 : 1;
  }
  const std::string version = reply_value(reply, "HumanVersion").description();
  const long build = static_cast<long>(reply_value(reply, "Version").int64Value());
  if (install) {
    std::printf("Quillhaven %s (%ld) is available. Updating now...\n", version.c_str(), build);
    return install_update();
  }
  std::printf("Quillhaven %s (%ld) is available. Would you like to update now? (y/n)\n", version.c_str(), build);
  switch (read_answer()) {
    case Answer::Install: return install_update();
    case Answer::Decline: return 0;
    case Answer::EndOfInput: return 1;
  }
  return 1;
}

}  // namespace

int updates_cmd(int argc, char** argv) {
  if (argc < 2) {
    print_usage(false);
    return 1;
  }
  const std::string_view sub = argv[1];
  if (sub == "enabled") {
    return yes_no_setting(argc - 1, argv + 1, QHVHelperMessageGetUpdatesEnabled, QHVHelperMessageSetUpdatesEnabled);
  }
  if (sub == "mode" || sub == "set-mode") return updates_mode_cmd(argc - 1, argv + 1);
  if (sub == "feed" || sub == "set-feed") return updates_feed_cmd(argc - 1, argv + 1);
  if (sub == "check") return check_for_updates(argc - 1, argv + 1);
  if (sub == "enable") return updates_enable_cmd();
  if (sub == "disable") return updates_disable_cmd();
  print_usage(false);
  return 1;
}

int updates_mode_cmd(int argc, char** argv) { return channel_setting(kMode, argc, argv); }

int updates_feed_cmd(int argc, char** argv) { return channel_setting(kFeed, argc, argv); }

int _update_cmd(int argc, char** argv) {
  if (argc < 2) {
    std::puts("Package path must be specified.");
    return 1;
  }
  const char* package = argv[1];
  // Out of the caller's session: the installer may replace whatever started this command.
  ::setsid();
  platform::IOPMAssertionID noIdleSleep = 0;
  platform::IOPMAssertionID backgroundTask = 0;
  platform::IOPMAssertionCreateWithDescription(platform::kIOPMAssertionTypePreventUserIdleSystemSleep, kAssertionName,
                                               nullptr, nullptr, nullptr, 0, nullptr, &noIdleSleep);
  platform::IOPMAssertionCreateWithDescription(platform::kIOPMAssertionTypeBackgroundTask, kAssertionName, nullptr,
                                               nullptr, nullptr, 0, nullptr, &backgroundTask);

  const char* installer[] = {"/usr/sbin/installer", "-pkg", package, "-target", "/", nullptr};
  platform::ErrorRef error;
  const bool installed = spawn_tool(installer, &error);
  ::unlink(package);
  if (installed) {
    LKSLog(LKSLogLevelDefault, "Quillhaven has been updated.");
  } else {
    LKSLog(LKSLogLevelError, "Update failed. %@", LKSError::localizedDescriptionForError(error));
  }
  if (!LKSLOG_UNIFIED) _LKSLogSync();

  platform::DistributedNotificationCenter::current().postNotificationName(
      "com.larkspan.quillhaven.did-update", nullptr,
      platform::NSDistributedNotificationDeliverImmediately | platform::NSDistributedNotificationPostToAllSessions);
  platform::IOPMAssertionRelease(noIdleSleep);
  platform::IOPMAssertionRelease(backgroundTask);
  return installed ? 0 : 1;
}
