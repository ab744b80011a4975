// The usage text, printed from the command table.
#pragma once

#include <span>

#include "cli/command_table.h"

// Writes the usage of the table in use (see UsageTable; `commands` when none
// is) to standard output under the name the program was started with: the
// short usage, or with `full` the hidden rows too. Rows whose name begins with
// "_" are never written.
void print_usage(bool full);

// While alive, `rows` is the table print_usage writes; the one alive before it
// is restored at its end. The dispatcher holds one for the table it runs, so a
// handler's usage is that of the table it was found in. Main thread only.
class UsageTable {
 public:
  explicit UsageTable(std::span<const CommandEntry> rows);
  ~UsageTable();
  UsageTable(const UsageTable&) = delete;
  UsageTable& operator=(const UsageTable&) = delete;

 private:
  std::span<const CommandEntry> _previous;
};
