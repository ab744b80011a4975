// The sentence of every known error, byte for byte, with every variant of its
// user info; and the platform's own description for everything else.
#include <gtest/gtest.h>

#include <climits>
#include <string>
#include <vector>

#include "errors/lks_error.h"

namespace {

using platform::Dictionary;
using platform::Error;
using platform::Value;

struct DescriptionCase {
  const char* domain;
  std::int64_t code;
  Dictionary userInfo;
  const char* expected;
};

Value strings(std::initializer_list<const char*> texts) {
  platform::Array array;
  for (const char* text : texts) array.push_back(Value::string(text));
  return Value::array(std::move(array));
}

constexpr const char* kService = "com.larkspan.quillhaven.scheduler";
constexpr const char* kModify1 = "com.larkspan.quillhaven.settings.modify-1";
constexpr const char* kUninstall = "com.larkspan.quillhaven.uninstall";

void expectDescriptions(const std::vector<DescriptionCase>& cases) {
  for (const DescriptionCase& c : cases) {
    const platform::ErrorRef error = Error::make(c.domain, c.code, c.userInfo);
    EXPECT_EQ(LKSError::_localizedDescriptionForError(error), c.expected) << c.domain << " " << c.code;
  }
}

TEST(ErrorDescriptions, Updater) {
  const Value info = Value::dictionary({{"version", Value::string("5.3")}, {"build", Value::integer(230)}});
  expectDescriptions({
      {LKSUpdaterErrorDomain, 0, {}, "You are already running the latest version."},
      {LKSUpdaterErrorDomain, 1, {}, "Could not fetch update information."},
      {LKSUpdaterErrorDomain, 2, {}, "Could not read update data."},
      {LKSUpdaterErrorDomain, 3, {{"info", info}},
       "Invalid update information: {\n    build = 230;\n    version = \"5.3\";\n}."},
      {LKSUpdaterErrorDomain, 3, {{"info", Value::string("no version")}}, "Invalid update information: no version."},
      {LKSUpdaterErrorDomain, 3, {}, "Invalid update information: (null)."},
      {LKSUpdaterErrorDomain, 4, {}, "Could not download update."},
      {LKSUpdaterErrorDomain, 5, {}, "Could not move update package."},
      {LKSUpdaterErrorDomain, 6, {}, "Could not validate update."},
      {LKSUpdaterErrorDomain, 7, {}, "Could not install update."},
      {LKSUpdaterErrorDomain, 8, {}, "Update cannot be performed now."},
      {LKSUpdaterErrorDomain, 9, {}, "Update has been deferred due to phased update."},
      {LKSUpdaterErrorDomain, 10, {},
       "The update server could not be trusted, you may be victim of SSL/TLS decryption."},
      {LKSUpdaterErrorDomain, 11, {},
       "You have made too many requests to the update server. Please try again later."},
  });
}

TEST(ErrorDescriptions, UpdaterStatusCodeAddsTheReasonPhraseAndCode) {
  const auto withStatus = [](std::int64_t status) { return Dictionary{{"status-code", Value::integer(status)}}; };
  expectDescriptions({
      {LKSUpdaterErrorDomain, 1, withStatus(404), "Could not fetch update information. not found (404)."},
      {LKSUpdaterErrorDomain, 1, withStatus(307), "Could not fetch update information. temporarily redirected (307)."},
      {LKSUpdaterErrorDomain, 1, withStatus(299), "Could not fetch update information. success (299)."},
      {LKSUpdaterErrorDomain, 1, withStatus(600), "Could not fetch update information. server error (600)."},
      {LKSUpdaterErrorDomain, 1, withStatus(-1), "Could not fetch update information. server error (-1)."},
      {LKSUpdaterErrorDomain, 4, withStatus(500), "Could not download update. internal server error (500)."},
      {LKSUpdaterErrorDomain, 4, withStatus(200), "Could not download update. no error (200)."},
      // The rule belongs to codes 1 and 4 only.
      {LKSUpdaterErrorDomain, 2, withStatus(404), "Could not read update data."},
  });
}

TEST(ErrorDescriptions, InstallerPackage) {
  expectDescriptions({
      {LKSInstallerPackageErrorDomain, 0, {{"path", Value::string("/tmp/Quillhaven 5.3.pkg")}},
       "Could not read installer package at path '/tmp/Quillhaven 5.3.pkg'."},
      {LKSInstallerPackageErrorDomain, 0, {}, "Could not read installer package at path '(null)'."},
      {LKSInstallerPackageErrorDomain, 1, {}, "Installer package is not signed."},
      {LKSInstallerPackageErrorDomain, 2, {}, "Installer package signature is invalid."},
  });
}

TEST(ErrorDescriptions, SpawnerUsesTheSystemsErrorAndSignalTexts) {
  const auto spawn = [](const char* tool, int number) {
    return Dictionary{{"tool", Value::string(tool)}, {"errno", Value::integer(number)}};
  };
  const auto signal = [](int number) {
    return Dictionary{{"tool", Value::string("/usr/bin/log")}, {"signal", Value::integer(number)}};
  };
  expectDescriptions({
      {LKSSpawnerErrorDomain, 0, spawn("/usr/sbin/installer", 2),
       "Could not spawn '/usr/sbin/installer'. No such file or directory (2)."},
      {LKSSpawnerErrorDomain, 0, spawn("/bin/sh", 13), "Could not spawn '/bin/sh'. Permission denied (13)."},
      {LKSSpawnerErrorDomain, 0, spawn("/bin/sh", 9999), "Could not spawn '/bin/sh'. Unknown error 9999 (9999)."},
      {LKSSpawnerErrorDomain, 0, {}, "Could not spawn '(null)'. Success (0)."},  // a missing number is 0
      {LKSSpawnerErrorDomain, 1, {{"tool", Value::string("/bin/sh")}, {"exit-status", Value::integer(2)}},
       "/bin/sh exited with status 2."},
      {LKSSpawnerErrorDomain, 1, {{"tool", Value::string("/bin/sh")}}, "/bin/sh exited with status (null)."},
      {LKSSpawnerErrorDomain, 2, signal(15), "/usr/bin/log received signal 15 (Terminated)."},
      {LKSSpawnerErrorDomain, 2, signal(9), "/usr/bin/log received signal 9 (Killed)."},
      {LKSSpawnerErrorDomain, 2, signal(99), "/usr/bin/log received signal 99 (Unknown signal 99)."},
  });
}

TEST(ErrorDescriptions, MessagerReadsTheMessageUnsigned) {
  const auto message = [](std::int64_t number) { return Dictionary{{"message", Value::integer(number)}}; };
  Dictionary serialize = message(11);
  serialize.set("payload", Value::string("{\n    Enabled = 1;\n}"));
  Dictionary reply = message(12);
  reply.set("reply", Value::dictionary({{"Enabled", Value::boolean(true)}}));
  expectDescriptions({
      {LKSMessagerErrorDomain, 0, message(3), "Could not authorize message (3)."},
      {LKSMessagerErrorDomain, 0, {}, "Could not authorize message (0)."},
      {LKSMessagerErrorDomain, 0, message(-1), "Could not authorize message (18446744073709551615)."},
      {LKSMessagerErrorDomain, 1, message(3), "Authorization data is missing for message (3)."},
      {LKSMessagerErrorDomain, 2, serialize, "Could not serialize message (11), payload: {\n    Enabled = 1;\n}."},
      {LKSMessagerErrorDomain, 2, {}, "Could not serialize message (0), payload: (null)."},
      {LKSMessagerErrorDomain, 3, message(4), "Could not deserialize message (4)."},
      {LKSMessagerErrorDomain, 4, reply, "Could not serialize reply for message (12), reply: {\n    Enabled = 1;\n}."},
      {LKSMessagerErrorDomain, 5, message(5), "Could not deserialize reply for message (5)."},
      {LKSMessagerErrorDomain, 6, message(28), "Could not unarchive reply error for message (28)."},
  });
}

TEST(ErrorDescriptions, MessagerServiceSentencesDependOnTheMessage) {
  const Dictionary withMessage{{"message", Value::integer(5)}, {"service", Value::string(kService)}};
  const Dictionary withoutMessage{{"service", Value::string(kService)}};
  expectDescriptions({
      {LKSMessagerErrorDomain, 7, withMessage,
       "Could not send message (5), the service is not available (com.larkspan.quillhaven.scheduler)."},
      {LKSMessagerErrorDomain, 7, withoutMessage, "The service is not available (com.larkspan.quillhaven.scheduler)."},
      {LKSMessagerErrorDomain, 7, {}, "The service is not available ((null))."},
      {LKSMessagerErrorDomain, 8, withMessage,
       "Could not send message (5), the service disappeared (crash?) (com.larkspan.quillhaven.scheduler)."},
      {LKSMessagerErrorDomain, 8, withoutMessage, "The service disappeared (com.larkspan.quillhaven.scheduler)."},
      // Presence decides, whatever the value: a message that is not a number reads as 0.
      {LKSMessagerErrorDomain, 8, {{"message", Value::string("x")}},
       "Could not send message (0), the service disappeared (crash?) ((null))."},
  });
}

TEST(ErrorDescriptions, Authorization) {
  const Dictionary failures{{"rights", strings({"com.larkspan.quillhaven.settings.modify-1 (-60005)",
                                                "com.larkspan.quillhaven.settings.modify-2 (-60006)"})}};
  expectDescriptions({
      {LKSAuthorizationErrorDomain, 0, {{"rights", strings({kModify1})}}, "User canceled authentication."},
      {LKSAuthorizationErrorDomain, 1, {{"status", Value::integer(-60008)}}, "Could not create authorization: -60008."},
      {LKSAuthorizationErrorDomain, 2, {{"status", Value::integer(-60002)}}, "Could not make external form: -60002."},
      {LKSAuthorizationErrorDomain, 3, {{"status", Value::integer(-60002)}},
       "Could not create from external form: -60002."},
      {LKSAuthorizationErrorDomain, 1, {}, "Could not create authorization: (null)."},
      {LKSAuthorizationErrorDomain, 4, {{"status", Value::integer(-60005)}, {"rights", strings({kModify1, kUninstall})}},
       "Could not set rights (-60005): com.larkspan.quillhaven.settings.modify-1, com.larkspan.quillhaven.uninstall."},
      {LKSAuthorizationErrorDomain, 4, failures,
       "Could not set rights: com.larkspan.quillhaven.settings.modify-1 (-60005), "
       "com.larkspan.quillhaven.settings.modify-2 (-60006)."},
      {LKSAuthorizationErrorDomain, 4, {{"rights", strings({kUninstall})}},
       "Could not set rights: com.larkspan.quillhaven.uninstall."},
      {LKSAuthorizationErrorDomain, 4, {{"rights", strings({})}}, "Could not set rights: ."},
      {LKSAuthorizationErrorDomain, 4, {}, "Could not set rights: (null)."},
      // Codes 5 and 6 print the array itself, in the platform's multi-line form.
      {LKSAuthorizationErrorDomain, 5, failures,
       "Could not validate rights: (\n    \"com.larkspan.quillhaven.settings.modify-1 (-60005)\",\n"
       "    \"com.larkspan.quillhaven.settings.modify-2 (-60006)\"\n)."},
      {LKSAuthorizationErrorDomain, 6, {{"rights", strings({kModify1})}},
       "Could not authorize rights: (\n    \"com.larkspan.quillhaven.settings.modify-1\"\n)."},
      {LKSAuthorizationErrorDomain, 6, {{"rights", strings({})}}, "Could not authorize rights: (\n)."},
  });
}

TEST(ErrorDescriptions, Quillhaven) {
  expectDescriptions({
      {QHVErrorDomain, 0, {}, "A backup operation is currently running."},
      {QHVErrorDomain, 1, {}, "An update operation is currently running."},
      {QHVErrorDomain, 2, {}, "Peers are connected."},
      {QHVErrorDomain, 3, {{"key", Value::string("BackupInterval")}}, "Missing value for key: 'BackupInterval'."},
      {QHVErrorDomain, 4, {{"key", Value::string("BackupInterval")}, {"expected", Value::string("NSNumber")}},
       "Wrong type for key: 'BackupInterval', expected: 'NSNumber'."},
      {QHVErrorDomain, 4, {}, "Wrong type for key: '(null)', expected: '(null)'."},
      {QHVErrorDomain, 5, {{"key", Value::string("Frobnicate")}}, "Unknown key: 'Frobnicate'."},
      // A value is text, never a format.
      {QHVErrorDomain, 5, {{"key", Value::string("%@ %s %n 100%")}}, "Unknown key: '%@ %s %n 100%'."},
  });
}

TEST(ErrorDescriptions, OtherErrorsReadAsThePlatformDescribesThem) {
  const Dictionary described{{platform::NSLocalizedDescriptionKey, Value::string("Supplied by the maker.")}};
  // Past the last row, below 0, or in a domain of nobody's table.
  expectDescriptions({
      {LKSUpdaterErrorDomain, 12, {}, "The operation couldn\u2019t be completed. (com.larkspan.updater error 12.)"},
      {LKSUpdaterErrorDomain, -1, {}, "The operation couldn\u2019t be completed. (com.larkspan.updater error -1.)"},
      {LKSInstallerPackageErrorDomain, 3, {},
       "The operation couldn\u2019t be completed. (com.larkspan.installer-package error 3.)"},
      {LKSSpawnerErrorDomain, 3, {}, "The operation couldn\u2019t be completed. (com.larkspan.spawner error 3.)"},
      {LKSMessagerErrorDomain, 9, {}, "The operation couldn\u2019t be completed. (com.larkspan.messager error 9.)"},
      {LKSMessagerErrorDomain, -1, {{"message", Value::integer(3)}},
       "The operation couldn\u2019t be completed. (com.larkspan.messager error -1.)"},
      {LKSAuthorizationErrorDomain, 7, {},
       "The operation couldn\u2019t be completed. (com.larkspan.authorization error 7.)"},
      {QHVErrorDomain, 6, {}, "The operation couldn\u2019t be completed. (com.larkspan.quillhaven error 6.)"},
      {QHVErrorDomain, INT64_MIN, {},
       "The operation couldn\u2019t be completed. (com.larkspan.quillhaven error -9223372036854775808.)"},
      {"org.example.other", 0, {}, "The operation couldn\u2019t be completed. (org.example.other error 0.)"},
      {"com.larkspan", 0, {}, "The operation couldn\u2019t be completed. (com.larkspan error 0.)"},
      {platform::NSCocoaErrorDomain, 3840, described, "Supplied by the maker."},
      // The product's own sentence wins over a description in the user info.
      {QHVErrorDomain, 2, described, "Peers are connected."},
  });
  EXPECT_EQ(LKSError::_localizedDescriptionForError(nullptr), "");
}

}  // namespace
