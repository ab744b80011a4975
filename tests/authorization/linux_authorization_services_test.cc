// Authorization Services on Linux against a private rights database and grants
// directory: rules, external forms, revocation, and who may change rules.
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cstring>
#include <filesystem>
#include <fstream>

#include "authorization/authorization_test_support.h"
#include "platform/authorization_rules.h"
#include "platform/user_ids.h"

namespace {

using authorization_testing::LinuxAuthorizationTest;
using authorization_testing::ruleEntry;
using platform::AuthorizationExternalForm;
using platform::AuthorizationRef;
using platform::OSStatus;

constexpr platform::AuthorizationFlags kExtend = platform::kAuthorizationFlagExtendRights;
constexpr platform::AuthorizationFlags kExtendInteractive =
    platform::kAuthorizationFlagExtendRights | platform::kAuthorizationFlagInteractionAllowed;

// Acts as the given effective user for the rules, without changing ids.
class ActingAs {
 public:
  explicit ActingAs(uid_t user) : ids_(user, user) { platform::UserIds::setForTesting(&ids_); }
  ~ActingAs() { platform::UserIds::setForTesting(nullptr); }

 private:
  platform::FixedUserIds ids_;
};

class RulesTest : public LinuxAuthorizationTest {
 protected:
  RulesTest() {
    writeDatabase(ruleEntry("r.allow", "allow") + ruleEntry("r.deny", "deny") +
                  ruleEntry("r.root", "is-root") + ruleEntry("r.admin", "authenticate-admin") +
                  ruleEntry("r.unknown", "everyone-loves-me") +
                  "<key>r.dict</key><dict><key>rule</key><string>allow</string></dict>"
                  "<key>r.class</key><dict><key>class</key><string>allow</string></dict>"
                  "<key>r.emptydict</key><dict/>"
                  "<key>r.number</key><integer>1</integer>");
  }

