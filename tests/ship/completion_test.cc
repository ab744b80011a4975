// The completions of bash, zsh and fish against the command table, each run in
// its own shell: at every position they offer the words the table's synopses
// name, and completing never runs the tool.
#include <algorithm>
#include <map>
#include <set>
#include <sstream>

#include "cli/command_table.h"
#include "harness/skip_or_fail_under_ci.h"
#include "harness/temp_dir.h"
#include "ship/shipping.h"

namespace {

using Words = std::set<std::string>;
using Line = std::vector<std::string>;

// `text` split at `separator` outside brackets: "interval [<int>[h|d|w]]" at blanks gives two words.
Line split(std::string_view text, char separator) {
  Line parts(1);
  int depth = 0;
  for (char c : text) {
    depth += (c == '[') - (c == ']');
    if (c == separator && depth == 0) parts.emplace_back(); else parts.back() += c;
  }
  return parts;
}

// What a synopsis word offers: a literal word itself, each alternative of an
// optional part by its first word ("--last" of "[--last <int>[m|h|d]]"), the
// words of a placeholder, "<path>" for file names, nothing for a number.
Words offers(const std::string& word) {
  const std::map<std::string, Words> placeholders = {{"...", {"WhenInactive", "Interval", "CalendarIntervals"}},
                                                     {"features", {"backups", "snapshots", "updates"}}};
  Words words;
  for (const std::string& alternative : word.starts_with("[") ? split(word.substr(1, word.size() - 2), '|') : Line{word}) {
    const std::string first = split(alternative, ' ')[0];
    if (placeholders.contains(first)) words.insert(placeholders.at(first).begin(), placeholders.at(first).end());
    if (!placeholders.contains(first) && (first == "<path>" || !first.starts_with("<"))) words.insert(first);
  }
  return words;
}

template <typename Container>
std::string joined(const Container& words) {
  std::string text;
  for (const std::string& word : words) text += (text.empty() ? "" : " ") + word;
  return text;
}

// What follows each line of words after the program name, for every position a synopsis of the table describes.
std::map<Line, Words> offeredByTheTable() {
  std::map<Line, Words> offered = {{{}, {"-d"}}};  // "-d": the full usage
  for (const CommandEntry& row : commands) {
    if (row.is_separator() || row.name[0] == '_') continue;  // internal commands are not completed
    offered[{}].insert(row.name);
    const Line words = row.args ? split(row.args, ' ') : Line{"[yes|no]"};  // the master switch, like every switch
    const Words next = row.args || std::string(row.name) == "enabled" ? offers(words[0]) : Words{};
    offered[{row.name}].insert(next.begin(), next.end());
    for (const std::string& word : next) {
      Words after = words.size() > 1 ? offers(words[1]) : Words{};
      if (words[0] == "[features]") (after = next).erase(word);  // each feature once, in any number
      offered[{row.name, word}] = after;
    }
  }
  // Sub-commands the updates handler accepts under a second name not in the usage.
  offered[{"updates", "set-mode"}] = offered[{"updates", "mode"}];
  offered[{"updates", "set-feed"}] = offered[{"updates", "feed"}];
  return offered;
}

// A shell whose completion is tested: its program, its completion file
// completion/qhvctl.<name> and its driver tests/ship/completion_driver.<name>.
struct Shell {
  std::string name;
  std::string withoutStartupFiles;  // the option that keeps it from reading the user's files
  bool matchesCase;                 // fish matches what was typed regardless of case, wherever it completes
};

// A test's name in listings: the shell's.
void PrintTo(const Shell& shell, std::ostream* out) { *out << shell.name; }

class Completion : public ::testing::TestWithParam<Shell> {
 protected:
  void SetUp() override {
    program_ = shipping::findProgram(GetParam().name);
    if (!program_.empty()) return;
    SKIP_OR_FAIL_UNDER_CI(GetParam().name + " is not installed: its completion is not tested");
  }

