#include "cli/printers.h"

#include <gtest/gtest.h>
#include <time.h>

#include "harness/saved_environment.h"
#include "harness/standard_streams.h"

namespace {

using platform::Value;

class Printers : public ::testing::Test {
 protected:
  Printers() {
    setenv("TZ", "UTC", 1);
    setenv("LC_ALL", "C", 1);
    tzset();
  }
  const testing_support::SavedEnvironment environment_{"TZ", "LC_ALL"};

  template <typename Print>
  static std::string printed(Print print) {
    testing_support::CapturedOutput captured;
    print();
    return captured.text();
  }
};

// XML over JSON and JSON's missing final newline are pinned by whole runs of "status".
TEST_F(Printers, DescriptionByDefaultAndWhatJsonRefusesPrintsNothing) {
  const Value status = Value::dictionary({{"Backups", Value::string("enabled")}});
  EXPECT_EQ(printed([&] { print_dictionary(status, false, false); }), "{\n    Backups = enabled;\n}\n");
  const Value dated = Value::dictionary({{"LastRun", Value::date(platform::Date::fromUnixTime(0))}});
  EXPECT_EQ(printed([&] { print_dictionary(dated, false, true); }), "");  // JSON has no dates
}

TEST_F(Printers, InfoShowsALaterTryAndThenRunningBeforeNextRunBeforeDeferral) {
  // 2021-01-05 09:07:03 UTC and an hour later.
  const Value earlier = Value::date(platform::Date::fromUnixTime(1609837623)),
              later = Value::date(platform::Date::fromUnixTime(1609837623 + 3600));
  const Value running = Value::boolean(true), idle = Value::boolean(false), reason = Value::string("On battery");
  const struct {
    platform::Dictionary activity;
    const char* printed;
  } cases[] = {
      {{{"LastRun", earlier}, {"LastTry", later}}, "Last run: 01/05/21, 09:07\nLast try: 01/05/21, 10:07\n"},
      {{{"LastRun", earlier}, {"LastTry", earlier}}, "Last run: 01/05/21, 09:07\n"},  // a try no later is no news
      {{{"LastTry", earlier}}, "Last try: 01/05/21, 09:07\n"},
      {{{"Running", running}, {"NextRun", later}, {"DeferReason", reason}}, "\nRunning now.\n"},
      {{{"Running", idle}, {"NextRun", later}, {"DeferReason", reason}}, "Next run: 01/05/21, 10:07\n"},
      {{{"Running", idle}, {"DeferReason", reason}}, "\nDeferred: On battery.\n"},
  };
  for (const auto& c : cases) EXPECT_EQ(printed([&] { print_info(Value::dictionary(c.activity)); }), c.printed);
  EXPECT_EQ(printed([] { print_info(Value::string("not an activity")); }), "");
}

}  // namespace
