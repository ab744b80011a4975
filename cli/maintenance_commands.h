// Handlers of the maintenance commands.
// Each handler takes the arguments from the command word on and returns the
// exit status (0 success, 1 failure).
#pragma once

// `uninstall`: runs the product's uninstall script, records and prints the
// outcome; 1 when the script could not be run or did not exit with status 0.
int uninstall_cmd(int argc, char** argv);

// `_uninstall`: uninstall_cmd from a session of its own, so that the script
// survives the end of the caller's session.
int _uninstall_cmd(int argc, char** argv);

// `log [--last <int>[m|h|d]]`: shows the product's system-log entries with the
// system's log viewer; 0 whatever the viewer's outcome.
int log_cmd(int argc, char** argv);

// `debug-logs yes|no`: sets how much of the product's logging the unified log
// keeps; 1 without a value, before macOS 10.12, or when the log tool fails.
int debug_logs_cmd(int argc, char** argv);

// `dry-run [yes|no]`: reads or sets the dry-run switch.
int dry_run_cmd(int argc, char** argv);