  // The candidates, sorted, at the end of each line, completed in one run of the
  // shell with file names from `directory`.
  std::vector<std::string> complete(const std::vector<Line>& lines, const std::string& directory,
                                    testing_support::RunOptions options = {}) const {
    for (const Line& line : lines) options.input += "qhvctl " + joined(line) + "\n";
    const std::string& shell = GetParam().name;
    const testing_support::RunResult run = testing_support::runProgram(
        program_, {GetParam().withoutStartupFiles, shipping::sourceFile("tests/ship/completion_driver." + shell),
                   shipping::sourceFile("completion/qhvctl." + shell), directory},
        options);
    EXPECT_TRUE(run.exitStatus == 0 && run.err.empty()) << shipping::describe(run);
    std::vector<std::string> offered;
    std::istringstream out(run.out);
    for (std::string text; std::getline(out, text);) {
      Line words;
      std::istringstream in(text);
      for (std::string word; in >> word;) words.push_back(word);
      std::sort(words.begin(), words.end());
      offered.push_back(joined(words));
    }
    EXPECT_EQ(offered.size(), lines.size()) << shipping::describe(run);
    offered.resize(lines.size());
    return offered;
  }

 private:
  std::string program_;
};

TEST_P(Completion, EverySynopsisOffersItsCommandsSubCommandsAndValues) {
  testing_support::TempDir files;  // file names are offered after the first letter of two
  for (const char* name : {"settings.plist", "saved.xml", "other.plist"}) files.write(name, "{}");
  std::vector<Line> lines;
  std::vector<std::string> expected;
  for (const auto& [typed, words] : offeredByTheTable()) {
    if (typed.size() > 1 && typed[1] == "<path>") continue;
    lines.push_back(typed);
    lines.back().push_back(words.contains("<path>") ? "s" : "");
    expected.push_back(joined(words.contains("<path>") ? Words{"saved.xml", "settings.plist"} : words));
  }
  const std::vector<std::string> offered = complete(lines, files.path());
  std::string mismatches;
  for (std::size_t i = 0; i < lines.size(); ++i) {
    if (offered[i] == expected[i]) continue;
    mismatches += "\n  qhvctl " + joined(lines[i]) + "<tab> offers \"" + offered[i] + "\", the table \"" +
                  expected[i] + "\"";
  }
  EXPECT_EQ(mismatches, "") << "completion/qhvctl." << GetParam().name << " and the command table disagree";
}

// As another user, with a tool on PATH that records being run.
TEST_P(Completion, OffersOnlyMatchingWordsToEveryUserAndNeverRunsTheTool) {
  testing_support::TempDir place;
  ASSERT_EQ(::chmod(place.path().c_str(), 01777), 0);
  place.write("qhvctl", "#!/bin/sh\necho run >> " + place.file("tool-was-run") + "\n");
  ASSERT_EQ(::chmod(place.file("qhvctl").c_str(), 0755), 0);
  testing_support::RunOptions options;
  options.environment = {"PATH=" + place.path() + ":/usr/bin:/bin"};
  options.asUser = ::geteuid() == 0;
  const std::vector<std::string> offered =
      complete({{"backups", "mode", "Cal"}, {"backups", "mode", "cal"}, {"backups", "enabled", "yes", ""}},
               place.path(), options);
  EXPECT_EQ(offered[0], "CalendarIntervals");
  EXPECT_EQ(offered[1], GetParam().matchesCase ? "" : "CalendarIntervals") << "matched as the shell matches";
  EXPECT_EQ(offered[2], "") << "nothing past the last argument";
  EXPECT_FALSE(testing_support::readFile(place.file("tool-was-run")));
}

INSTANTIATE_TEST_SUITE_P(Shells, Completion,
                         ::testing::Values(Shell{"bash", "--norc", true}, Shell{"zsh", "-f", true},
                                           Shell{"fish", "--no-config", false}),
                         [](const ::testing::TestParamInfo<Shell>& shell) { return shell.param.name; });

}  // namespace
