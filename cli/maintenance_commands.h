// Handlers of the maintenance commands.
// Each handler takes the arguments from the command word on and returns the
// exit status (0 success, 1 failure).
#pragma once

// `uninstall`: runs the product's uninstall script.
int uninstall_cmd(int argc, char** argv);

// `_uninstall`: the uninstall step run on the scheduler's behalf.
int _uninstall_cmd(int argc, char** argv);

// `log [--last <int>[m|h|d]]`: prints the product's system-log entries.
int log_cmd(int argc, char** argv);

// `debug-logs [yes|no]`: reads or sets debug logging.
int debug_logs_cmd(int argc, char** argv);

// `dry-run [yes|no]`: reads or sets the dry-run switch.
int dry_run_cmd(int argc, char** argv);
