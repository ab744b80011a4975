// The everyday commands in this process against the development scheduler:
// status, info, settings and its import, the master switch, enable and
// disable, backups and snapshots, and the root stop.
#include <limits.h>
#include <sys/stat.h>
#include <unistd.h>

#include <fstream>

#include "command_runs.h"
#include "errors/error_domains.h"
#include "platform/plist/property_list.h"

namespace testing_support {
namespace {

using platform::Value;

std::string statusText(const char* master, const char* backups, const char* snapshots) {
  return std::string("{\n    Backups = ") + backups + ";\n    MasterSwitch = " + master + ";\n    Snapshots = " +
         snapshots + ";\n}\n";
}

// `text` read by an independent reader ("json" or "plist"), as sorted "key=value" lines.
std::string readBack(const char* format, const std::string& text) {
  RunOptions options;
  options.input = text;
  const char* script = "import json,plistlib,sys\n"
                       "d = json.load(sys.stdin) if sys.argv[1] == 'json' else plistlib.load(sys.stdin.buffer)\n"
                       "for k, v in sorted(d.items()): print(f'{k}={v}')";
  return runProgram("/usr/bin/python3", {"-c", script, format}, options).out;
}

class SchedulerCommands : public CommandRuns {
 protected:
  // The scheduler's default settings with `key` set to `value`.
  Value defaultsWith(const char* key, Value value) const {
    platform::Dictionary settings = defaults_;
    settings.set(key, std::move(value));
    return Value::dictionary(std::move(settings));
  }
  const platform::Dictionary defaults_ = scheduler_.settings();
};

TEST_F(SchedulerCommands, StatusSettingsInfoAndTheMasterSwitch) {
  // Read back by independent readers; -x before -j asks for XML.
  const std::string status = "Backups=enabled\nMasterSwitch=enabled\nSnapshots=enabled\n";
  const RunResult json = runCommandInProcess({"status", "-j"});
  EXPECT_FALSE(json.out.ends_with("\n"));
  EXPECT_EQ(readBack("json", json.out), status);
  EXPECT_EQ(readBack("plist", runCommandInProcess({"status", "-x", "-j"}).out), status);

  const std::string deferred = "\nDeferred: Scheduler is disabled.\n";
  expectRuns({
      {{"status", "-q", "-x"}, kUser, statusText("enabled", "enabled", "enabled"), "", 0, {1}},  // the first decides
      {{"settings"}, kUser, Value::dictionary(defaults_).description() + "\n", "", 0, {1}},
      {{"enabled"}, kUser, "yes\n", "", 0, {1}},
      {{"enabled", "no"}, kUser, "", kRefusal, 1, {1}},  // stopped at the first message that needs rights
      // "maybe" is false: the whole settings go back, the switch off as an integer.
      {{"enabled", "maybe"}, kRoot, "", "", 0, {1, 2}, defaultsWith("Disabled", Value::integer(1))},
      {{"status"}, kRoot, statusText("disabled", "enabled", "enabled"), "", 0, {1}},
      {{"enabled"}, kRoot, "no\n", "", 0, {1}},
      {{"info"}, kUser, "> Backups\n" + deferred + "\n> Snapshots\n" + deferred + "\n> Updater\n" + deferred, "", 0, {5}},
      {{"enabled", "Yes"}, kRoot, "", "", 0, {1, 2}, defaultsWith("Disabled", Value::integer(0))},
      {{"disable", "snapshots"}, kRoot, "", "", 0, {1, 2}, defaultsWith("Snapshots", Value::boolean(false))},
      {{"status"}, kUser, statusText("enabled", "enabled", "disabled"), "", 0, {1}},
      {{"enable", "backups", "updates", "backups"}, kRoot, "", "", 0, {1, 2, 21}, enabledPayload(true)},
      {{"disable", "updates"}, kRoot, "", "", 0, {21}, enabledPayload(false)},
      {{"disable"}, kRoot, "", "", 0, {4}},
      {{"enable"}, kRoot, "", "", 0, {3}},
      {{"enable", "backups", "frobs"}, kRoot, "Unknown option: 'frobs'.\n", "", 1, {}},  // nothing sent
  });
}

TEST_F(SchedulerCommands, ImportSendsTheFileAsItIsOnceRead) {
  const auto data = platform::dataWithPropertyList(Value::dictionary(defaults_), platform::PropertyListFormat::Binary, nullptr);
  home_.write("saved.plist", std::string(data->begin(), data->end()));
  home_.write("unknown.plist", "{ Bogus = 1; }");
  home_.write("garbage.plist", "{ unterminated");
  ASSERT_EQ(::mkdir(home_.file("folder.plist").c_str(), 0755), 0);
  ASSERT_EQ(::symlink("loop.plist", home_.file("loop.plist").c_str()), 0);
  const char* const noPath = "Path must be specified to settings file.\n";
  const std::string home = home_.path();
  const std::string tooLong = home + "/" + std::string(NAME_MAX + 1, 'x');
  expectRuns({
      // The path is standardized: the tilde, "." and "..", repeated separators.
      {{"settings", "import", "~/./x/..//saved.plist"}, kRoot, "", "", 0, {2}, Value::dictionary(defaults_)},
      {{"set-settings", home + "/saved.plist"}, kRoot, "", "", 0, {2}, Value::dictionary(defaults_)},
      {{"settings", "import"}, kRoot, noPath, "", 1, {}},
      {{"settings", "import", home + "//missing.plist"}, kRoot, "File does not exist at path: " + home + "/missing.plist\n", "", 1, {}},
      // A path that reaches nothing, whatever the reason, is no file either.
      {{"settings", "import", home + "/loop.plist"}, kRoot, "File does not exist at path: " + home + "/loop.plist\n", "", 1, {}},
      {{"settings", "import", tooLong}, kRoot, "File does not exist at path: " + tooLong + "\n", "", 1, {}},
      {{"settings", "import", home + "/folder.plist"}, kRoot,
       "Failed to read file: The file \u201cfolder.plist\u201d couldn\u2019t be read: Is a directory.\n", "", 1, {}},
      // Sent unchecked: the scheduler refuses, at the error level.
      {{"settings", "import", home + "/unknown.plist"}, kRoot, "", "Unknown key: 'Bogus'.\n", 1, {2},
       Value::dictionary({{"Bogus", Value::string("1")}})},
  });
  EXPECT_TRUE(runCommandInProcess({"settings", "import", home + "/garbage.plist"}).out.starts_with("Failed to deserialize file: "));
}

TEST_F(SchedulerCommands, RefusalsAndAMissingService) {
  scheduler_.setFault(2, replyErrorFault(platform::Error::make(QHVErrorDomain, QHVErrorPeersConnected)));
  // A default-level refusal, on standard output; the updates switch is not reached.
  expectRuns({{{"enable", "backups", "updates"}, kRoot, "Peers are connected.\n", "", 1, {1, 2}, Value::dictionary(defaults_)}});

  scheduler_.stop();
  const auto unavailable = [](int message) {
    return "Could not send message (" + std::to_string(message) +
           "), the service is not available (com.larkspan.quillhaven.scheduler).\n";
  };
  // Losing the service is no error-level failure either; status and settings still succeed.
  expectRuns({
      {{"status"}, kUser, unavailable(1), "", 0, {}},
      {{"settings"}, kUser, unavailable(1), "", 0, {}},
      {{"info"}, kUser, unavailable(5), "", 1, {}},
  });
}

TEST_F(SchedulerCommands, BackupsAndSnapshots) {
  const std::string usage = runCommandInProcess({}).out;
  const auto interval = [](const char* unit, std::uint64_t count) {
    return Value::dictionary({{unit, Value::unsignedInteger(count)}});
  };
  const char* const tooShort = "Interval value must be equal or greater than one.\n";
  expectRuns({
      // Reads work for every user; values are read with the yes/no truth test.
      {{"backups", "enabled", "no"}, kRoot, "", "", 0, {11}, enabledPayload(false)},
      {{"backups", "enabled"}, kUser, "no\n", "", 0, {7}},
      {{"snapshots", "enabled", " +007"}, kRoot, "", "", 0, {17}, enabledPayload(true)},
      {{"snapshots", "enabled"}, kUser, "yes\n", "", 0, {16}},
      // Modes are matched exactly, and checked before anything is sent, for every user.
      {{"backups", "mode"}, kUser, "Interval\n", "", 0, {8}},
      {{"backups", "mode", "CalendarIntervals"}, kRoot, "", "", 0, {12},
       Value::dictionary({{"Mode", Value::string("CalendarIntervals")}})},
      {{"backups", "mode", "interval"}, kUser,
       "Mode must be either \"WhenInactive\", \"Interval\" or \"CalendarIntervals\".\n", "", 1, {}},
      // An interval: a count, then a unit by its first letter; minutes without one.
      {{"backups", "interval"}, kUser, "{\n    Hours = 1;\n}\n", "", 0, {9}},
      {{"backups", "interval", "90"}, kRoot, "", "", 0, {13}, interval("Minutes", 90)},
      {{"backups", "interval", " 5hours"}, kRoot, "", "", 0, {13}, interval("Hours", 5)},
      {{"backups", "interval", "1d"}, kRoot, "", "", 0, {13}, interval("Days", 1)},
      {{"set-interval", "3w"}, kRoot, "", "", 0, {13}, interval("Weeks", 3)},
      {{"backups", "interval", "0h"}, kUser, tooShort, "", 1, {}},
      // when-inactive takes only yes.
      {{"backups", "when-inactive"}, kUser, "no\n", "", 0, {10}},
      {{"backups", "when-inactive", "true"}, kRoot, "", "", 0, {14}},
      {{"set-when-inactive", "anything"}, kRoot, "", "", 0, {14}},
      {{"backups", "when-inactive", "no"}, kUser, "Only accepted value is 'yes'\n", "", 1, {}},
      // Kickstart needs no rights; a backup already running is a default-level failure.
      {{"backups", "kickstart", "now"}, kUser, "", "", 0, {15}},
      {{"backups", "kickstart"}, kUser, "A backup operation is currently running.\n", "", 1, {15}},
      {{"backups"}, kRoot, usage, "", 1, {}},
      {{"snapshots", "mode"}, kRoot, usage, "", 1, {}},
  });

  // Replies without the value read as no, and as nothing.
  scheduler_.setFault(7, replyPayloadFault(Value::dictionary({})));
  scheduler_.setFault(8, replyPayloadFault(Value::dictionary({})));
  expectRuns({{{"backups", "enabled"}, kRoot, "no\n", "", 0, {7}}, {{"backups", "mode"}, kRoot, "\n", "", 0, {8}}});
}

}  // namespace
}  // namespace testing_support
