// The bash completion against the command table: at every position it offers
// the words the table's synopses name, and completing never runs the tool.
// Each case sources the script in a fresh bash, sets COMP_WORDS and COMP_CWORD
// as bash does, and calls the function the script registered for qhvctl.
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <map>
#include <set>
#include <sstream>
#include <string>
#include <string_view>
#include <vector>

#include "cli/command_table.h"
#include "harness/temp_dir.h"
#include "harness/tool_run.h"
#include "ship/shipping.h"

namespace {

using testing_support::RunOptions;
using testing_support::TempDir;
using Words = std::set<std::string>;

// Synopsis placeholders whose words the table does not spell out.
const std::map<std::string, Words, std::less<>> kPlaceholderWords = {
    // backups mode [...]: the backup modes the backups handler accepts.
    {"...", {"WhenInactive", "Interval", "CalendarIntervals"}},
    // enable, disable [features]: the features their descriptions name; given in any number.
    {"features", {"backups", "snapshots", "updates"}},
};
// Placeholders that may be given more than once, each word once.
const std::set<std::string, std::less<>> kRepeatingPlaceholders = {"features"};
// Commands whose row shows no synopsis but which take a value.
const std::map<std::string, Words, std::less<>> kUnlistedValues = {
    {"enabled", {"yes", "no"}},  // the master switch: yes/no, like every switch
};
// Sub-commands the updates handler accepts under a second name not in the usage.
const std::map<std::string, std::string, std::less<>> kSubCommandAliases = {
    {"updates set-mode", "updates mode"},
    {"updates set-feed", "updates feed"},
};

// What completion offers at one position: words, or the names of files.
struct Offer {
  Words words;
  bool files = false;
  bool repeats = false;  // the placeholder's words may follow again
};

// The words of a synopsis at its top level: "interval [<int>[h|d|w]]" gives
// "interval" and "[<int>[h|d|w]]".
std::vector<std::string> synopsisWords(std::string_view args) {
  std::vector<std::string> words(1);
  int depth = 0;
  for (char c : args) {
    depth += c == '[' ? 1 : c == ']' ? -1 : 0;
    if (c == ' ' && depth == 0) {
      words.emplace_back();
    } else {
      words.back() += c;
    }
  }
  return words;
}

// The alternatives inside the outer brackets of `word`: "[-x|-j]" gives "-x" and "-j".
std::vector<std::string> alternatives(std::string_view word) {
  std::vector<std::string> out(1);
  int depth = 0;
  for (char c : word.substr(1, word.size() - 2)) {
    depth += c == '[' ? 1 : c == ']' ? -1 : 0;
    if (c == '|' && depth == 0) {
      out.emplace_back();
    } else {
      out.back() += c;
    }
  }
  return out;
}

// What a synopsis word offers: itself when literal; each literal alternative of
// an optional part ("--last" of "[--last <int>[m|h|d]]"); file names for
// "<path>"; nothing for a number the user types ("<int>", "<integer...>").
Offer offerFor(std::string_view word) {
  Offer offer;
  if (word == "<path>") {
    offer.files = true;
  } else if (word.starts_with("[")) {
    for (const std::string& alternative : alternatives(word)) {
      const std::string first = alternative.substr(0, alternative.find_first_of(" ["));
      if (first.starts_with("<")) continue;
      if (const auto placeholder = kPlaceholderWords.find(first); placeholder != kPlaceholderWords.end()) {
        offer.words.insert(placeholder->second.begin(), placeholder->second.end());
        offer.repeats = kRepeatingPlaceholders.contains(first);
      } else {
        offer.words.insert(first);
      }
    }
  } else if (!word.starts_with("<")) {
    offer.words.insert(std::string(word));
  }
  return offer;
}

bool completed(const CommandEntry& row) { return !row.is_separator() && row.name[0] != '_'; }

std::string joined(const std::vector<std::string>& line) {
  std::string text;
  for (const std::string& word : line) text += (text.empty() ? "" : " ") + ("'" + word + "'");
  return text;
}

std::string joined(const Words& words) {
  std::string text;
  for (const std::string& word : words) text += " " + word;
  return "{" + text + " }";
}

class Completion : public ::testing::Test {
 protected:
  // The candidates for the command line `line` (after the program name; its
  // last word is the one being completed), from the script at `script`.
  Words complete(const std::vector<std::string>& line, const RunOptions& options = {},
                 const std::string& script = shipping::sourceFile("completion/qhvctl.bash")) {
    // bash -c: $1 the script, then the words of the line after "qhvctl".
    static constexpr const char* kDriver = R"(source "$1" || exit 3; shift
registered=$(complete -p qhvctl) || exit 4
function=${registered#*-F }; function=${function%% *}
COMP_WORDS=(qhvctl "$@"); COMP_CWORD=$#
COMP_LINE="${COMP_WORDS[*]}"; COMP_POINT=${#COMP_LINE}
"$function" qhvctl "${COMP_WORDS[COMP_CWORD]}" "${COMP_WORDS[COMP_CWORD-1]}" || exit 5
printf '%s\n' "${COMPREPLY[@]}"
)";
    std::vector<std::string> args = {"--norc", "--noprofile", "-c", kDriver, "bash", script};
    args.insert(args.end(), line.begin(), line.end());
    const testing_support::RunResult run = testing_support::runProgram(bash_, args, options);
    EXPECT_EQ(run.exitStatus, 0) << joined(line) << ": " << shipping::describe(run);
    EXPECT_EQ(run.err, "") << joined(line);
    Words candidates;
    std::istringstream lines(run.out);
    for (std::string candidate; std::getline(lines, candidate);) {
      if (!candidate.empty()) candidates.insert(candidate);
    }
    return candidates;
  }

  // Checks what is offered after `line`; for file names, in a directory of
  // settings files, after the first letter of two of them.
  void expectOffer(std::vector<std::string> line, const Offer& offer, std::vector<std::string>& mismatches) {
    Words expected = offer.words;
    line.push_back("");
    if (offer.files) {
      line.back() = files_.file("s");
      expected = {files_.file("settings.plist"), files_.file("saved.xml")};
    }
    const Words offered = complete(line);
    if (offered != expected) {
      mismatches.push_back(joined(line) + " offers " + joined(offered) + ", the table " + joined(expected));
    }
  }

  void SetUp() override {
    bash_ = shipping::findProgram("bash");
    ASSERT_FALSE(bash_.empty()) << "bash is not installed";
    for (const char* name : {"settings.plist", "saved.xml", "other.plist"}) files_.write(name, "{}");
  }

  std::string bash_;
  TempDir files_;
};

TEST_F(Completion, FirstWordIsEveryCommandOfTheTableButTheInternalOnes) {
  Words expected = {"-d"};  // the full usage, main's own switch
  for (const CommandEntry& row : commands) {
    if (completed(row)) expected.insert(row.name);
  }
  EXPECT_EQ(complete({""}), expected);
}

TEST_F(Completion, OnlyWordsBeginningWithWhatIsTypedAreOffered) {
  const Words all = complete({""});
  for (const char* typed : {"s", "se", "set-", "d", "up", "-", "x", "Status"}) {
    Words expected;
    for (const std::string& word : all) {
      if (word.starts_with(typed)) expected.insert(word);
    }
    EXPECT_EQ(complete({typed}), expected) << typed;
  }
  EXPECT_EQ(complete({"backups", "m"}), Words{"mode"});
  EXPECT_EQ(complete({"updates", "feed", "b"}), Words{"beta"});
  EXPECT_EQ(complete({"backups", "mode", "Cal"}), Words{"CalendarIntervals"});
  EXPECT_EQ(complete({"backups", "mode", "cal"}), Words{}) << "modes are matched with case";
}

// Every position that a synopsis of the table describes, walked row by row.
TEST_F(Completion, EverySynopsisOffersItsSubCommandsAndValues) {
  std::map<std::string, Offer> second;              // what follows a command word
  std::map<std::vector<std::string>, Offer> third;  // what follows a command and its next word
  for (const CommandEntry& row : commands) {
    if (!completed(row)) continue;
    Offer& offer = second[row.name];
    if (!row.args) {
      if (const auto values = kUnlistedValues.find(row.name); values != kUnlistedValues.end()) {
        offer.words.insert(values->second.begin(), values->second.end());
      }
      continue;
    }
    const std::vector<std::string> words = synopsisWords(row.args);
    const Offer first = offerFor(words[0]);
    offer.words.insert(first.words.begin(), first.words.end());
    offer.files = offer.files || first.files;
    for (const std::string& word : first.words) {
      Offer& next = third[{row.name, word}];
      if (first.repeats) {
        next.words = first.words;
        next.words.erase(word);
      } else if (words.size() > 1) {
        next = offerFor(words[1]);
      }
    }
  }
  for (const auto& [alias, name] : kSubCommandAliases) third[synopsisWords(alias)] = third.at(synopsisWords(name));

  std::vector<std::string> mismatches;
  for (const auto& [name, offer] : second) expectOffer({name}, offer, mismatches);
  for (const auto& [line, offer] : third) expectOffer(line, offer, mismatches);
  std::string report;
  for (const std::string& mismatch : mismatches) report += "\n  " + mismatch;
  EXPECT_TRUE(mismatches.empty()) << "completion/qhvctl.bash and the command table disagree:" << report;
}

TEST_F(Completion, FeaturesAreOfferedUntilEachWasGiven) {
  EXPECT_EQ(complete({"enable", "updates", "backups", ""}), Words{"snapshots"});
  EXPECT_EQ(complete({"disable", "snapshots", "s"}), Words{});
  EXPECT_EQ(complete({"disable", "backups", "snapshots", "updates", ""}), Words{});
}

TEST_F(Completion, NothingIsOfferedPastTheLastArgumentOrForAnUnknownCommand) {
  const std::vector<std::vector<std::string>> lines = {
      {"frobnicate", ""},           {"Status", ""},          {"backups", "enabled", "yes", ""},
      {"status", "-x", ""},         {"log", "--last", ""},   {"settings", "import", "file", ""},
      {"updates", "check", "-i", ""}, {"backups", "frob", ""}, {"_update", ""},
  };
  for (const std::vector<std::string>& line : lines) EXPECT_EQ(complete(line), Words{}) << joined(line);
}

TEST_F(Completion, FileNamesAreCompletedWhereverASettingsFileGoes) {
  const Words settings = {files_.file("settings.plist"), files_.file("saved.xml")};
  EXPECT_EQ(complete({"settings", "import", files_.file("s")}), settings);
  EXPECT_EQ(complete({"set-settings", files_.file("s")}), settings);
  EXPECT_EQ(complete({"set-settings", files_.file("o")}), Words{files_.file("other.plist")});
  EXPECT_EQ(complete({"set-settings", files_.file("none")}), Words{});
}

// A tool on PATH that records being run: completing, as root or as anyone
// else, must never start it, and gives the same words for every user.
TEST_F(Completion, NeverRunsTheToolAndWorksForEveryUser) {
  TempDir place;
  ASSERT_EQ(::chmod(place.path().c_str(), 01777), 0);
  const std::string marker = place.file("tool-was-run");
  place.write("qhvctl", "#!/bin/sh\necho run >> " + marker + "\n");
  place.write("qhvctl.bash", testing_support::readFile(shipping::sourceFile("completion/qhvctl.bash")).value_or(""));
  ASSERT_EQ(::chmod(place.file("qhvctl").c_str(), 0755), 0);
  ASSERT_EQ(::chmod(place.file("qhvctl.bash").c_str(), 0644), 0);

  RunOptions options;
  options.environment = {"PATH=" + place.path() + ":/usr/bin:/bin"};
  options.asUser = ::geteuid() == 0;
  const std::vector<std::vector<std::string>> lines = {
      {""}, {"status", ""}, {"settings", ""}, {"backups", ""}, {"backups", "mode", ""}, {"updates", "mode", ""},
      {"updates", "check", ""}, {"enabled", ""}, {"log", ""}, {"enable", ""}, {"settings", "import", place.file("q")},
  };
  for (const std::vector<std::string>& line : lines) {
    EXPECT_EQ(complete(line, options, place.file("qhvctl.bash")), complete(line)) << joined(line);
  }
  EXPECT_FALSE(testing_support::readFile(marker)) << "completing ran the tool";
}

}  // namespace
