// The built tool from the outside: usage texts, lookup, root refusal, version,
// the program name and exit statuses, as root and as an ordinary user.
#include <sys/stat.h>
#include <unistd.h>

#include <cstdio>
#include <string>
#include <vector>

#include "harness/end_to_end.h"

namespace testing_support {
namespace {

// One usage line as the tool must print it: the left column padded to 50, a
// blank, the description padded to 55, a blank, the note.
std::string usageLine(const std::string& left, const std::string& description, const std::string& note) {
  std::string line = left;
  if (line.size() < 50) line.append(50 - line.size(), ' ');
  line += ' ' + description;
  if (description.size() < 55) line.append(55 - description.size(), ' ');
  return line + ' ' + note + '\n';
}

struct UsageRow {
  const char* command;      // name and synopsis; nullptr for a blank line
  const char* description;
  const char* note;
  bool fullOnly;
};

constexpr const char* kRoot = "Must be run as root.";
constexpr const char* kRootToChange = "Must be run as root to make changes.";

// What both usages show, in order, written out independently of the table.
const std::vector<UsageRow> kUsage = {
    {"version", "Print version.", "", false},
    {nullptr, nullptr, nullptr, false},
    {"status [-x|-j]", "Print scheduler status (-x for xml, -j for json).", "", false},
    {"info", "Print activities information.", "", false},
    {nullptr, nullptr, nullptr, false},
    {"settings [-x|-j]", "Print scheduler settings (-x for xml, -j for json).", "", false},
    {"settings import <path>", "Import settings from the specified plist file.", kRoot, false},
    {nullptr, nullptr, nullptr, false},
    {"enabled", "Get/set master switch.", kRootToChange, false},
    {nullptr, nullptr, nullptr, false},
    {"backups enabled [yes|no]", "Get/set backups enabled state.", kRootToChange, false},
    {"backups mode [...]", "Get/set backups mode.", kRootToChange, false},
    {"backups interval [<int>[h|d|w]]", "Get/set the backups interval.", kRootToChange, false},
    {"backups kickstart", "Force start a backup now.", "", false},
    {nullptr, nullptr, nullptr, false},
    {"snapshots enabled [yes|no]", "Get/set snapshots enabled state.", kRootToChange, false},
    {nullptr, nullptr, nullptr, false},
    {"updates enabled [yes|no]", "Get/set updates enabled state.", kRootToChange, false},
    {"updates mode [std|beta|test]", "Get/set updates mode.", kRootToChange, true},
    {"updates feed [std|beta|test]", "Get/set updates feed.", kRootToChange, true},
    {"updates check [-i]", "Check for updates (-i to install).", kRootToChange, false},
    {nullptr, nullptr, nullptr, false},
    {"uninstall", "Uninstall Quillhaven.", kRoot, false},
    {nullptr, nullptr, nullptr, true},
    {"log [--last <int>[m|h|d]]", "Print log.", kRoot, true},
    {nullptr, nullptr, nullptr, true},
    {"debug-logs [yes|no]", "Get/set debug logs.", kRootToChange, true},
    {"dry-run [yes|no]", "Get/set dry run.", kRootToChange, true},
    {nullptr, nullptr, nullptr, true},
    {"enable [features]", "Enable features (backups, snapshots, updates).", kRoot, true},
    {"disable [features]", "Disable features (backups, snapshots, updates).", kRoot, true},
    {"set-settings <path>", "Apply settings from the specified plist file.", kRoot, true},
    {"set-interval <integer[m|h|d|w]>", "Trigger backups using the specified interval.", kRoot, true},
    {"set-when-inactive", "Trigger backups during user inactivity.", kRoot, true},
    {"backups when-inactive [yes]", "Get/set the backups behavior.", kRootToChange, true},
};

std::string expectedUsage(const std::string& program, bool full) {
  std::string text;
  bool first = true;
  for (const UsageRow& row : kUsage) {
    if (row.fullOnly && !full) continue;
    if (!row.command) {
      text += '\n';
      continue;
    }
    text += usageLine(std::string(first ? "usage:" : "      ") + " " + program + " " + row.command,
                      row.description, row.note);
    first = false;
  }
  return text;
}

constexpr const char* kRefusal = "This command requires root privileges.\n";

class CommandLine : public EndToEndTest {};

TEST_F(CommandLine, UsageTextsAreExactAndExitWithOne) {
  for (const RunOptions& options : {RunOptions{}, asUser()}) {
    RunResult none = runTool({}, options);
    EXPECT_EQ(none.out, expectedUsage("qhvctl", false));
    EXPECT_EQ(none.err, "");
    EXPECT_EQ(none.exitStatus, 1);

    RunResult full = runTool({"-d"}, options);
    EXPECT_EQ(full.out, expectedUsage("qhvctl", true));
    EXPECT_EQ(full.err, "");
    EXPECT_EQ(full.exitStatus, 1);
  }
}

TEST_F(CommandLine, UsageLinesKeepTheirTrailingBlanks) {
  const std::string usage = runTool({}).out;
  // Row 2: 28 characters padded to 50, the description padded to 55, an empty note.
  const std::string status = "       qhvctl status [-x|-j]" + std::string(22, ' ') + " " +
                             "Print scheduler status (-x for xml, -j for json)." + std::string(6, ' ') + " \n";
  EXPECT_NE(usage.find("\n" + status), std::string::npos) << usage;
  EXPECT_EQ(usage.substr(0, usage.find('\n') + 1),
            "usage: qhvctl version" + std::string(29, ' ') + " Print version." + std::string(41, ' ') + " \n");
}

TEST_F(CommandLine, InternalCommandsAreNeverShown) {
  for (const std::vector<std::string>& args : std::vector<std::vector<std::string>>{{}, {"-d"}}) {
    const std::string usage = runTool(args).out;
    EXPECT_EQ(usage.find("_update"), std::string::npos);
    EXPECT_EQ(usage.find("_uninstall"), std::string::npos);
  }
}

TEST_F(CommandLine, UnknownCommandsPrintTheShortUsage) {
  const std::string shortUsage = expectedUsage("qhvctl", false);
  // No case folding, no abbreviations, "-d" only alone, separators never match.
  for (const std::vector<std::string>& args :
       std::vector<std::vector<std::string>>{{"Status"}, {"stat"}, {"-d", "status"}, {""}, {"versio"},
                                             {"version "}, {"-h"}}) {
    RunResult run = runTool(args);
    EXPECT_EQ(run.out, shortUsage) << args[0];
    EXPECT_EQ(run.err, "");
    EXPECT_EQ(run.exitStatus, 1);
  }
}

TEST_F(CommandLine, VersionComesFromTheEmbeddedInformation) {
  for (const RunOptions& options : {RunOptions{}, asUser()}) {
    for (const std::vector<std::string>& args :
         std::vector<std::vector<std::string>>{{"version"}, {"version", "extra", "-d"}}) {
      RunResult run = runTool(args, options);
      EXPECT_EQ(run.out, "5.2.2 (219)\n");
      EXPECT_EQ(run.err, "");
      EXPECT_EQ(run.exitStatus, 0);
    }
  }
}

TEST_F(CommandLine, RootOnlyCommandsAreRefusedToOtherUsersOnStandardOutput) {
  for (const std::vector<std::string>& args : std::vector<std::vector<std::string>>{
           {"_update"}, {"_uninstall"}, {"uninstall"}, {"log"}, {"enable"}, {"disable"},
           {"set-settings", "/tmp/settings.plist"}, {"set-interval", "1h"}, {"set-when-inactive"}}) {
    RunResult run = runTool(args, asUser());
    EXPECT_EQ(run.out, kRefusal) << args[0];
    EXPECT_EQ(run.err, "") << args[0];
    EXPECT_EQ(run.exitStatus, 1) << args[0];
  }
}

TEST_F(CommandLine, SettingsImportIsNotStoppedByTheDispatcher) {
  // The first "settings" row carries no root flag; the import is stopped
  // later, where it would change something.
  RunResult run = runTool({"settings", "import", "/tmp/settings.plist"}, asUser());
  EXPECT_EQ(run.out.find("This command requires root privileges."), std::string::npos);
}

TEST_F(CommandLine, ProgramNameIsTheBaseNameItWasStartedUnder) {
  RunOptions options;
  options.argv0 = "/opt/somewhere/qhvctl-dev";
  EXPECT_EQ(runTool({}, options).out, expectedUsage("qhvctl-dev", false));
  options.argv0 = "otherctl";
  EXPECT_EQ(runTool({"-d"}, options).out, expectedUsage("otherctl", true));
}

TEST_F(CommandLine, FailedOutputIsAnError) {
  RunResult run = runProgram("/bin/sh", {"-c", "exec \"$0\" version > /dev/full", toolPath()});
  EXPECT_EQ(run.exitStatus, 1);
  EXPECT_EQ(run.err, "qhvctl: write error: No space left on device\n");
}

}  // namespace
}  // namespace testing_support
