// The sentence of every known error, byte for byte, with each variant its user
// info selects; and the platform's own description for everything else.
#include <gtest/gtest.h>

#include <climits>

#include "errors/lks_error.h"

namespace {

using platform::Dictionary;
using platform::Value;

Value text(const char* string) { return Value::string(string); }
Value number(std::int64_t n) { return Value::integer(n); }
Value texts(std::initializer_list<const char*> strings) {
  platform::Array array;
  for (const char* string : strings) array.push_back(Value::string(string));
  return Value::array(std::move(array));
}

TEST(ErrorDescriptions, EverySentenceAndVariantAndThePlatformsForTheRest) {
  const char *U = LKSUpdaterErrorDomain, *I = LKSInstallerPackageErrorDomain, *S = LKSSpawnerErrorDomain,
             *M = LKSMessagerErrorDomain, *A = LKSAuthorizationErrorDomain, *Q = QHVErrorDomain;
  const Value service = text("com.larkspan.quillhaven.scheduler");
  const Value failures = texts({"r.a (-60005)", "r.b (-60006)"});
  const Dictionary described{{platform::NSLocalizedDescriptionKey, text("Supplied by the maker.")}};
  struct Row {
    const char* domain;
    std::int64_t code;
    Dictionary userInfo;
    const char* expected;
  };
  const Row rows[] = {
      {U, 0, {}, "You are already running the latest version."},
      {U, 1, {}, "Could not fetch update information."},
      // Codes 1 and 4 add the status code's reason phrase and the code when one is given; no other code does.
      {U, 1, {{"status-code", number(404)}}, "Could not fetch update information. not found (404)."},
      {U, 2, {{"status-code", number(404)}}, "Could not read update data."},
      {U, 3, {{"info", Value::dictionary({{"b", number(2)}})}}, "Invalid update information: {\n    b = 2;\n}."},
      {U, 3, {}, "Invalid update information: (null)."},  // an absent value reads "(null)"
      {U, 4, {}, "Could not download update."},
      {U, 4, {{"status-code", number(500)}}, "Could not download update. internal server error (500)."},
      {U, 5, {}, "Could not move update package."},
      {U, 6, {}, "Could not validate update."},
      {U, 7, {}, "Could not install update."},
      {U, 8, {}, "Update cannot be performed now."},
      {U, 9, {}, "Update has been deferred due to phased update."},
      {U, 10, {}, "The update server could not be trusted, you may be victim of SSL/TLS decryption."},
      {U, 11, {}, "You have made too many requests to the update server. Please try again later."},
      {I, 0, {{"path", text("/tmp/Q 5.3.pkg")}}, "Could not read installer package at path '/tmp/Q 5.3.pkg'."},
      {I, 1, {}, "Installer package is not signed."},
      {I, 2, {}, "Installer package signature is invalid."},
      {S, 0, {{"tool", text("/bin/sh")}, {"errno", number(13)}}, "Could not spawn '/bin/sh'. Permission denied (13)."},
      {S, 1, {{"tool", text("/bin/sh")}, {"exit-status", number(2)}}, "/bin/sh exited with status 2."},
      {S, 2, {{"tool", text("/usr/bin/log")}, {"signal", number(15)}}, "/usr/bin/log received signal 15 (Terminated)."},
      {M, 0, {{"message", number(3)}}, "Could not authorize message (3)."},
      {M, 0, {{"message", number(-1)}}, "Could not authorize message (18446744073709551615)."},  // read unsigned
      {M, 1, {{"message", number(3)}}, "Authorization data is missing for message (3)."},
      {M, 2, {{"message", number(11)}, {"payload", text("{\n    On = 1;\n}")}},
       "Could not serialize message (11), payload: {\n    On = 1;\n}."},
      {M, 3, {{"message", number(4)}}, "Could not deserialize message (4)."},
      {M, 4, {{"message", number(12)}, {"reply", Value::dictionary({{"On", Value::boolean(true)}})}},
       "Could not serialize reply for message (12), reply: {\n    On = 1;\n}."},
      {M, 5, {{"message", number(5)}}, "Could not deserialize reply for message (5)."},
      {M, 6, {{"message", number(28)}}, "Could not unarchive reply error for message (28)."},
      // Codes 7 and 8 name the message only when "message" is present, whatever its value.
      {M, 7, {{"message", number(5)}, {"service", service}},
       "Could not send message (5), the service is not available (com.larkspan.quillhaven.scheduler)."},
      {M, 7, {{"service", service}}, "The service is not available (com.larkspan.quillhaven.scheduler)."},
      {M, 8, {{"message", text("x")}, {"service", service}},
       "Could not send message (0), the service disappeared (crash?) (com.larkspan.quillhaven.scheduler)."},
      {M, 8, {{"service", service}}, "The service disappeared (com.larkspan.quillhaven.scheduler)."},
      {A, 0, {{"rights", texts({"r.a"})}}, "User canceled authentication."},
      {A, 1, {{"status", number(-60008)}}, "Could not create authorization: -60008."},
      {A, 2, {{"status", number(-60002)}}, "Could not make external form: -60002."},
      {A, 3, {{"status", number(-60002)}}, "Could not create from external form: -60002."},
      // Code 4 joins the rights with ", " and names the status only when "status" is present.
      {A, 4, {{"status", number(-60005)}, {"rights", texts({"a", "b"})}}, "Could not set rights (-60005): a, b."},
      {A, 4, {{"rights", failures}}, "Could not set rights: r.a (-60005), r.b (-60006)."},
      // Codes 5 and 6 print the array itself, in the platform's multi-line form.
      {A, 5, {{"rights", failures}}, "Could not validate rights: (\n    \"r.a (-60005)\",\n    \"r.b (-60006)\"\n)."},
      {A, 6, {{"rights", texts({"r.a"})}}, "Could not authorize rights: (\n    \"r.a\"\n)."},
      {Q, 0, {}, "A backup operation is currently running."},
      {Q, 1, {}, "An update operation is currently running."},
      {Q, 2, {}, "Peers are connected."},
      {Q, 3, {{"key", text("BackupInterval")}}, "Missing value for key: 'BackupInterval'."},
      {Q, 4, {{"key", text("Interval")}, {"expected", text("NSNumber")}},
       "Wrong type for key: 'Interval', expected: 'NSNumber'."},
      {Q, 5, {{"key", text("%@ %s %n 100%")}}, "Unknown key: '%@ %s %n 100%'."},  // a value is never a format
      // Past the last row, below 0, or in a domain of nobody's table: the platform's description.
      {U, 12, {}, "The operation couldn\u2019t be completed. (com.larkspan.updater error 12.)"},
      {A, 7, {}, "The operation couldn\u2019t be completed. (com.larkspan.authorization error 7.)"},
      {Q, INT64_MIN, {},
       "The operation couldn\u2019t be completed. (com.larkspan.quillhaven error -9223372036854775808.)"},
      {"com.larkspan", 0, {}, "The operation couldn\u2019t be completed. (com.larkspan error 0.)"},
      {platform::NSCocoaErrorDomain, 3840, described, "Supplied by the maker."},
      {Q, 2, described, "Peers are connected."},  // the product's own sentence wins
  };
  for (const Row& row : rows) {
    EXPECT_EQ(LKSError::_localizedDescriptionForError(platform::Error::make(row.domain, row.code, row.userInfo)),
              row.expected)
        << row.domain << " " << row.code;
  }
  EXPECT_EQ(LKSError::_localizedDescriptionForError(nullptr), "");
}

}  // namespace
