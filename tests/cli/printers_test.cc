#include "cli/printers.h"

#include <gtest/gtest.h>
#include <time.h>

#include <cstdlib>
#include <string>

#include "harness/captured_stdout.h"

namespace {

using platform::Date;
using platform::Dictionary;
using platform::Value;
using testing_support::CapturedStdout;

// 2021-01-05 09:07:03 UTC and an hour later.
const Value kEarlier = Value::date(Date::fromUnixTime(1609837623));
const Value kLater = Value::date(Date::fromUnixTime(1609837623 + 3600));

class Printers : public ::testing::Test {
 protected:
  void SetUp() override {
    setenv("TZ", "UTC", 1);
    setenv("LC_ALL", "C", 1);
    tzset();
  }
  void TearDown() override {
    unsetenv("TZ");
    unsetenv("LC_ALL");
    tzset();
  }

  static std::string info(const Dictionary& activity) {
    CapturedStdout captured;
    print_info(Value::dictionary(activity));
    return captured.text();
  }
};

TEST_F(Printers, DictionaryFormats) {
  const Value status = Value::dictionary({{"Backups", Value::string("enabled")}});
  {
    CapturedStdout captured;
    print_dictionary(status, true, true);  // XML wins
    EXPECT_TRUE(captured.text().starts_with("<?xml version=\"1.0\" encoding=\"UTF-8\"?>\n")) << captured.text();
    EXPECT_TRUE(captured.text().ends_with("</plist>\n"));
  }
  {
    CapturedStdout captured;
    print_dictionary(status, false, true);
    EXPECT_EQ(captured.text(), "{\n  \"Backups\" : \"enabled\"\n}");  // no newline after JSON
  }
  {
    CapturedStdout captured;
    print_dictionary(status, false, false);
    EXPECT_EQ(captured.text(), "{\n    Backups = enabled;\n}\n");
  }
}

TEST_F(Printers, WhatASerializerRefusesPrintsNothing) {
  CapturedStdout captured;
  print_dictionary(Value::dictionary({{"LastRun", kEarlier}}), false, true);  // JSON has no dates
  print_dictionary(Value::dictionary({{"cause", Value::error(platform::Error::make("d", 1))}}), true, false);
  EXPECT_EQ(captured.text(), "");
}

TEST_F(Printers, LastRunAndLastTry) {
  EXPECT_EQ(info({{"LastRun", kEarlier}, {"LastTry", kLater}}),
            "Last run: 01/05/21, 09:07\nLast try: 01/05/21, 10:07\n");
  // A try no later than the run is no news.
  EXPECT_EQ(info({{"LastRun", kEarlier}, {"LastTry", kEarlier}}), "Last run: 01/05/21, 09:07\n");
  EXPECT_EQ(info({{"LastRun", kLater}, {"LastTry", kEarlier}}), "Last run: 01/05/21, 10:07\n");
  EXPECT_EQ(info({{"LastTry", kEarlier}}), "Last try: 01/05/21, 09:07\n");
}

TEST_F(Printers, RunningBeatsNextRunBeatsDeferral) {
  EXPECT_EQ(info({{"Running", Value::boolean(true)}, {"NextRun", kLater}, {"DeferReason", Value::string("x")}}),
            "\nRunning now.\n");
  EXPECT_EQ(info({{"Running", Value::boolean(false)}, {"NextRun", kLater}}), "Next run: 01/05/21, 10:07\n");
  EXPECT_EQ(info({{"Running", Value::boolean(false)}, {"DeferReason", Value::string("On battery")}}),
            "\nDeferred: On battery.\n");
  EXPECT_EQ(info({{"LastRun", kEarlier}, {"Running", Value::boolean(true)}}),
            "Last run: 01/05/21, 09:07\n\nRunning now.\n");
}

TEST_F(Printers, NothingToSay) {
  EXPECT_EQ(info({}), "");
  EXPECT_EQ(info({{"Running", Value::boolean(false)}}), "");
  CapturedStdout captured;
  print_info(Value());
  print_info(Value::string("not an activity"));
  EXPECT_EQ(captured.text(), "");
}

}  // namespace
