#include "cli/command_table.h"

#include <string_view>

#include "cli/backups_commands.h"
#include "cli/maintenance_commands.h"
#include "cli/status_commands.h"
#include "cli/updates_commands.h"
#include "cli/version_cmd.h"

// clang-format off
constexpr std::array<CommandEntry, kCommandCount> commands = {
  command("version",           nullptr,                   "Print version.",                                      version_cmd,           kNoFlags),
  separator(kNoFlags),
  command("status",            "[-x|-j]",                 "Print scheduler status (-x for xml, -j for json).",   status_cmd,            kNoFlags),
  command("info",              nullptr,                   "Print activities information.",                       info_cmd,              kNoFlags),
  separator(kNoFlags),
  command("settings",          "[-x|-j]",                 "Print scheduler settings (-x for xml, -j for json).", settings_cmd,          kNoFlags),
  command("settings",          "import <path>",           "Import settings from the specified plist file.",      settings_cmd,          kRequiresRoot),
  separator(kNoFlags),
  command("enabled",           nullptr,                   "Get/set master switch.",                              enabled_cmd,           kRequiresRootToChange),
  separator(kNoFlags),
  command("backups",           "enabled [yes|no]",        "Get/set backups enabled state.",                      backups_cmd,           kRequiresRootToChange),
  command("backups",           "mode [...]",              "Get/set backups mode.",                               backups_cmd,           kRequiresRootToChange),
  command("backups",           "interval [<int>[h|d|w]]", "Get/set the backups interval.",                       backups_cmd,           kRequiresRootToChange),
  command("backups",           "kickstart",               "Force start a backup now.",                           backups_cmd,           kNoFlags),
  separator(kNoFlags),
  command("snapshots",         "enabled [yes|no]",        "Get/set snapshots enabled state.",                    snapshots_cmd,         kRequiresRootToChange),
  separator(kNoFlags),
  command("updates",           "enabled [yes|no]",        "Get/set updates enabled state.",                      updates_cmd,           kRequiresRootToChange),
  command("updates",           "mode [std|beta|test]",    "Get/set updates mode.",                               updates_cmd,           kRequiresRootToChange | kHidden),
  command("updates",           "feed [std|beta|test]",    "Get/set updates feed.",                               updates_cmd,           kRequiresRootToChange | kHidden),
  command("updates",           "check [-i]",              "Check for updates (-i to install).",                  updates_cmd,           kRequiresRootToChange),
  separator(kNoFlags),
  command("uninstall",         nullptr,                   "Uninstall Quillhaven.",                               uninstall_cmd,         kRequiresRoot),
  separator(kHidden),
  command("log",               "[--last <int>[m|h|d]]",   "Print log.",                                          log_cmd,               kRequiresRoot | kHidden),
  separator(kHidden),
  command("debug-logs",        "[yes|no]",                "Get/set debug logs.",                                 debug_logs_cmd,        kRequiresRootToChange | kHidden),
  command("dry-run",           "[yes|no]",                "Get/set dry run.",                                    dry_run_cmd,           kRequiresRootToChange | kHidden),
  command("_update",           nullptr,                   "_update",                                             _update_cmd,           kRequiresRoot | kHidden),
  command("_uninstall",        nullptr,                   "_uninstall",                                          _uninstall_cmd,        kRequiresRoot | kHidden),
  separator(kHidden),
  command("enable",            "[features]",              "Enable features (backups, snapshots, updates).",      enable_cmd,            kRequiresRoot | kHidden),
  command("disable",           "[features]",              "Disable features (backups, snapshots, updates).",     disable_cmd,           kRequiresRoot | kHidden),
  command("set-settings",      "<path>",                  "Apply settings from the specified plist file.",       settings_import_cmd,   kRequiresRoot | kHidden),
  command("set-interval",      "<integer[m|h|d|w]>",      "Trigger backups using the specified interval.",       backups_interval_cmd,  kRequiresRoot | kHidden),
  command("set-when-inactive", nullptr,                   "Trigger backups during user inactivity.",             set_when_inactive_cmd, kRequiresRoot | kHidden),
  command("backups",           "when-inactive [yes]",     "Get/set the backups behavior.",                       backups_cmd,           kRequiresRootToChange | kHidden),
};
// clang-format on

namespace {

// A row is either a full command or a bare separator, never half of each.
// Handlers are checked by the tests: a function's address is not a constant
// expression in every build (sanitizers make it one no longer).
constexpr bool well_formed(const CommandEntry& row) {
  if (row.is_separator()) {
    return !row.args && !row.description && !row.requires_root && !row.requires_root_to_change;
  }
  return row.description && row.name[0] != '\0';
}

constexpr bool all_rows_well_formed() {
  for (const CommandEntry& row : commands) {
    if (!well_formed(row)) return false;
  }
  return true;
}

static_assert(all_rows_well_formed(), "every row is a command or a separator");
// "usage:" opens both usages, so the first row must show in the short one.
static_assert(!commands[0].is_separator() && !commands[0].hidden);
static_assert(std::string_view(commands[0].name) == "version");

}  // namespace
