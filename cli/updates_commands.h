// Handlers of the updates commands.
// Each handler takes the arguments from the command word on and returns the
// exit status (0 success, 1 failure).
#pragma once

// `updates enabled|mode|feed|check ...`: reads or sets update settings, or
// checks for an update and, on request, has it installed. The usage and 1 for
// a missing or unknown sub-command.
int updates_cmd(int argc, char** argv);

// Reads or sets the updates mode; argv[0] is "mode", argv[1] the new value when
// given. 1 with "Unknown mode" and nothing sent for a name other than std, beta, test.
int updates_mode_cmd(int argc, char** argv);

// Reads or sets the updates feed; argv[0] is "feed", argv[1] the new value when
// given. 1 with "Unknown feed" and nothing sent for a name other than std, beta, test.
int updates_feed_cmd(int argc, char** argv);

// `_update <package>`: installs the package with the system installer while
// keeping the machine awake, deletes it, records and announces the outcome.
// 1 without a path or when the installer failed.
int _update_cmd(int argc, char** argv);
