#include "cli/updates_commands.h"

// Not built yet: each command fails without output.
int updates_cmd(int, char**) { return 1; }
int updates_mode_cmd(int, char**) { return 1; }
int updates_feed_cmd(int, char**) { return 1; }
int _update_cmd(int, char**) { return 1; }
