// The string helpers the tool relies on: the yes/no truth test, path
// standardization, the home directory.
#include "platform/strings.h"

#include <gtest/gtest.h>
#include <pwd.h>

#include <cstdlib>
#include <optional>
#include <string>

#include "harness/temp_dir.h"
#include "platform/user_ids.h"

namespace platform {
namespace {

struct Truth {
  const char* text;
  bool value;
};

TEST(StringBoolValue, FirstMeaningfulCharacterDecides) {
  // Each: the text, and what the truth test reads in it.
  const Truth truths[] = {
      {"yes", true},   {"YES", true},    {"y", true},      {"Y", true},        {"true", true},
      {"T", true},     {"t", true},      {"1", true},      {"9", true},        {"42", true},
      {"on", false},   {"no", false},    {"off", false},   {"false", false},   {"maybe", false},
      {"0", false},    {"000", false},   {"", false},      {"x", false},       {"nein", false},
      {"+0009", true},  // sign, then leading zeros, then 9
      {"-1", true},    {"-y", true},     {"+t", true},     {" -y", true},      {"-0", false},
      {"+", false},    {"-", false},     {"+-1", false},   {"--1", false},     {"0x1", false},
      {"00y", true},   {"0.5", false},   {".5", false},    {"1abc", true},     {"yesterday", true},
      // White space before the sign, ASCII or Unicode; never between sign and digit.
      {"   yes", true}, {"\t\n\v\f\r1", true}, {"\u00A0y", true},  {"\u2003T", true},  {"\u3000" "5", true},
      {"\u0085y", true}, {"\u1680y", true},    {"\u2028y", true},  {"\u202Fy", true},  {"\u205Fy", true},
      {"- 1", false},   {"   ", false},        {"\u200By", false},  // zero width space is not white space
      {"\uFF59", false},  // fullwidth y
      // Text that is not UTF-8 is false wherever the fault is.
      {"\xFFyes", false}, {"y\xFF", false},    {"1\xC0\x80", false}, {"\xED\xA0\x80" "1", false},
      {"\xF4\x90\x80\x80" "1", false}, {"y\xE2\x82", false},
  };
  for (const Truth& t : truths) EXPECT_EQ(stringBoolValue(t.text), t.value) << '"' << t.text << '"';
}

TEST(StringBoolValue, ReadsTextWithNulBytesUpToTheDecidingCharacter) {
  EXPECT_TRUE(stringBoolValue(std::string_view("y\0n", 3)));
  EXPECT_FALSE(stringBoolValue(std::string_view("\0y", 2)));
}

// Tests that set HOME put it back.
class HomeTest : public testing::Test {
 protected:
  HomeTest() {
    if (const char* home = std::getenv("HOME")) saved_ = home;
  }
  ~HomeTest() override {
    saved_ ? setenv("HOME", saved_->c_str(), 1) : unsetenv("HOME");
    UserIds::setForTesting(nullptr);
  }

  static std::optional<std::string> passwordHome(uid_t user) {
    const passwd* entry = getpwuid(user);
    return entry && entry->pw_dir && *entry->pw_dir ? std::optional<std::string>(entry->pw_dir) : std::nullopt;
  }

  std::optional<std::string> saved_;
  testing_support::TempDir home_;
};

struct PathCase {
  const char* path;
  std::string expected;
};

class StandardizingPath : public HomeTest {};

TEST_F(StandardizingPath, RemovesDotsEmptyComponentsAndTheTrailingSlash) {
  const PathCase cases[] = {
      {"", ""},
      {"/", "/"},
      {"//", "/"},
      {"/a//b///c/", "/a/b/c"},
      {"/a/./b/.", "/a/b"},
      {"/a/b/../c", "/a/c"},
      {"/a/b/../../..", "/"},  // never above the root
      {"/../a", "/a"},
      {"/a/..b/c..", "/a/..b/c.."},  // only ".." itself is the parent
      {"/.hidden/./x", "/.hidden/x"},
      // Relative paths keep ".." with nothing to resolve it against.
      {"a/b/", "a/b"},
      {"./a", "a"},
      {"a/.", "a"},
      {".", "."},
      {"./", "."},
      {"a/../b", "a/../b"},
      {"../a//b", "../a/b"},
  };
  for (const PathCase& c : cases) EXPECT_EQ(stringByStandardizingPath(c.path), c.expected) << '"' << c.path << '"';
}

TEST_F(StandardizingPath, ExpandsTheTildeOfTheUserAndOfNamedUsers) {
  setenv("HOME", (home_.path() + "/").c_str(), 1);  // a trailing slash is standardized away too
  const std::string home = home_.path();
  const std::optional<std::string> rootHome = passwordHome(0);
  ASSERT_TRUE(rootHome);
  const PathCase cases[] = {
      {"~", home},
      {"~/", home},
      {"~/Library//Logs/", home + "/Library/Logs"},
      {"~/../x", home.substr(0, home.rfind('/')) + "/x"},
      {"~root", *rootHome},
      {"~root/.config", *rootHome + "/.config"},
      {"~no-such-user-here/x", "~no-such-user-here/x"},  // unknown users are left alone
      {"a/~", "a/~"},                                    // only a leading tilde expands
      {"/~", "/~"},
  };
  for (const PathCase& c : cases) EXPECT_EQ(stringByStandardizingPath(c.path), c.expected) << '"' << c.path << '"';
}

class HomeDirectory : public HomeTest {};

TEST_F(HomeDirectory, IsTheEnvironmentsWhenSet) {
  setenv("HOME", "/Users/somebody", 1);
  EXPECT_EQ(homeDirectory(), "/Users/somebody");
}

TEST_F(HomeDirectory, OtherwiseTheEffectiveUsersPasswordEntry) {
  const FixedUserIds rootByEffectiveId(501, 0);
  UserIds::setForTesting(&rootByEffectiveId);
  const std::optional<std::string> rootHome = passwordHome(0);
  ASSERT_TRUE(rootHome);
  setenv("HOME", "", 1);
  EXPECT_EQ(homeDirectory(), *rootHome);
  unsetenv("HOME");
  EXPECT_EQ(homeDirectory(), *rootHome);
}

TEST_F(HomeDirectory, IsTheRootDirectoryForAUserWithoutAnEntry) {
  constexpr uid_t kNobodyKnown = 3999999999u;
  ASSERT_FALSE(passwordHome(kNobodyKnown));
  const FixedUserIds unknown(kNobodyKnown, kNobodyKnown);
  UserIds::setForTesting(&unknown);
  unsetenv("HOME");
  EXPECT_EQ(homeDirectory(), "/");
}

}  // namespace
}  // namespace platform
