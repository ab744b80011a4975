// The dispatcher: from the command line to one handler of a command table.
#pragma once

#include <span>
#include <string_view>

#include "cli/command_table.h"

// The first command row of `rows` named exactly `name` (byte-wise, no case
// folding, no abbreviation), or nullptr. Separator rows never match.
const CommandEntry* find_command(std::span<const CommandEntry> rows, std::string_view name);

// Runs the command line `argc`/`argv` (argv[0] the program) against `rows`:
// the short usage without a command, the full usage for a sole "-d", the short
// usage for an unknown command (all three exit with 1), "This command requires
// root privileges." on standard output for a root-only command run by a real
// user other than root (1), otherwise the handler's result. Turns interactive
// authorization off before any handler can run. Every usage printed meanwhile,
// by the handler too, is that of `rows`.
int dispatch_command(std::span<const CommandEntry> rows, int argc, char** argv);
