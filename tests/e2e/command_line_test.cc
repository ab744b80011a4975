// The built tool from the outside: usage texts, lookup, root refusal, version,
// the program name, exit statuses and where the log file goes, as root and as
// an ordinary user.
#include <sys/stat.h>
#include <unistd.h>

#include <string>
#include <vector>

#include "harness/end_to_end.h"

namespace testing_support {
namespace {

constexpr const char* kRoot = "Must be run as root.";
constexpr const char* kRootToChange = "Must be run as root to make changes.";

// What the usages show, in order, written out independently of the table: a
// blank line before some rows, some rows in the full usage only.
struct UsageRow {
  bool blankBefore;
  bool fullOnly;
  const char* command;  // name and synopsis
  const char* description;
  const char* note;
};
const UsageRow kUsage[] = {
    {false, false, "version", "Print version.", ""},
    {true, false, "status [-x|-j]", "Print scheduler status (-x for xml, -j for json).", ""},
    {false, false, "info", "Print activities information.", ""},
    {true, false, "settings [-x|-j]", "Print scheduler settings (-x for xml, -j for json).", ""},
    {false, false, "settings import <path>", "Import settings from the specified plist file.", kRoot},
    {true, false, "enabled", "Get/set master switch.", kRootToChange},
    {true, false, "backups enabled [yes|no]", "Get/set backups enabled state.", kRootToChange},
    {false, false, "backups mode [...]", "Get/set backups mode.", kRootToChange},
    {false, false, "backups interval [<int>[h|d|w]]", "Get/set the backups interval.", kRootToChange},
    {false, false, "backups kickstart", "Force start a backup now.", ""},
    {true, false, "snapshots enabled [yes|no]", "Get/set snapshots enabled state.", kRootToChange},
    {true, false, "updates enabled [yes|no]", "Get/set updates enabled state.", kRootToChange},
    {false, true, "updates mode [std|beta|test]", "Get/set updates mode.", kRootToChange},
    {false, true, "updates feed [std|beta|test]", "Get/set updates feed.", kRootToChange},
    {false, false, "updates check [-i]", "Check for updates (-i to install).", kRootToChange},
    {true, false, "uninstall", "Uninstall Quillhaven.", kRoot},
    {true, true, "log [--last <int>[m|h|d]]", "Print log.", kRoot},
    {true, true, "debug-logs [yes|no]", "Get/set debug logs.", kRootToChange},
    {false, true, "dry-run [yes|no]", "Get/set dry run.", kRootToChange},
    {true, true, "enable [features]", "Enable features (backups, snapshots, updates).", kRoot},
    {false, true, "disable [features]", "Disable features (backups, snapshots, updates).", kRoot},
    {false, true, "set-settings <path>", "Apply settings from the specified plist file.", kRoot},
    {false, true, "set-interval <integer[m|h|d|w]>", "Trigger backups using the specified interval.", kRoot},
    {false, true, "set-when-inactive", "Trigger backups during user inactivity.", kRoot},
    {false, true, "backups when-inactive [yes]", "Get/set the backups behavior.", kRootToChange},
};

// Each line: the left column padded to 50, a blank, the description padded to
// 55, a blank, the note.
std::string expectedUsage(const std::string& program, bool full) {
  std::string text;
  for (const UsageRow& row : kUsage) {
    if (row.fullOnly && !full) continue;
    if (row.blankBefore) text += '\n';
    std::string line = std::string(text.empty() ? "usage:" : "      ") + " " + program + " " + row.command;
    line.resize(std::max<std::size_t>(line.size(), 50), ' ');
    std::string description = row.description;
    description.resize(std::max<std::size_t>(description.size(), 55), ' ');
    text += line + " " + description + " " + row.note + "\n";
  }
  return text;
}

constexpr const char* kRefusal = "This command requires root privileges.\n";

class CommandLine : public EndToEndTest {};

TEST_F(CommandLine, UsageAndLookup) {
  const std::string shortUsage = expectedUsage("qhvctl", false);
  for (const RunOptions& options : {RunOptions{}, asUser()}) {
    // The short usage for no command and for every word that names none: no case
    // folding, no abbreviation, "-d" only alone, separators never matching.
    for (const std::vector<std::string>& args : std::vector<std::vector<std::string>>{
             {}, {"Status"}, {"stat"}, {"-d", "status"}, {""}, {"version "}, {"-h"}}) {
      const RunResult run = runTool(args, options);
      EXPECT_EQ(run.out, shortUsage) << (args.empty() ? "no command" : args[0]);
      EXPECT_EQ(run.err, "");
      EXPECT_EQ(run.exitStatus, 1);
    }
    const RunResult full = runTool({"-d"}, options);
    EXPECT_EQ(full.out, expectedUsage("qhvctl", true));
    EXPECT_EQ(full.err, "");
    EXPECT_EQ(full.exitStatus, 1);
  }
  // Written out whole, the first line and its trailing blanks.
  EXPECT_TRUE(shortUsage.starts_with("usage: qhvctl version" + std::string(29, ' ') + " Print version." +
                                     std::string(41, ' ') + " \n"));
  // The program's name is the base name it was started under.
  RunOptions options;
  options.argv0 = "/opt/somewhere/qhvctl-dev";
  EXPECT_EQ(runTool({"-d"}, options).out, expectedUsage("qhvctl-dev", true));
}

TEST_F(CommandLine, VersionRootRefusalsAndAFailedWrite) {
  for (const RunOptions& options : {RunOptions{}, asUser()}) {
    const RunResult run = runTool({"version", "extra", "-d"}, options);
    EXPECT_EQ(run.out, "5.2.2 (219)\n");
    EXPECT_EQ(run.err, "");
    EXPECT_EQ(run.exitStatus, 0);
  }
  for (const std::vector<std::string>& args : std::vector<std::vector<std::string>>{
           {"_update"}, {"_uninstall"}, {"uninstall"}, {"log"}, {"enable"}, {"disable"},
           {"set-settings", "/tmp/settings.plist"}, {"set-interval", "1h"}, {"set-when-inactive"}}) {
    const RunResult run = runTool(args, asUser());
    EXPECT_EQ(run.out, kRefusal) << args[0];
    EXPECT_EQ(run.err, "") << args[0];
    EXPECT_EQ(run.exitStatus, 1) << args[0];
  }
  const RunResult full = runProgram("/bin/sh", {"-c", "exec \"$0\" version > /dev/full", toolPath()});
  EXPECT_EQ(full.exitStatus, 1);
  EXPECT_EQ(full.err, "qhvctl: write error: No space left on device\n");
}

TEST_F(CommandLine, LogFileLocations) {
  const std::string userLog = std::string(Sandbox::kUserHome) + "/Library/Logs/Quillhaven/ctl.log";
  RunOptions rootWithAUsersHome;
  rootWithAUsersHome.environment = {std::string("HOME=") + Sandbox::kUserHome};
  // Each run, the log file it must leave (owner, mode 0644), and where nothing may appear.
  const std::tuple<RunOptions, std::string, uid_t, std::string> runs[] = {
      {asUser(), userLog, Sandbox::kUserId, "/Library/Logs"},
      {rootWithAUsersHome, "/Library/Logs/Quillhaven/ctl.log", 0, userLog},  // root wherever its home is
  };
  for (const auto& [options, log, owner, elsewhere] : runs) {
    ASSERT_EQ(runTool({"version"}, options).exitStatus, 0);
    struct stat st {};
    ASSERT_EQ(::stat(log.c_str(), &st), 0) << log;
    EXPECT_EQ(st.st_uid, owner);
    EXPECT_EQ(st.st_mode & 07777, 0644u);
    EXPECT_NE(::access(elsewhere.c_str(), F_OK), 0) << elsewhere;
    ::unlink(log.c_str());
  }
  // A home where nothing can be written does not stop the tool.
  for (const char* home : {"/nonexistent", "/", ""}) {
    RunOptions options = asUser();
    options.environment = {std::string("HOME=") + home};
    const RunResult run = runTool({"version"}, options);
    EXPECT_EQ(run.out + run.err, "5.2.2 (219)\n") << home;
    EXPECT_EQ(run.exitStatus, 0) << home;
  }
}

}  // namespace
}  // namespace testing_support
