// status, info, settings, enabled, enable, disable and set-settings through the
// built tool and the development scheduler.
#include <sys/stat.h>

#include "errors/error_domains.h"
#include "platform/property_list.h"
#include "scheduler_fixture.h"

namespace testing_support {
namespace {

using platform::Dictionary;
using platform::Value;

constexpr const char* kRefusal = "This command requires root privileges.\n";

Value xml(const std::string& text) {
  return platform::propertyListWithData(std::span(reinterpret_cast<const std::uint8_t*>(text.data()), text.size()),
                                        nullptr, nullptr);
}

// The JSON text read back by an independent parser, as sorted "key=value" lines.
std::string jsonReadBack(const std::string& text) {
  RunOptions options;
  options.input = text;
  return runProgram("/usr/bin/python3",
                    {"-c", "import json,sys\nfor k,v in sorted(json.load(sys.stdin).items()): print(f'{k}={v}')"},
                    options)
      .out;
}

void writeFile(const std::string& path, const std::string& contents) {
  FILE* file = std::fopen(path.c_str(), "w");
  ASSERT_NE(file, nullptr) << path;
  std::fwrite(contents.data(), 1, contents.size(), file);
  std::fclose(file);
}

class SettingsCommands : public SchedulerTest {};

TEST_F(SettingsCommands, StatusInEveryFormatForEveryUser) {
  const std::string plain = "{\n    Backups = enabled;\n    MasterSwitch = enabled;\n    Snapshots = enabled;\n}\n";
  for (const RunOptions& options : {RunOptions{}, asUser()}) {
    EXPECT_EQ(runTool({"status"}, options).out, plain);
    EXPECT_EQ(runTool({"status", "-q", "-x"}, options).out, plain);  // only the first argument counts
  }
  const RunResult json = root({"status", "-j"});
  EXPECT_EQ(json.exitStatus, 0);
  EXPECT_FALSE(json.out.ends_with("\n"));
  EXPECT_EQ(jsonReadBack(json.out), "Backups=enabled\nMasterSwitch=enabled\nSnapshots=enabled\n");
  const Value expected = Value::dictionary({{"Backups", Value::string("enabled")},
                                            {"MasterSwitch", Value::string("enabled")},
                                            {"Snapshots", Value::string("enabled")}});
  EXPECT_EQ(xml(root({"status", "-x", "-j"}).out), expected);
  // Every read is message 1 alone, without payload or authorization.
  for (const RecordedRequest& request : scheduler().requests()) {
    EXPECT_EQ(request.message, QHVHelperMessageGetSettings);
    EXPECT_FALSE(request.payload);
    EXPECT_FALSE(request.authPresent);
  }
}

TEST_F(SettingsCommands, StatusReadsTheSwitchesAsTheyAre) {
  Dictionary settings = scheduler().settings();
  settings.erase("Disabled");
  settings.set("Backups", Value::boolean(false));
  scheduler().setSettings(settings);
  EXPECT_EQ(root({"status"}).out, "{\n    Backups = disabled;\n    MasterSwitch = enabled;\n    Snapshots = enabled;\n}\n");
  EXPECT_EQ(root({"enabled"}).out, "yes\n");
  scheduler().setSetting("Disabled", Value::integer(1));
  EXPECT_EQ(root({"status"}).out, "{\n    Backups = disabled;\n    MasterSwitch = disabled;\n    Snapshots = enabled;\n}\n");
  EXPECT_EQ(root({"enabled"}).out, "no\n");
}

TEST_F(SettingsCommands, ReadsWithoutAServiceFailAsTheTableSays) {
  ASSERT_TRUE(scheduler().stop());
  const std::string unavailable =
      "Could not send message (1), the service is not available (com.larkspan.quillhaven.scheduler).\n";
  struct Case {
    std::vector<std::string> args;
    int exitStatus;
  };
  for (const Case& c : std::vector<Case>{{{"status"}, 0}, {{"settings"}, 0}, {{"enabled"}, 1}, {{"info"}, 1}}) {
    const RunResult run = user(c.args);
    // Losing the service is not an error-level failure: standard output.
    EXPECT_EQ(run.out, c.args[0] == "info" ? "Could not send message (5), the service is not available "
                                             "(com.larkspan.quillhaven.scheduler).\n"
                                           : unavailable)
        << c.args[0];
    EXPECT_EQ(run.err, "");
    EXPECT_EQ(run.exitStatus, c.exitStatus) << c.args[0];
  }
  const std::string log =
      readFile(std::string(Sandbox::kUserHome) + "/Library/Logs/Quillhaven/ctl.log").value_or("");
  EXPECT_NE(log.find("] Connection became invalid with server.\n"), std::string::npos) << log;
  EXPECT_NE(log.find("] " + unavailable), std::string::npos) << log;
}

TEST_F(SettingsCommands, InfoPrintsEachActivity) {
  // 2021-01-05 09:07:03 UTC and later.
  const auto date = [](double offset) { return Value::date(platform::Date::fromUnixTime(1609837623 + offset)); };
  scheduler().setActivity({{"backups", Value::dictionary({{"LastRun", date(0)}, {"LastTry", date(60)}})},
                           {"snapshots", Value::dictionary({{"LastRun", date(0)}})}});
  const RunResult run = user({"info"});
  EXPECT_EQ(run.exitStatus, 0);
  EXPECT_TRUE(run.out.starts_with("> Backups\nLast run: 01/05/21, 09:07\nLast try: 01/05/21, 09:08\n")) << run.out;
  EXPECT_NE(run.out.find("\n\n> Snapshots\nLast run: 01/05/21, 09:07\n"), std::string::npos) << run.out;
  EXPECT_NE(run.out.find("\n\n> Updater\n"), std::string::npos) << run.out;
  EXPECT_EQ(messages(), std::vector<std::int64_t>{QHVHelperMessageGetInfo});
}

TEST_F(SettingsCommands, SettingsPrintWholeInEveryFormat) {
  const Dictionary settings = scheduler().settings();
  EXPECT_EQ(user({"settings"}).out, Value::dictionary(settings).description() + "\n");
  EXPECT_EQ(xml(user({"settings", "-x"}).out), Value::dictionary(settings));
  EXPECT_EQ(user({"settings", "-j"}).exitStatus, 0);
}

TEST_F(SettingsCommands, EnabledReadsThenChangesTheWholeSettings) {
  // "maybe" is false by the yes/no rule: the master switch goes off, as an integer.
  const Dictionary before = scheduler().settings();
  ASSERT_EQ(root({"enabled", "maybe"}).exitStatus, 0);
  EXPECT_EQ(messages(), (std::vector<std::int64_t>{QHVHelperMessageGetSettings, QHVHelperMessageSetSettings}));
  Dictionary expected = before;
  expected.set("Disabled", Value::integer(1));
  EXPECT_EQ(scheduler().requests().back().payload, Value::dictionary(expected));
  EXPECT_EQ(scheduler().requests().back().authValid, true);

  scheduler().clearRequests();
  ASSERT_EQ(root({"enabled", "Yes"}).exitStatus, 0);
  EXPECT_EQ(scheduler().requests().back().payload.asDictionary()->get("Disabled"), Value::integer(0));
}

TEST_F(SettingsCommands, AnOrdinaryUserIsStoppedAfterTheRead) {
  const RunResult run = user({"enabled", "no"});
  EXPECT_EQ(run.out, "");
  EXPECT_EQ(run.err, kRefusal);
  EXPECT_EQ(run.exitStatus, 1);
  EXPECT_EQ(messages(), std::vector<std::int64_t>{QHVHelperMessageGetSettings});
}

TEST_F(SettingsCommands, EnableAndDisableFeatures) {
  struct Case {
    std::vector<std::string> args;
    std::vector<std::int64_t> messages;
  };
  const std::vector<Case> cases = {
      {{"enable"}, {QHVHelperMessageEnable}},
      {{"disable"}, {QHVHelperMessageDisable}},
      {{"enable", "updates"}, {QHVHelperMessageSetUpdatesEnabled}},
      {{"enable", "backups", "updates", "backups"},
       {QHVHelperMessageGetSettings, QHVHelperMessageSetSettings, QHVHelperMessageSetUpdatesEnabled}},
      {{"disable", "snapshots"}, {QHVHelperMessageGetSettings, QHVHelperMessageSetSettings}},
  };
  for (const Case& c : cases) {
    scheduler().clearRequests();
    const RunResult run = root(c.args);
    EXPECT_EQ(run.exitStatus, 0) << c.args.size();
    EXPECT_EQ(run.out, "");
    EXPECT_EQ(messages(), c.messages) << c.args[0] << " " << c.args.size();
  }
  // disable snapshots sent the whole settings back with only that switch changed.
  EXPECT_EQ(scheduler().settings().get("Snapshots"), Value::boolean(false));
  EXPECT_EQ(scheduler().settings().get("Backups"), Value::boolean(true));
}

TEST_F(SettingsCommands, AnUnknownFeatureStopsEverything) {
  const RunResult run = root({"enable", "backups", "frobs"});
  EXPECT_EQ(run.out, "Unknown option: 'frobs'.\n");
  EXPECT_EQ(run.exitStatus, 1);
  EXPECT_TRUE(messages().empty());
}

TEST_F(SettingsCommands, ARefusedSettingsChangeStopsBeforeTheUpdatesSwitch) {
  const platform::ErrorRef busy = platform::Error::make(QHVErrorDomain, QHVErrorPeersConnected);
  scheduler().setFault(QHVHelperMessageSetSettings, SchedulerFault::replyError(busy));
  const RunResult run = root({"enable", "backups", "updates"});
  EXPECT_EQ(run.out, "Peers are connected.\n");  // a default-level failure: standard output
  EXPECT_EQ(run.exitStatus, 1);
  EXPECT_EQ(messages(), (std::vector<std::int64_t>{QHVHelperMessageGetSettings, QHVHelperMessageSetSettings}));
}

TEST_F(SettingsCommands, ImportSendsTheFileAsItIs) {
  const Dictionary settings = scheduler().settings();
  const std::string file = std::string(Sandbox::kUserHome) + "/saved.plist";
  const auto data = platform::dataWithPropertyList(Value::dictionary(settings), platform::PropertyListFormat::Binary, nullptr);
  writeFile(file, std::string(data->begin(), data->end()));
  // The path is standardized: the tilde, "." and "..", repeated separators.
  RunOptions options;
  options.environment = {std::string("HOME=") + Sandbox::kUserHome};
  const RunResult run = runTool({"settings", "import", "~/./x/..//saved.plist"}, options);
  EXPECT_EQ(run.out, "");
  EXPECT_EQ(run.exitStatus, 0);
  EXPECT_EQ(onlyPayload(), Value::dictionary(settings));
  EXPECT_EQ(messages(), std::vector<std::int64_t>{QHVHelperMessageSetSettings});

  scheduler().clearRequests();
  EXPECT_EQ(root({"set-settings", file}).exitStatus, 0);
  EXPECT_EQ(onlyPayload(), Value::dictionary(settings));
}

TEST_F(SettingsCommands, ImportFailuresBeforeAnythingIsSent) {
  writeFile("/root/garbage.plist", "{ unterminated");
  ASSERT_EQ(::mkdir("/root/folder.plist", 0755), 0);
  struct Case {
    std::vector<std::string> args;
    std::string out;
  };
  const std::vector<Case> cases = {
      {{"settings", "import"}, "Path must be specified to settings file.\n"},
      {{"set-settings"}, "Path must be specified to settings file.\n"},
      {{"settings", "import", "/root//missing.plist"}, "File does not exist at path: /root/missing.plist\n"},
      {{"settings", "import", "/root/folder.plist"},
       "Failed to read file: The file \u201cfolder.plist\u201d couldn\u2019t be read: Is a directory.\n"},
  };
  for (const Case& c : cases) {
    const RunResult run = root(c.args);
    EXPECT_EQ(run.out, c.out);
    EXPECT_EQ(run.exitStatus, 1);
  }
  const RunResult garbage = root({"settings", "import", "/root/garbage.plist"});
  EXPECT_TRUE(garbage.out.starts_with("Failed to deserialize file: ")) << garbage.out;
  EXPECT_EQ(garbage.exitStatus, 1);
  EXPECT_TRUE(messages().empty());
}

TEST_F(SettingsCommands, TheServiceValidatesWhatIsImported) {
  // An array is sent unchanged; the scheduler refuses it, at the error level.
  writeFile("/root/array.plist", "(a, b)");
  RunResult run = root({"settings", "import", "/root/array.plist"});
  EXPECT_EQ(onlyPayload(), Value::array({Value::string("a"), Value::string("b")}));
  EXPECT_TRUE(run.err.starts_with("Wrong type for key: ")) << run.err;
  EXPECT_EQ(run.exitStatus, 1);

  Dictionary settings = scheduler().settings();
  settings.set("Bogus", Value::boolean(true));
  const auto data = platform::dataWithPropertyList(Value::dictionary(settings), platform::PropertyListFormat::XML, nullptr);
  writeFile("/root/unknown.plist", std::string(data->begin(), data->end()));
  run = root({"settings", "import", "/root/unknown.plist"});
  EXPECT_EQ(run.err, "Unknown key: 'Bogus'.\n");
  EXPECT_EQ(run.exitStatus, 1);
}

TEST_F(SettingsCommands, AnOrdinaryUsersImportIsCheckedThenRefused) {
  const std::string file = std::string(Sandbox::kUserHome) + "/mine.plist";
  writeFile(file, "{ Backups = 1; }");
  const RunResult run = user({"settings", "import", file});
  EXPECT_EQ(run.out, "");
  EXPECT_EQ(run.err, kRefusal);
  EXPECT_EQ(run.exitStatus, 1);
  EXPECT_TRUE(messages().empty());
  // A file that does not parse is reported first.
  writeFile(file, "{ unterminated");
  EXPECT_TRUE(user({"settings", "import", file}).out.starts_with("Failed to deserialize file: "));
}

}  // namespace
}  // namespace testing_support
