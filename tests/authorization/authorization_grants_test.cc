// Records of exported authorizations: what is accepted, and every way a record
// can fail to be believed.
#include "platform/authorization_grants.h"

#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <filesystem>
#include <fstream>
#include <functional>

#include "authorization/authorization_test_support.h"
#include "harness/temp_dir.h"

namespace {

using platform::AuthorizationExternalForm;
using platform::AuthorizationGrants;
using Rights = std::vector<std::string>;

AuthorizationExternalForm formOf(std::uint8_t fill) {
  AuthorizationExternalForm form;
  std::fill(std::begin(form.bytes), std::end(form.bytes), fill);
  return form;
}

std::string replaced(std::string text, const std::string& from, const std::string& to) {
  std::size_t at = text.find(from);
  if (at != std::string::npos) text.replace(at, from.size(), to);
  return text;
}

class AuthorizationGrantsTest : public ::testing::Test {
 protected:
  std::string directory() const { return dir_.file("grants"); }
  std::string recordPath(std::uint8_t fill) const {
    return directory() + "/" + std::string(64, "0123456789abcdef"[fill & 0xf]);
  }

  testing_support::TempDir dir_;
  AuthorizationGrants grants_{directory()};
};

TEST_F(AuthorizationGrantsTest, ARecordGivesBackItsRightsUntilRevoked) {
  const AuthorizationExternalForm form = formOf(0x11);
  ASSERT_EQ(grants_.record(form, {"r.a", "r.b"}), platform::errAuthorizationSuccess);
  EXPECT_EQ(grants_.lookup(form), (Rights{"r.a", "r.b"}));
  EXPECT_EQ(grants_.lookup(formOf(0x22)), std::nullopt);

  ASSERT_EQ(grants_.record(form, {"r.c"}), platform::errAuthorizationSuccess);
  EXPECT_EQ(grants_.lookup(form), (Rights{"r.c"}));
  ASSERT_EQ(grants_.record(form, {}), platform::errAuthorizationSuccess);
  EXPECT_EQ(grants_.lookup(form), Rights());

  grants_.revoke(form);
  EXPECT_EQ(grants_.lookup(form), std::nullopt);
}

TEST_F(AuthorizationGrantsTest, RightNamesThatCouldAddLinesAreNotRecorded) {
  const AuthorizationExternalForm form = formOf(0x11);
  for (const std::string& name : {std::string("r\nright everything"), std::string("r\0x", 3), std::string()}) {
    EXPECT_EQ(grants_.record(form, {"r.a", name}), platform::errAuthorizationInvalidSet);
  }
  EXPECT_EQ(grants_.lookup(form), std::nullopt);
}

TEST_F(AuthorizationGrantsTest, HostileOrDamagedRecordsAreNotBelieved) {
  const AuthorizationExternalForm form = formOf(0x11);
  ASSERT_EQ(grants_.record(form, {"r.a"}), platform::errAuthorizationSuccess);
  const std::string path = recordPath(0x11);
  const std::string good = dir_.read("grants/" + std::string(64, '1'));
  const std::string pidLine = "pid " + std::to_string(getpid()) + "\n";
  const std::string startLine = good.substr(good.find("start "), good.find("\nright") - good.find("start ") + 1);
  const std::string bootLine = good.substr(good.find("boot "), good.find("\npid") - good.find("boot ") + 1);
  ASSERT_NE(good.find(pidLine), std::string::npos);
  ASSERT_EQ(bootLine.size(), std::string("boot 01234567-89ab-cdef-0123-456789abcdef\n").size());

  struct Row {
    const char* why;
    std::string contents;
  };
  const Row rows[] = {
      {"empty", ""},
      {"not a record", "grant everything to everybody\n"},
      {"the record of another form", replaced(good, std::string(64, '1'), std::string(64, '2'))},
      {"form in upper case", replaced(good, std::string(64, '1'), "A" + std::string(63, '1'))},
      {"form too short", replaced(good, std::string(64, '1'), std::string(63, '1'))},
      {"no pid", replaced(good, pidLine, "")},
      {"pid zero", replaced(good, pidLine, "pid 0\n")},
      {"negative pid", replaced(good, pidLine, "pid -1\n")},
      {"pid beyond its type", replaced(good, pidLine, "pid 99999999999999999999\n")},
      {"pid with trailing text", replaced(good, pidLine, "pid " + std::to_string(getpid()) + "x\n")},
      {"a recycled pid: another start time", replaced(good, startLine, "start 1\n")},
      {"no start time", replaced(good, startLine, "")},
      {"made during another boot", replaced(good, bootLine, "boot 01234567-89ab-cdef-0123-456789abcdef\n")},
      {"no boot id", replaced(good, bootLine, "")},
      {"fields out of order", replaced(replaced(good, pidLine, ""), startLine, startLine + pidLine)},
      {"an unknown field", good + "owner root\n"},
      {"an empty right", good + "right \n"},
      {"last line without its end", good + "right r.b"},
      {"larger than 64 KiB", good + std::string(64 * 1024, '#')},
  };
  for (const Row& row : rows) {
    std::ofstream(path, std::ios::binary | std::ios::trunc) << row.contents;
    EXPECT_EQ(grants_.lookup(form), std::nullopt) << row.why;
  }

  // The control: the record as written is believed.
  std::ofstream(path, std::ios::binary | std::ios::trunc) << good;
  EXPECT_EQ(grants_.lookup(form), Rights{"r.a"});
}

TEST_F(AuthorizationGrantsTest, RecordsAndDirectoriesOthersCouldTouchAreNotBelieved) {
  const AuthorizationExternalForm form = formOf(0x11);
  ASSERT_EQ(grants_.record(form, {"r.a"}), platform::errAuthorizationSuccess);
  const std::string path = recordPath(0x11);

  ASSERT_EQ(chmod(path.c_str(), 0620), 0);
  EXPECT_EQ(grants_.lookup(form), std::nullopt) << "record writable by the group";
  ASSERT_EQ(chmod(path.c_str(), 0600), 0);

  ASSERT_EQ(rename(path.c_str(), (path + ".elsewhere").c_str()), 0);
  ASSERT_EQ(symlink((path + ".elsewhere").c_str(), path.c_str()), 0);
  EXPECT_EQ(grants_.lookup(form), std::nullopt) << "record is a symbolic link";
  ASSERT_EQ(unlink(path.c_str()), 0);
  ASSERT_EQ(rename((path + ".elsewhere").c_str(), path.c_str()), 0);

  ASSERT_EQ(chmod(directory().c_str(), 0755), 0);
  EXPECT_EQ(grants_.lookup(form), std::nullopt) << "directory that others can list";
  EXPECT_EQ(grants_.record(formOf(0x22), {"r.a"}), platform::errAuthorizationDenied);
  ASSERT_EQ(chmod(directory().c_str(), 0700), 0);
  EXPECT_EQ(grants_.lookup(form), Rights{"r.a"});
}

TEST_F(AuthorizationGrantsTest, ARecordOwnedByAnotherUserIsNotBelieved) {
  if (geteuid() != 0) GTEST_SKIP() << "needs root: gives a record to another user";
  const AuthorizationExternalForm form = formOf(0x11);
  ASSERT_EQ(grants_.record(form, {"r.a"}), platform::errAuthorizationSuccess);
  ASSERT_EQ(chown(recordPath(0x11).c_str(), authorization_testing::kNobody, 0), 0);
  EXPECT_EQ(grants_.lookup(form), std::nullopt);
}

TEST_F(AuthorizationGrantsTest, RecordsOfExitedMakersAreRemoved) {
  const AuthorizationExternalForm mine = formOf(0x11);
  const AuthorizationExternalForm theirs = formOf(0x22);
  ASSERT_EQ(authorization_testing::runInChild([&] { return grants_.record(theirs, {"r.a"}) == 0 ? 0 : 1; }), 0);
  ASSERT_EQ(grants_.record(mine, {"r.a"}), platform::errAuthorizationSuccess);  // also sweeps
  EXPECT_FALSE(std::filesystem::exists(recordPath(0x22)));
  EXPECT_TRUE(std::filesystem::exists(recordPath(0x11)));

  ASSERT_EQ(authorization_testing::runInChild([&] { return grants_.record(theirs, {"r.a"}) == 0 ? 0 : 1; }), 0);
  EXPECT_EQ(grants_.lookup(theirs), std::nullopt);
  EXPECT_FALSE(std::filesystem::exists(recordPath(0x22)));

  ASSERT_EQ(authorization_testing::runInChild([&] { return grants_.record(theirs, {"r.a"}) == 0 ? 0 : 1; }), 0);
  std::ofstream(directory() + "/not-a-record") << "kept";
  grants_.removeStaleRecords();
  EXPECT_FALSE(std::filesystem::exists(recordPath(0x22)));
  EXPECT_TRUE(std::filesystem::exists(recordPath(0x11)));
  EXPECT_TRUE(std::filesystem::exists(directory() + "/not-a-record"));
}

}  // namespace
