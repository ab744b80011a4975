// Handlers of the backups and snapshots commands.
// Each handler takes the arguments from the command word on and returns the
// exit status (0 success, 1 failure).
#pragma once

// `backups enabled|mode|interval|kickstart|when-inactive ...`: reads or sets backup settings, or starts a backup.
int backups_cmd(int argc, char** argv);

// `snapshots enabled [yes|no]`: reads or sets the snapshots switch.
int snapshots_cmd(int argc, char** argv);

// `set-interval <integer[m|h|d|w]>`: triggers backups at the given interval.
int backups_interval_cmd(int argc, char** argv);

// `set-when-inactive`: triggers backups during user inactivity.
int set_when_inactive_cmd(int argc, char** argv);
