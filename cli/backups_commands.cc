#include "cli/backups_commands.h"

// Not built yet: each command fails without output.
int backups_cmd(int, char**) { return 1; }
int snapshots_cmd(int, char**) { return 1; }
int backups_interval_cmd(int, char**) { return 1; }
int set_when_inactive_cmd(int, char**) { return 1; }
