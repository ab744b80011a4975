#include "cli/status_commands.h"

// Not built yet: each command fails without output.
int status_cmd(int, char**) { return 1; }
int info_cmd(int, char**) { return 1; }
int settings_cmd(int, char**) { return 1; }
int enabled_cmd(int, char**) { return 1; }
int enable_cmd(int, char**) { return 1; }
int disable_cmd(int, char**) { return 1; }
int settings_import_cmd(int, char**) { return 1; }
int updates_enable_cmd() { return 1; }
int updates_disable_cmd() { return 1; }
