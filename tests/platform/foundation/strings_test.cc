#include "platform/foundation/strings.h"

#include <gtest/gtest.h>
#include <pwd.h>

#include <cstdlib>
#include <string>

#include "harness/installed.h"
#include "harness/saved_environment.h"
#include "harness/temp_dir.h"
#include "platform/foundation/user_ids.h"

namespace platform {
namespace {

TEST(StringBoolValue, FirstMeaningfulCharacterDecides) {
  const struct {
    std::string_view text;
    bool value;
  } kTruths[] = {
      {"yes", true}, {"Y", true}, {"t", true}, {"T", true}, {"1", true}, {"9", true}, {"yesterday", true},
      {"no", false}, {"on", false}, {"0", false}, {"x", false}, {"", false}, {"0.5", false}, {"\uFF59", false},
      // A sign, then leading zeros, then the deciding character.
      {"+0009", true}, {"-y", true}, {"00y", true}, {"-0", false}, {"+", false}, {"+-1", false}, {"0x1", false},
      // White space before the sign, ASCII or Unicode; never after it. U+200B is no white space.
      {"\t\n\v\f\r 1", true}, {"\u00A0y", true}, {"\u0085y", true}, {"\u2003T", true}, {"\u3000" "5", true},
      {" -y", true}, {"- 1", false}, {"   ", false}, {"\u200By", false},
      // Text that is not UTF-8 is false wherever the fault is; a NUL byte is a character.
      {"\xFFyes", false}, {"y\xFF", false}, {"1\xC0\x80", false}, {"\xED\xA0\x80" "1", false},
      {std::string_view("y\0n", 3), true}, {std::string_view("\0y", 2), false},
  };
  for (const auto& t : kTruths) EXPECT_EQ(stringBoolValue(t.text), t.value) << '"' << t.text << '"';
}

// The password database's home of the root user.
std::string rootHome() { return getpwuid(0)->pw_dir; }

// Tests that set HOME put it back.
class Home : public testing::Test {
 protected:
  const testing_support::SavedEnvironment environment_{"HOME"};
};

TEST_F(Home, StandardizingPaths) {
  testing_support::TempDir home;
  setenv("HOME", (home.path() + "/").c_str(), 1);  // a trailing slash is standardized away too
  const struct {
    const char* path;
    std::string expected;
  } kPaths[] = {
      {"", ""}, {"//", "/"}, {"/a//b///c/", "/a/b/c"}, {"/a/./b/.", "/a/b"}, {"/a/b/../c", "/a/c"},
      {"/a/b/../../..", "/"}, {"/a/..b/c..", "/a/..b/c.."},  // never above the root; only ".." is the parent
      // Relative paths keep ".." with nothing to resolve it against.
      {"./a", "a"}, {".", "."}, {"a/../b", "a/../b"}, {"../a//b", "../a/b"},
      {"~", home.path()}, {"~/../x", home.path().substr(0, home.path().rfind('/')) + "/x"},
      {"~root/.config", rootHome() + "/.config"}, {"~no-such-user-here/x", "~no-such-user-here/x"},
      {"a/~", "a/~"}, {"/~", "/~"},  // only a leading tilde expands
  };
  for (const auto& c : kPaths) EXPECT_EQ(stringByStandardizingPath(c.path), c.expected) << '"' << c.path << '"';
}

// The home directory: $HOME (pinned by the log file's place), else the effective user's
// password entry, else the root directory.
TEST_F(Home, EnvironmentThenPasswordEntryThenRoot) {
  const FixedUserIds rootByEffectiveId(501, 0);
  const testing_support::Installed<UserIds> actingAsRoot(&rootByEffectiveId);
  setenv("HOME", "", 1);
  EXPECT_EQ(homeDirectory(), rootHome());
  unsetenv("HOME");
  EXPECT_EQ(homeDirectory(), rootHome());
  constexpr uid_t kNobodyKnown = 3999999999u;
  ASSERT_EQ(getpwuid(kNobodyKnown), nullptr);
  const FixedUserIds unknown(kNobodyKnown, kNobodyKnown);
  const testing_support::Installed<UserIds> actingAsNobodyKnown(&unknown);
  EXPECT_EQ(homeDirectory(), "/");
}

}  // namespace
}  // namespace platform
