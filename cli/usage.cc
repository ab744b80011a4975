#include "cli/usage.h"

#include <cstdio>
#include <string>

#include "platform/foundation/program_name.h"

namespace {

// The table print_usage writes; set only by UsageTable.
std::span<const CommandEntry> table_in_use = commands;

// The note at the end of a row's line.
const char* root_note(const CommandEntry& row) {
  if (row.requires_root) return "Must be run as root.";
  if (row.requires_root_to_change) return "Must be run as root to make changes.";
  return "";
}

}  // namespace

void print_usage(bool full) {
  const std::span<const CommandEntry> rows = table_in_use;
  const char* program = platform::getprogname();
  for (std::size_t i = 0; i < rows.size(); ++i) {
    const CommandEntry& row = rows[i];
    if (row.hidden && !full) continue;
    if (row.is_separator()) {
      std::fputc('\n', stdout);
      continue;
    }
    // Internal commands run on the scheduler's behalf and are never advertised.
    if (row.name[0] == '_') continue;
    std::string left = i == 0 ? "usage:" : "      ";
    left.append(" ").append(program).append(" ").append(row.name);
    if (row.args) left.append(" ").append(row.args);
    std::fprintf(stdout, "%-50s %-55s %s\n", left.c_str(), row.description, root_note(row));
  }
}

UsageTable::UsageTable(std::span<const CommandEntry> rows) : _previous(table_in_use) { table_in_use = rows; }

UsageTable::~UsageTable() { table_in_use = _previous; }
