// Handlers of the status, info, settings and master-switch commands.
// Each handler takes the arguments from the command word on and returns the
// exit status (0 success, 1 failure).
#pragma once

// `status [-x|-j]`: prints the scheduler status as text, XML or JSON.
int status_cmd(int argc, char** argv);

// `info`: prints activities information.
int info_cmd(int argc, char** argv);

// `settings [-x|-j]` prints the settings; `settings import <path>` imports a settings file.
int settings_cmd(int argc, char** argv);

// `enabled [yes|no]`: reads or sets the master switch.
int enabled_cmd(int argc, char** argv);

// `enable [features]`: turns features on.
int enable_cmd(int argc, char** argv);

// `disable [features]`: turns features off.
int disable_cmd(int argc, char** argv);

// `set-settings <path>`: applies the settings of a property-list file.
int settings_import_cmd(int argc, char** argv);

// Turns updates on; shared by `enable` and `updates enable`. Returns the exit status.
int updates_enable_cmd();

// Turns updates off; shared by `disable` and `updates disable`. Returns the exit status.
int updates_disable_cmd();
