// The manual page, as groff formats it, against the command table: one entry per
// command of the usage, tagged with its synopsis, its text its description and notes.
#include <map>
#include <sstream>

#include "cli/command_table.h"
#include "ship/shipping.h"

namespace {

// Everything the page `source` lacks or gets wrong, one line each; empty when it is complete.
std::string manualPageProblems(const std::string& source) {
  testing_support::RunOptions options;
  options.input = source;
  // Lines long enough that every paragraph is one line, neither hyphenated nor adjusted.
  const testing_support::RunResult run = testing_support::runProgram(
      shipping::findProgram("groff"), {"-ww", "-man", "-Tascii", "-P-cbou", "-rLL=5000n"}, options);
  if (run.exitStatus != 0 || !run.err.empty()) return "\n  groff warns: " + shipping::describe(run);
  // COMMANDS: a tag indented by 7, its text by 14, or on the tag's line after a gap when the tag is short.
  std::map<std::string, std::vector<std::string>> entries;
  std::string* text = nullptr;
  std::istringstream lines(run.out);
  for (std::string line, section; std::getline(lines, line);) {
    if (!line.empty() && line[0] != ' ') section = line;
    const std::size_t indent = line.find_first_not_of(' '), gap = line.find("  ", 7);
    if (section == "COMMANDS" && indent == 7) {
      text = &entries[line.substr(7, gap - 7)].emplace_back(gap == std::string::npos ? "" : line.substr(14));
    } else if (section == "COMMANDS" && indent == 14 && text) {
      *text += line.substr(14);
    }
  }
  std::string problems;
  for (const CommandEntry& row : commands) {
    if (row.is_separator() || row.name[0] == '_') continue;  // internal commands are not in the usage
    const std::string command = row.args ? std::string(row.name) + " " + row.args : row.name;
    const std::vector<std::string> found = entries.contains(command) ? entries[command] : std::vector<std::string>{};
    entries.erase(command);
    if (found.size() != 1) {
      problems += "\n  " + command + (found.empty() ? ": no entry" : ": more than one entry");
      continue;
    }
    if (!found[0].starts_with(row.description)) problems += "\n  " + command + ": does not begin with its description";
    const std::pair<const char*, bool> notes[] = {
        {"Must be run as root.", row.requires_root},
        {"Must be run as root to make changes.", !row.requires_root && row.requires_root_to_change},
        {"Shown only in the full usage.", row.hidden}};
    for (const auto& [note, wanted] : notes) {
      if ((found[0].find(note) != std::string::npos) != wanted) {
        problems += "\n  " + command + (wanted ? ": no note \"" : ": a stray note \"") + note + "\"";
      }
    }
  }
  for (const auto& entry : entries) problems += "\n  " + entry.first + ": an entry for no command of the table";
  return problems;
}

class ManualPage : public ::testing::Test {
 protected:
  void SetUp() override {
    if (shipping::findProgram("groff").empty()) GTEST_SKIP() << "groff is not installed: the manual page is not checked";
  }
  std::string source_ = testing_support::readFile(shipping::sourceFile("doc/qhvctl.8")).value_or("");
};

TEST_F(ManualPage, DocumentsEveryCommandOfTheUsageAsItsTableRowSaysItAndFormatsWithoutAWarning) {
  EXPECT_EQ(manualPageProblems(source_), "") << "doc/qhvctl.8 does not match the command table";
}

// The checker itself, on a page broken three ways: it must name each.
TEST_F(ManualPage, CheckerNamesEachThingMissingOrWrong) {
  const std::pair<const char*, const char*> breakages[] = {
      {".TP\n\\fBinfo\\fR\nPrint activities information.\n", ""},
      {"\\fBstatus\\fR [\\fB\\-x\\fR|\\fB\\-j\\fR]", "\\fBstatus\\fR [\\fB\\-x\\fR]"},
      {"reports whether it succeeded.\nMust be run as root.\n", "reports whether it succeeded.\n"},
  };
  for (const auto& [from, to] : breakages) {
    ASSERT_NE(source_.find(from), std::string::npos) << "the page no longer has " << from;
    source_.replace(source_.find(from), std::string_view(from).size(), to);
  }
  EXPECT_EQ(manualPageProblems(source_),
            "\n  status [-x|-j]: no entry\n  info: no entry\n  uninstall: no note \"Must be run as root.\""
            "\n  status [-x]: an entry for no command of the table");
}

}  // namespace
