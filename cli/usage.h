// The usage text, printed from the command table.
#pragma once

#include <cstdio>
#include <span>

#include "cli/command_table.h"

// Writes the usage of `commands` to standard output under the name the program
// was started with: the short usage, or with `full` the hidden rows too.
void print_usage(bool full);

// Writes the usage of `rows` to `out` with `program` as the program name. Rows
// whose name begins with "_" are never written; hidden rows only when `full`.
void write_usage(std::FILE* out, std::span<const CommandEntry> rows, const char* program,
                 bool full);
