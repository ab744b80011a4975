#include "cli/dispatcher.h"

#include <cstdio>

#include "authorization/authorization_manager.h"
#include "cli/usage.h"
#include "platform/foundation/user_ids.h"

const CommandEntry* find_command(std::span<const CommandEntry> rows, std::string_view name) {
  for (const CommandEntry& row : rows) {
    if (!row.is_separator() && name == row.name) return &row;
  }
  return nullptr;
}

int dispatch_command(std::span<const CommandEntry> rows, int argc, char** argv) {
  const UsageTable usage(rows);
  if (argc <= 1) {
    print_usage(false);
    return 1;
  }
  // "-d" means the full usage only on its own; followed by anything it is
  // looked up as a command and not found.
  if (argc == 2 && std::string_view(argv[1]) == "-d") {
    print_usage(true);
    return 1;
  }
  // No command ever asks for credentials: rights come without interaction or not at all.
  LKSAuthorizationManager::sharedManager().setAllowsUserInteraction(false);
  const CommandEntry* row = find_command(rows, argv[1]);
  if (!row) {
    print_usage(false);
    return 1;
  }
  // The real user: a set-user-id or sudo-like elevation of the effective id
  // alone does not make someone root here.
  if (row->requires_root && platform::UserIds::current().realUserId() != 0) {
    std::puts("This command requires root privileges.");
    return 1;
  }
  return row->handler(argc - 1, argv + 1);
}
