#include "cli/maintenance_commands.h"

// Not built yet: each command fails without output.
int uninstall_cmd(int, char**) { return 1; }
int _uninstall_cmd(int, char**) { return 1; }
int log_cmd(int, char**) { return 1; }
int debug_logs_cmd(int, char**) { return 1; }
int dry_run_cmd(int, char**) { return 1; }
