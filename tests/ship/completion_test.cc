// The bash completion against the command table: at every position it offers
// the words the table's synopses name, and completing never runs the tool.
#include <map>
#include <set>

#include "cli/command_table.h"
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

// The candidates, sorted, for `line` after the program name, its last word the one being completed.
std::string complete(const Line& line, const testing_support::RunOptions& options = {}) {
  Line args = {"--norc", "--noprofile", "-c", R"(source "$1" || exit 3; shift
COMP_WORDS=(qhvctl "$@"); COMP_CWORD=$#; COMP_LINE="${COMP_WORDS[*]}"; COMP_POINT=${#COMP_LINE}
registered=$(complete -p qhvctl) && function=${registered#*-F } && ${function%% *} qhvctl "${@: -1}" || exit 4
printf '%s\n' "${COMPREPLY[@]}" | sort | paste -sd ' ')", "bash", shipping::sourceFile("completion/qhvctl.bash")};
  args.insert(args.end(), line.begin(), line.end());
  const testing_support::RunResult run = testing_support::runProgram(shipping::findProgram("bash"), args, options);
  EXPECT_TRUE(run.exitStatus == 0 && run.err.empty()) << shipping::describe(run);
  return run.out.substr(0, run.out.find('\n'));
}

// Every position that a synopsis of the table describes, walked row by row.
TEST(Completion, EverySynopsisOffersItsCommandsSubCommandsAndValues) {
  std::map<Line, Words> offered = {{{}, {"-d"}}};  // what follows each line; "-d": the full usage
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

  testing_support::TempDir files;  // file names are offered after the first letter of two
  for (const char* name : {"settings.plist", "saved.xml", "other.plist"}) files.write(name, "{}");
  std::string mismatches;
  for (const auto& [typed, words] : offered) {
    if (typed.size() > 1 && typed[1] == "<path>") continue;
    Line line = typed;
    line.push_back(words.contains("<path>") ? files.file("s") : "");
    const Words expected = words.contains("<path>") ? Words{files.file("saved.xml"), files.file("settings.plist")} : words;
    if (const std::string got = complete(line); got != joined(expected)) {
      mismatches += "\n  qhvctl " + joined(line) + "<tab> offers \"" + got + "\", the table \"" + joined(expected) + "\"";
    }
  }
  EXPECT_EQ(mismatches, "") << "completion/qhvctl.bash and the command table disagree";
}

// As another user, with a tool on PATH that records being run.
TEST(Completion, OffersOnlyMatchingWordsToEveryUserAndNeverRunsTheTool) {
  testing_support::TempDir place;
  ASSERT_EQ(::chmod(place.path().c_str(), 01777), 0);
  place.write("qhvctl", "#!/bin/sh\necho run >> " + place.file("tool-was-run") + "\n");
  ASSERT_EQ(::chmod(place.file("qhvctl").c_str(), 0755), 0);
  testing_support::RunOptions options;
  options.environment = {"PATH=" + place.path() + ":/usr/bin:/bin"};
  options.asUser = ::geteuid() == 0;
  EXPECT_EQ(complete({"backups", "mode", "Cal"}, options), "CalendarIntervals");
  EXPECT_EQ(complete({"backups", "mode", "cal"}, options), "") << "matched with case";
  EXPECT_EQ(complete({"backups", "enabled", "yes", ""}, options), "") << "nothing past the last argument";
  EXPECT_FALSE(testing_support::readFile(place.file("tool-was-run")));
}

}  // namespace
