// The command table: every command word of the tool, its line in the usage text,
// its handler and the conditions the dispatcher enforces before the handler runs.
// The order of the rows is the order of the usage text; the first row with a
// given name is the one the dispatcher runs.
#pragma once

#include <array>
#include <cstddef>

// Runs one command. `argc` and `argv` start at the command word (argv[0] is the
// command's name, not the program's). Returns the process exit status.
// Sub-command helpers take the same shape: their argv[0] is their own sub-command word.
using CommandHandler = int (*)(int argc, char** argv);

// Row flags, combined with `|` in the table.
enum CommandFlag : unsigned {
  kNoFlags = 0,
  // The dispatcher refuses the command unless the real user id is 0; the usage
  // notes "Must be run as root.".
  kRequiresRoot = 1U << 0,
  // Usage note only ("Must be run as root to make changes."): the reading form
  // works for every user; the changing form is stopped where it needs rights.
  kRequiresRootToChange = 1U << 1,
  // The row shows only in the full usage ("-d").
  kHidden = 1U << 2,
};

struct CommandEntry {
  const char* name;         // command word; null in a separator row
  const char* args;         // synopsis after the name in the usage; null when none
  const char* description;  // one line of usage; null in a separator row
  CommandHandler handler;   // null in a separator row
  bool requires_root;
  bool requires_root_to_change;
  bool hidden;

  // A row that only prints a blank line in the usage.
  constexpr bool is_separator() const { return name == nullptr; }
};

// A row that runs `handler` for the command word `name`.
constexpr CommandEntry command(const char* name, const char* args, const char* description,
                               CommandHandler handler, unsigned flags) {
  return {name,
          args,
          description,
          handler,
          (flags & kRequiresRoot) != 0,
          (flags & kRequiresRootToChange) != 0,
          (flags & kHidden) != 0};
}

// A blank line in the usage; with kHidden only in the full usage.
constexpr CommandEntry separator(unsigned flags) {
  return {nullptr, nullptr, nullptr, nullptr, false, false, (flags & kHidden) != 0};
}

inline constexpr std::size_t kCommandCount = 37;

// Every command, in usage order.
extern const std::array<CommandEntry, kCommandCount> commands;
