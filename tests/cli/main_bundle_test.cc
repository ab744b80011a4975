#include "platform/main_bundle.h"

#include <gtest/gtest.h>

namespace {

// This test program embeds the tool's information property list as the tool does.
TEST(MainBundle, ReadsTheEmbeddedInformation) {
  const platform::Dictionary& info = platform::MainBundle::mainBundle().infoDictionary();
  EXPECT_EQ(info.get("CFBundleIdentifier"), platform::Value::string("com.larkspan.quillhaven.qhvctl"));
  EXPECT_EQ(info.get("CFBundleShortVersionString"), platform::Value::string("5.2.2"));
  EXPECT_EQ(info.get("CFBundleVersion"), platform::Value::string("219"));
  EXPECT_EQ(info.get("CFBundleInfoDictionaryVersion"), platform::Value::string("6.0"));
  EXPECT_EQ(info.get("CFBundleSupportedPlatforms"),
            platform::Value::array({platform::Value::string("MacOSX")}));
  EXPECT_EQ(info.get("LSMinimumSystemVersion"), platform::Value::string("10.9"));
  EXPECT_EQ(&info, &platform::MainBundle::mainBundle().infoDictionary());
}

TEST(MainBundle, WithoutStringTablesAKeyIsItsOwnText) {
  const platform::MainBundle& bundle = platform::MainBundle::mainBundle();
  EXPECT_EQ(bundle.localizedStringForKey("User canceled authentication.", "", nullptr),
            "User canceled authentication.");
  EXPECT_EQ(bundle.localizedStringForKey("", "fallback", "Table"), "fallback");
}

}  // namespace
