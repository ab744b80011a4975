// The manual page against what it documents: every command of the usage has
// its entry with the synopsis, description and notes of its table row; the
// files are the log facility's; groff formats the page without a warning.
#include <gtest/gtest.h>

#include <algorithm>
#include <cstdlib>
#include <optional>
#include <span>
#include <string>
#include <vector>

#include "cli/command_table.h"
#include "harness/files.h"
#include "harness/tool_run.h"
#include "log/log.h"
#include "platform/user_ids.h"
#include "ship/manual_page.h"
#include "ship/shipping.h"

namespace {

using shipping::ManualEntry;
using shipping::ManualPage;

constexpr const char* kRootNote = "Must be run as root.";
constexpr const char* kRootToChangeNote = "Must be run as root to make changes.";
constexpr const char* kFullUsageNote = "Shown only in the full usage.";
constexpr const char* kRequiredSections[] = {"NAME",        "SYNOPSIS", "DESCRIPTION", "COMMANDS",
                                             "EXIT STATUS", "FILES",    "EXAMPLES"};

std::string pageSource() {
  const std::optional<std::string> source = testing_support::readFile(shipping::sourceFile("doc/qhvctl.8"));
  EXPECT_TRUE(source) << "doc/qhvctl.8 cannot be read";
  return source.value_or("");
}

// The command line a row documents, as the usage prints it after the program name.
std::string synopsis(const CommandEntry& row) {
  return row.args ? std::string(row.name) + " " + row.args : std::string(row.name);
}

// Rows the usage prints: commands, without the internal ones.
bool documented(const CommandEntry& row) { return !row.is_separator() && row.name[0] != '_'; }

bool contains(const std::string& text, std::string_view part) { return text.find(part) != std::string::npos; }

// The log directory of a user who is not root, with the home directory written "~".
std::string userLogDirectory() {
  const char* home = "/home/manual-page-reader";
  const char* saved = std::getenv("HOME");
  const std::string savedHome = saved ? saved : "";
  ::setenv("HOME", home, 1);
  platform::FixedUserIds user(1000, 1000);
  platform::UserIds::setForTesting(&user);
  const std::string directory = LKSLogGetParentPath();
  platform::UserIds::setForTesting(nullptr);
  saved ? ::setenv("HOME", savedHome.c_str(), 1) : ::unsetenv("HOME");
  return "~" + directory.substr(std::string_view(home).size());
}

std::string rootLogDirectory() {
  platform::FixedUserIds root(0, 0);
  platform::UserIds::setForTesting(&root);
  const std::string directory = LKSLogGetParentPath();
  platform::UserIds::setForTesting(nullptr);
  return directory;
}

// A note the paragraph must carry exactly when the row asks for it.
void checkNote(const std::string& command, const ManualEntry& entry, const char* note, bool wanted,
               std::vector<std::string>& problems) {
  if (wanted && !contains(entry.text, note)) {
    problems.push_back("\"" + command + "\": no note \"" + note + "\"");
  } else if (!wanted && contains(entry.text, note)) {
    problems.push_back("\"" + command + "\": says \"" + note + "\" but its table row does not");
  }
}

// Everything the page lacks or gets wrong against `rows`, one line each; empty when it is complete.
std::vector<std::string> manualPageProblems(const ManualPage& page, std::span<const CommandEntry> rows) {
  std::vector<std::string> problems;
  for (const char* section : kRequiredSections) {
    if (std::find(page.sections.begin(), page.sections.end(), section) == page.sections.end()) {
      problems.push_back(std::string("no section \"") + section + "\"");
    }
  }
  std::vector<std::string> synopses;
  for (const CommandEntry& row : rows) {
    if (!documented(row)) continue;
    const std::string command = synopsis(row);
    synopses.push_back(command);
    std::vector<const ManualEntry*> found;
    for (const ManualEntry& entry : page.commands) {
      if (entry.tag == command) found.push_back(&entry);
    }
    if (found.size() != 1) {
      problems.push_back("\"" + command + "\": " + (found.empty() ? "no entry" : "more than one entry"));
      continue;
    }
    const ManualEntry& entry = *found.front();
    if (!entry.text.starts_with(row.description)) {
      problems.push_back("\"" + command + "\": does not begin with its description \"" + row.description + "\"");
    }
    checkNote(command, entry, kRootNote, row.requires_root, problems);
    checkNote(command, entry, kRootToChangeNote, !row.requires_root && row.requires_root_to_change, problems);
    checkNote(command, entry, kFullUsageNote, row.hidden, problems);
  }
  for (const ManualEntry& entry : page.commands) {
    if (std::find(synopses.begin(), synopses.end(), entry.tag) == synopses.end()) {
      problems.push_back("\"" + entry.tag + "\": an entry for no command of the table");
    }
  }
  return problems;
}

std::string listed(const std::vector<std::string>& problems) {
  std::string text;
  for (const std::string& problem : problems) text += "\n  - " + problem;
  return text;
}

TEST(ManualPage, DocumentsEveryCommandOfTheUsageAsItsTableRowSaysIt) {
  const std::vector<std::string> problems = manualPageProblems(shipping::readManualPage(pageSource()), commands);
  EXPECT_TRUE(problems.empty()) << "doc/qhvctl.8 does not match the command table:" << listed(problems);
}

TEST(ManualPage, NamesItsSectionAndTheToolsVersion) {
  const ManualPage page = shipping::readManualPage(pageSource());
  ASSERT_GE(page.header.size(), 4U) << ".TH needs a title, a section, a date and a source";
  EXPECT_EQ(page.header[0], "QHVCTL");
  EXPECT_EQ(page.header[1], "8");
  EXPECT_EQ(page.header[3], "qhvctl " + shipping::infoPlistString("CFBundleShortVersionString"));
  EXPECT_TRUE(contains(shipping::sectionText(page, "NAME"), "qhvctl - ")) << shipping::sectionText(page, "NAME");
}

TEST(ManualPage, FilesAreTheLogFilesOfRootAndOfOtherUsersAndTheSettingsFiles) {
  const ManualPage page = shipping::readManualPage(pageSource());
  const std::string files = shipping::sectionText(page, "FILES");
  std::vector<std::string> wanted = {rootLogDirectory() + "/ctl.log", userLogDirectory() + "/", "settings import",
                                     "set-settings"};
  for (int rotated = 0; rotated <= 3; ++rotated) wanted.push_back("ctl." + std::to_string(rotated) + ".log");
  for (const std::string& name : wanted) EXPECT_TRUE(contains(files, name)) << "FILES does not name " << name;
  EXPECT_FALSE(contains(files, "ctl.4.log")) << "no fifth rotated file is ever kept";
}

TEST(ManualPage, ExitStatusesAreZeroAndOneAndTheUsageFails) {
  const ManualPage page = shipping::readManualPage(pageSource());
  const std::string status = shipping::sectionText(page, "EXIT STATUS");
  EXPECT_TRUE(status.starts_with("0 ")) << status;
  EXPECT_TRUE(contains(status, " 1 ")) << status;
  EXPECT_TRUE(contains(status, "usage")) << status;
}

// The checker itself, on pages broken one way each: it must name what is wrong.
TEST(ManualPage, CheckerNamesEachThingMissingOrWrong) {
  const std::string page = pageSource();
  struct Breakage {
    const char* why;
    std::string from;
    std::string to;
    std::string problem;
  };
  const Breakage breakages[] = {
      {"an entry removed", ".TP\n\\fBinfo\\fR\nPrint activities information.\n", "", "\"info\": no entry"},
      {"a synopsis that drifted", "\\fBstatus\\fR [\\fB\\-x\\fR|\\fB\\-j\\fR]", "\\fBstatus\\fR [\\fB\\-x\\fR]",
       "\"status [-x|-j]\": no entry"},
      {"the drifted synopsis is named too", "\\fBstatus\\fR [\\fB\\-x\\fR|\\fB\\-j\\fR]",
       "\\fBstatus\\fR [\\fB\\-x\\fR]", "\"status [-x]\": an entry for no command of the table"},
      {"a root note dropped", "reports whether it succeeded.\nMust be run as root.\n",
       "reports whether it succeeded.\n", "\"uninstall\": no note \"Must be run as root.\""},
      {"a root note where none belongs", "Works for every user.\n", "Works for every user.\nMust be run as root.\n",
       "\"backups kickstart\": says \"Must be run as root.\" but its table row does not"},
      {"a description dropped", "Print activities information.\n", "",
       "\"info\": does not begin with its description \"Print activities information.\""},
      {"a hidden command not marked", "is another name for it.\nShown only in the full usage.\n",
       "is another name for it.\n", "\"updates mode [std|beta|test]\": no note \"Shown only in the full usage.\""},
      {"an entry twice", ".TP\n\\fBversion\\fR\n", ".TP\n\\fBversion\\fR\nPrint version.\n.TP\n\\fBversion\\fR\n",
       "\"version\": more than one entry"},
      {"a section renamed", ".SH EXIT STATUS\n", ".SH RESULTS\n", "no section \"EXIT STATUS\""},
  };
  for (const Breakage& breakage : breakages) {
    const std::size_t at = page.find(breakage.from);
    ASSERT_NE(at, std::string::npos) << breakage.why << ": the page no longer has " << breakage.from;
    std::string broken = page;
    broken.replace(at, breakage.from.size(), breakage.to);
    const std::vector<std::string> problems = manualPageProblems(shipping::readManualPage(broken), commands);
    EXPECT_NE(std::find(problems.begin(), problems.end(), breakage.problem), problems.end())
        << breakage.why << ": expected " << breakage.problem << ", got:" << listed(problems);
  }
}

TEST(ManualPage, GroffFormatsItWithoutAWarning) {
  const std::string groff = shipping::findProgram("groff");
  if (groff.empty()) GTEST_SKIP() << "groff is not installed: the page's formatting is not checked";
  for (const char* macros : {"-man", "-mandoc"}) {
    const testing_support::RunResult run =
        testing_support::runProgram(groff, {"-ww", "-z", macros, shipping::sourceFile("doc/qhvctl.8")});
    EXPECT_EQ(run.exitStatus, 0) << macros << ": " << shipping::describe(run);
    EXPECT_EQ(run.err, "") << macros;
  }
}

// What groff prints must agree with what the reader above takes from the
// source: every synopsis appears as a line of the formatted page.
TEST(ManualPage, FormattedPageShowsEverySynopsis) {
  const std::string groff = shipping::findProgram("groff");
  if (groff.empty()) GTEST_SKIP() << "groff is not installed: the formatted page is not checked";
  const testing_support::RunResult run = testing_support::runProgram(
      groff, {"-man", "-Tascii", "-P-cbou", "-rLL=200n", shipping::sourceFile("doc/qhvctl.8")});
  ASSERT_EQ(run.exitStatus, 0) << shipping::describe(run);
  for (const CommandEntry& row : commands) {
    if (!documented(row)) continue;
    EXPECT_TRUE(contains(run.out, "\n       " + synopsis(row) + "\n") ||
                contains(run.out, "\n       " + synopsis(row) + " "))
        << synopsis(row) << " is not a line of the formatted page";
  }
}

}  // namespace