  // The status of obtaining `right` anew, as `user`, with `flags`.
  OSStatus obtain(const char* right, uid_t user, platform::AuthorizationFlags flags) {
    ActingAs acting(user);
    AuthorizationRef authorization = create();
    OSStatus status = copyRight(authorization, right, flags);
    services_.AuthorizationFree(authorization, 0);
    return status;
  }
};

TEST_F(RulesTest, EachRuleDecidesForTheCaller) {
  struct Row {
    const char* right;
    OSStatus forRoot;
    OSStatus forUser;
  };
  // Without interaction; a right the database does not define is root's only.
  const Row rows[] = {
      {"r.allow", platform::errAuthorizationSuccess, platform::errAuthorizationSuccess},
      {"r.dict", platform::errAuthorizationSuccess, platform::errAuthorizationSuccess},
      {"r.class", platform::errAuthorizationSuccess, platform::errAuthorizationSuccess},
      {"r.deny", platform::errAuthorizationDenied, platform::errAuthorizationDenied},
      {"r.root", platform::errAuthorizationSuccess, platform::errAuthorizationDenied},
      {"r.undefined", platform::errAuthorizationSuccess, platform::errAuthorizationDenied},
      {"r.admin", platform::errAuthorizationInteractionNotAllowed,
       platform::errAuthorizationInteractionNotAllowed},
      {"r.unknown", platform::errAuthorizationDenied, platform::errAuthorizationDenied},
      {"r.emptydict", platform::errAuthorizationDenied, platform::errAuthorizationDenied},
      {"r.number", platform::errAuthorizationDenied, platform::errAuthorizationDenied},
  };
  for (const Row& row : rows) {
    EXPECT_EQ(obtain(row.right, 0, kExtend), row.forRoot) << row.right;
    EXPECT_EQ(obtain(row.right, 501, kExtend), row.forUser) << row.right;
  }
}

TEST_F(RulesTest, AuthenticationWithInteractionIsStillRefusedWithoutAnAgent) {
  EXPECT_EQ(obtain("r.admin", 0, kExtendInteractive), platform::errAuthorizationDenied);
  EXPECT_EQ(obtain("r.allow", 501, kExtendInteractive), platform::errAuthorizationSuccess);
}

TEST_F(RulesTest, WithoutExtendingOnlyRightsAlreadyGrantedCount) {
  ActingAs root(0);
  AuthorizationRef authorization = create();
  EXPECT_EQ(copyRight(authorization, "r.allow", 0), platform::errAuthorizationDenied);
  EXPECT_EQ(copyRight(authorization, "r.allow", kExtend), platform::errAuthorizationSuccess);
  EXPECT_EQ(copyRight(authorization, "r.allow", 0), platform::errAuthorizationSuccess);
  EXPECT_EQ(copyRight(authorization, "r.root", 0), platform::errAuthorizationDenied);
  services_.AuthorizationFree(authorization, 0);
}

TEST_F(RulesTest, EveryRightOfASetMustBeGranted) {
  ActingAs user(501);
  AuthorizationRef authorization = create();
  const platform::AuthorizationItem items[] = {{"r.allow", 0, nullptr, 0}, {"r.root", 0, nullptr, 0}};
  const platform::AuthorizationRights both{2, items};
  EXPECT_EQ(services_.AuthorizationCopyRights(authorization, &both, nullptr, kExtend),
            platform::errAuthorizationDenied);
  const platform::AuthorizationRights none{0, nullptr};
  EXPECT_EQ(services_.AuthorizationCopyRights(authorization, &none, nullptr, kExtend),
            platform::errAuthorizationSuccess);
  services_.AuthorizationFree(authorization, 0);
}

TEST_F(RulesTest, TheDatabaseIsReadForEachRequest) {
  ActingAs user(501);
  AuthorizationRef authorization = create();
  EXPECT_EQ(copyRight(authorization, "r.later", kExtend), platform::errAuthorizationDenied);
  writeDatabase(ruleEntry("r.later", "allow"));
  EXPECT_EQ(copyRight(authorization, "r.later", kExtend), platform::errAuthorizationSuccess);
  services_.AuthorizationFree(authorization, 0);
}

TEST_F(RulesTest, CreateObtainsRightsOnlyWhenAskedToExtend) {
  ActingAs user(501);
  const platform::AuthorizationItem item{"r.deny", 0, nullptr, 0};
  const platform::AuthorizationRights rights{1, &item};
  AuthorizationRef authorization = nullptr;
  EXPECT_EQ(services_.AuthorizationCreate(&rights, nullptr, kExtend, &authorization),
            platform::errAuthorizationDenied);
  EXPECT_EQ(authorization, nullptr);
  ASSERT_EQ(services_.AuthorizationCreate(&rights, nullptr, 0, &authorization), platform::errAuthorizationSuccess);
  EXPECT_EQ(copyRight(authorization, "r.deny", 0), platform::errAuthorizationDenied);
  services_.AuthorizationFree(authorization, 0);
}

// --- Databases that cannot be trusted or understood grant nothing ---

TEST_F(LinuxAuthorizationTest, AnUntrustworthyOrBrokenDatabaseGrantsNothing) {
  struct Row {
    const char* why;
    std::function<void(const std::string& path)> make;
  };
  const std::string allowAll = authorization_testing::databaseWith(ruleEntry("r", "allow"));
  auto write = [](const std::string& path, const std::string& contents) {
    std::ofstream(path, std::ios::binary | std::ios::trunc) << contents;
  };
  const Row rows[] = {
      {"writable by others", [&](const std::string& p) { write(p, allowAll); chmod(p.c_str(), 0666); }},
      {"writable by the group", [&](const std::string& p) { write(p, allowAll); chmod(p.c_str(), 0664); }},
      {"a symbolic link to a good database",
       [&](const std::string& p) { write(p + ".real", allowAll); unlink(p.c_str()); symlink((p + ".real").c_str(), p.c_str()); }},
      {"a directory", [&](const std::string& p) { unlink(p.c_str()); mkdir(p.c_str(), 0700); }},
      {"not a property list", [&](const std::string& p) { write(p, "rights = allow everything\n"); }},
      {"cut short", [&](const std::string& p) { write(p, allowAll.substr(0, allowAll.size() / 2)); }},
      {"an array at the root",
       [&](const std::string& p) { write(p, "<plist><array><string>allow</string></array></plist>"); }},
      {"rights that are not a dictionary",
       [&](const std::string& p) { write(p, "<plist><dict><key>rights</key><string>allow</string></dict></plist>"); }},
      {"empty", [&](const std::string& p) { write(p, ""); }},
      {"larger than 16 MiB",
       [&](const std::string& p) { write(p, allowAll); truncate(p.c_str(), 16 * 1024 * 1024 + 1); }},
  };
  ActingAs root(0);
  for (const Row& row : rows) {
    testing_support::TempDir dir;
    const std::string path = dir.file("authorization");
    row.make(path);
    platform::LinuxAuthorizationServices services({path, dir.file("grants")});
    AuthorizationRef authorization = nullptr;
    ASSERT_EQ(services.AuthorizationCreate(nullptr, nullptr, 0, &authorization), platform::errAuthorizationSuccess);
    const platform::AuthorizationItem item{"r", 0, nullptr, 0};
    const platform::AuthorizationRights rights{1, &item};
    // Even root's default rule does not apply: nothing about the database can be believed.
    EXPECT_EQ(services.AuthorizationCopyRights(authorization, &rights, nullptr, kExtend),
              platform::errAuthorizationInternal)
        << row.why;
    services.AuthorizationFree(authorization, 0);
  }
}

TEST_F(LinuxAuthorizationTest, AMissingDatabaseLeavesTheDefaultRule) {
  unlink(database().c_str());
  {
    ActingAs root(0);
    AuthorizationRef authorization = create();
    EXPECT_EQ(copyRight(authorization, "r", kExtend), platform::errAuthorizationSuccess);
    services_.AuthorizationFree(authorization, 0);
  }
  ActingAs user(501);
  AuthorizationRef authorization = create();
  EXPECT_EQ(copyRight(authorization, "r", kExtend), platform::errAuthorizationDenied);
  services_.AuthorizationFree(authorization, 0);
}

// --- Bad arguments ---

TEST_F(LinuxAuthorizationTest, BadArgumentsGetThePlatformStatuses) {
  class Foreign : public platform::AuthorizationOpaqueRef {} foreign;
  AuthorizationExternalForm form;
  const platform::AuthorizationItem unnamed{nullptr, 0, nullptr, 0};
  const platform::AuthorizationItem empty{"", 0, nullptr, 0};
  const platform::AuthorizationRights unnamedSet{1, &unnamed};
  const platform::AuthorizationRights emptySet{1, &empty};
  const platform::AuthorizationRights missingItems{1, nullptr};
  AuthorizationRef authorization = create();

  EXPECT_EQ(services_.AuthorizationCreate(nullptr, nullptr, 0, nullptr), platform::errAuthorizationInvalidPointer);
  EXPECT_EQ(copyRight(nullptr, "r", kExtend), platform::errAuthorizationInvalidRef);
  EXPECT_EQ(copyRight(&foreign, "r", kExtend), platform::errAuthorizationInvalidRef);
  EXPECT_EQ(services_.AuthorizationCopyRights(authorization, nullptr, nullptr, kExtend),
            platform::errAuthorizationInvalidSet);
  for (const platform::AuthorizationRights* bad : {&unnamedSet, &emptySet, &missingItems}) {
    EXPECT_EQ(services_.AuthorizationCopyRights(authorization, bad, nullptr, kExtend),
              platform::errAuthorizationInvalidSet);
  }
  EXPECT_EQ(services_.AuthorizationMakeExternalForm(authorization, nullptr), platform::errAuthorizationInvalidPointer);
  EXPECT_EQ(services_.AuthorizationMakeExternalForm(&foreign, &form), platform::errAuthorizationInvalidRef);
  EXPECT_EQ(services_.AuthorizationCreateFromExternalForm(nullptr, &authorization),
            platform::errAuthorizationInvalidPointer);
  EXPECT_EQ(services_.AuthorizationCreateFromExternalForm(&form, nullptr), platform::errAuthorizationInvalidPointer);
  EXPECT_EQ(services_.AuthorizationRightSet(&foreign, "r", platform::Value::string("allow")),
            platform::errAuthorizationInvalidRef);
  EXPECT_EQ(services_.AuthorizationRightSet(authorization, nullptr, platform::Value::string("allow")),
            platform::errAuthorizationInvalidPointer);
  EXPECT_EQ(services_.AuthorizationFree(nullptr, 0), platform::errAuthorizationInvalidRef);
  EXPECT_EQ(services_.AuthorizationFree(&foreign, 0), platform::errAuthorizationInvalidRef);
  EXPECT_EQ(services_.AuthorizationFree(authorization, 0), platform::errAuthorizationSuccess);
}

// --- External forms ---

TEST_F(LinuxAuthorizationTest, AFormReachesExactlyTheRightsGrantedToItsAuthorization) {
  writeDatabase(ruleEntry("r.a", "allow") + ruleEntry("r.b", "allow"));
  AuthorizationExternalForm form;
  AuthorizationRef authorization = grantAndExport("r.a", &form);
  EXPECT_EQ(receivedHolds(form, "r.a"), platform::errAuthorizationSuccess);
  EXPECT_EQ(receivedHolds(form, "r.b"), platform::errAuthorizationDenied);

  // A right granted after the form was made travels with it too.
  EXPECT_EQ(copyRight(authorization, "r.b", kExtend), platform::errAuthorizationSuccess);
  EXPECT_EQ(receivedHolds(form, "r.b"), platform::errAuthorizationSuccess);

  // Making the form again gives the same form.
  AuthorizationExternalForm again;
  ASSERT_EQ(services_.AuthorizationMakeExternalForm(authorization, &again), platform::errAuthorizationSuccess);
  EXPECT_EQ(0, std::memcmp(form.bytes, again.bytes, sizeof form.bytes));
  services_.AuthorizationFree(authorization, platform::kAuthorizationFlagDestroyRights);
}

TEST_F(LinuxAuthorizationTest, FormsAreRandomAndRecordedPrivately) {
  writeDatabase(ruleEntry("r", "allow"));
  AuthorizationExternalForm first, second;
  AuthorizationRef a = grantAndExport("r", &first);
  AuthorizationRef b = grantAndExport("r", &second);
  EXPECT_NE(0, std::memcmp(first.bytes, second.bytes, sizeof first.bytes));
  EXPECT_EQ(authorization_testing::modeOf(grants()), 0700);
  std::size_t records = 0;
  for (const auto& entry : std::filesystem::directory_iterator(grants())) {
    EXPECT_EQ(entry.path().filename().string().size(), 64u);
    EXPECT_EQ(authorization_testing::modeOf(entry.path()), 0600);
    ++records;
  }
  EXPECT_EQ(records, 2u);  // nothing left over from the atomic replacement
  services_.AuthorizationFree(a, platform::kAuthorizationFlagDestroyRights);
  services_.AuthorizationFree(b, platform::kAuthorizationFlagDestroyRights);
}

TEST_F(LinuxAuthorizationTest, AFormNobodyMadeIsUnknown) {
  writeDatabase(ruleEntry("r", "allow"));
  AuthorizationExternalForm made;
  AuthorizationRef authorization = grantAndExport("r", &made);
  AuthorizationExternalForm forged;
  ASSERT_EQ(getentropy(forged.bytes, sizeof forged.bytes), 0);
  AuthorizationExternalForm zeros;
  AuthorizationExternalForm nearlyMade = made;
  nearlyMade.bytes[31] ^= 1;
  for (const AuthorizationExternalForm* form : {&forged, &zeros, &nearlyMade}) {
    AuthorizationRef received = nullptr;
    EXPECT_EQ(services_.AuthorizationCreateFromExternalForm(form, &received), platform::errAuthorizationInvalidRef);
    EXPECT_EQ(received, nullptr);
  }
  services_.AuthorizationFree(authorization, 0);
}

TEST_F(LinuxAuthorizationTest, DestroyingRightsRevokesTheFormEverywhere) {
  writeDatabase(ruleEntry("r", "allow"));
  AuthorizationExternalForm form;
  AuthorizationRef authorization = grantAndExport("r", &form);
  AuthorizationRef received = nullptr;
  ASSERT_EQ(services_.AuthorizationCreateFromExternalForm(&form, &received), platform::errAuthorizationSuccess);

  ASSERT_EQ(services_.AuthorizationFree(authorization, platform::kAuthorizationFlagDestroyRights),
            platform::errAuthorizationSuccess);
  // Replaying the form is refused, and a handle made before no longer holds the right.
  EXPECT_EQ(receivedHolds(form, "r"), platform::errAuthorizationInvalidRef);
  EXPECT_EQ(copyRight(received, "r", 0), platform::errAuthorizationDenied);
  services_.AuthorizationFree(received, 0);
}

TEST_F(LinuxAuthorizationTest, FreeingWithoutDestroyingKeepsTheFormWhileItsMakerLives) {
  writeDatabase(ruleEntry("r", "allow"));
  AuthorizationExternalForm form;
  services_.AuthorizationFree(grantAndExport("r", &form), platform::kAuthorizationFlagDefaults);
  EXPECT_EQ(receivedHolds(form, "r"), platform::errAuthorizationSuccess);
}

TEST_F(LinuxAuthorizationTest, AFormOfAMakerThatExitedIsRefused) {
  writeDatabase(ruleEntry("r", "allow"));
  int pipeEnds[2];
  ASSERT_EQ(pipe(pipeEnds), 0);
  const int status = authorization_testing::runInChild([&] {
    AuthorizationExternalForm form;
    grantAndExport("r", &form);
    return write(pipeEnds[1], form.bytes, sizeof form.bytes) == sizeof form.bytes ? 0 : 1;
  });
  close(pipeEnds[1]);
  AuthorizationExternalForm form;
  ASSERT_EQ(read(pipeEnds[0], form.bytes, sizeof form.bytes), static_cast<ssize_t>(sizeof form.bytes));
  close(pipeEnds[0]);
  ASSERT_EQ(status, 0);
  EXPECT_EQ(receivedHolds(form, "r"), platform::errAuthorizationInvalidRef);
  EXPECT_TRUE(std::filesystem::is_empty(grants()));  // the stale record went with the refusal
}

TEST_F(LinuxAuthorizationTest, AnUnrecordableRightNameMakesNoForm) {
  writeDatabase(ruleEntry("r", "allow"));
  ActingAs root(0);
  AuthorizationRef authorization = create();
  ASSERT_EQ(copyRight(authorization, "r\nright everything", kExtend), platform::errAuthorizationSuccess);
  AuthorizationExternalForm form;
  EXPECT_EQ(services_.AuthorizationMakeExternalForm(authorization, &form), platform::errAuthorizationInvalidSet);
  services_.AuthorizationFree(authorization, 0);
}

// --- Rule changes ---

TEST_F(LinuxAuthorizationTest, OnlyRootMayChangeARule) {
  const std::string before = dir_.read("authorization");
  {
    ActingAs user(501);
    AuthorizationRef authorization = create();
    EXPECT_EQ(services_.AuthorizationRightSet(authorization, "r", platform::Value::string("allow")),
              platform::errAuthorizationDenied);
    services_.AuthorizationFree(authorization, 0);
  }
  EXPECT_EQ(dir_.read("authorization"), before);

  ActingAs root(0);
  AuthorizationRef authorization = create();
  EXPECT_EQ(services_.AuthorizationRightSet(authorization, "r", platform::Value::integer(1)),
            platform::errAuthorizationInvalidSet);
  EXPECT_EQ(services_.AuthorizationRightSet(authorization, "r", platform::Value::string("deny")),
            platform::errAuthorizationSuccess);
  EXPECT_EQ(copyRight(authorization, "r", kExtend), platform::errAuthorizationDenied);
  EXPECT_EQ(services_.AuthorizationRightSet(authorization, "r",
                                            platform::Value::dictionary({{"rule", platform::Value::string("allow")}})),
            platform::errAuthorizationSuccess);
  EXPECT_EQ(copyRight(authorization, "r", kExtend), platform::errAuthorizationSuccess);
  services_.AuthorizationFree(authorization, 0);
}

}  // namespace
