// Handlers of the updates commands.
// Each handler takes the arguments from the command word on and returns the
// exit status (0 success, 1 failure).
#pragma once

// `updates enabled|mode|feed|check ...`: reads or sets update settings, or checks for an update.
int updates_cmd(int argc, char** argv);

// Reads or sets the updates mode; argv[0] is "mode", argv[1] the new value when given.
int updates_mode_cmd(int argc, char** argv);

// Reads or sets the updates feed; argv[0] is "feed", argv[1] the new value when given.
int updates_feed_cmd(int argc, char** argv);

// `_update`: installs a downloaded update package.
int _update_cmd(int argc, char** argv);
