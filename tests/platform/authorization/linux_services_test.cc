// Authorization Services on Linux against a private rights database and grants
// directory: rules, external forms and their records, revocation, and what a
// process that is not root can do.
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cstring>
#include <filesystem>
#include <fstream>
#include <functional>

#include "harness/installed.h"
#include "harness/skip_or_fail_under_ci.h"
#include "harness/temp_dir.h"
#include "platform/authorization/services.h"
#include "platform/foundation/user_ids.h"

namespace {

using namespace platform;
using Form = AuthorizationExternalForm;

constexpr AuthorizationFlags kExtend = kAuthorizationFlagExtendRights;
constexpr OSStatus kOk = errAuthorizationSuccess, kDenied = errAuthorizationDenied;
constexpr uid_t kNobody = 65534;

std::string databaseWith(const std::string& rights) {
  return "<plist version=\"1.0\"><dict><key>rights</key><dict>" + rights + "</dict></dict></plist>\n";
}

// Acts as the given effective user for the rules, without changing ids.
class ActingAs {
 public:
  explicit ActingAs(uid_t user) : ids_(user, user) {}

 private:
  const FixedUserIds ids_;
  const testing_support::Installed<UserIds> installed_{&ids_};
};

// Runs `body` in a forked child; its exit status, or -1 when it did not exit.
int runInChild(const std::function<int()>& body) {
  const pid_t child = fork();
  if (child == 0) _exit(body());
  int status = 0;
  return child > 0 && waitpid(child, &status, 0) == child && WIFEXITED(status) ? WEXITSTATUS(status) : -1;
}

class LinuxAuthorizationTest : public ::testing::Test {
 protected:
  LinuxAuthorizationTest() {
    dir_.write("authorization", databaseWith(
        "<key>r.allow</key><string>allow</string><key>r.deny</key><string>deny</string>"
        "<key>r.root</key><string>is-root</string><key>r.admin</key><string>authenticate-admin</string>"
        "<key>r.unknown</key><string>everyone</string><key>r.emptydict</key><dict/>"
        "<key>r.dict</key><dict><key>rule</key><string>allow</string></dict>"
        "<key>r.class</key><dict><key>class</key><string>allow</string></dict><key>r.number</key><real>1</real>"));
  }

  AuthorizationRef create() {
    AuthorizationRef authorization = nullptr;
    EXPECT_EQ(services_.AuthorizationCreate(nullptr, nullptr, 0, &authorization), kOk);
    return authorization;
  }
  OSStatus copyRight(AuthorizationRef authorization, const char* right, AuthorizationFlags flags = kExtend) {
    const AuthorizationItem item{right, 0, nullptr, 0};
    const AuthorizationRights rights{1, &item};
    return services_.AuthorizationCopyRights(authorization, &rights, nullptr, flags);
  }
  // The status of obtaining `right` on a new authorization, as `user`.
  OSStatus obtain(const char* right, uid_t user, AuthorizationFlags flags = kExtend) {
    ActingAs acting(user);
    AuthorizationRef authorization = create();
    const OSStatus status = copyRight(authorization, right, flags);
    services_.AuthorizationFree(authorization, 0);
    return status;
  }
  // A new authorization granted `right`, and its external form.
  AuthorizationRef grantAndExport(const char* right, Form* form) {
    AuthorizationRef authorization = create();
    EXPECT_EQ(copyRight(authorization, right), kOk);
    EXPECT_EQ(services_.AuthorizationMakeExternalForm(authorization, form), kOk);
    return authorization;
  }
  // The status of asking, through a handle made from `form`, for `right` as already held.
  OSStatus receivedHolds(const Form& form, const char* right) {
    AuthorizationRef received = nullptr;
    OSStatus status = services_.AuthorizationCreateFromExternalForm(&form, &received);
    if (status != kOk) return status;
    status = copyRight(received, right, 0);
    services_.AuthorizationFree(received, 0);
    return status;
  }

  testing_support::TempDir dir_;
  const std::string database_ = dir_.file("authorization"), grants_ = dir_.file("grants");
  LinuxAuthorizationServices services_{{database_, grants_}};
};

TEST_F(LinuxAuthorizationTest, RulesDecideForTheCaller) {
  const OSStatus kNoInteraction = errAuthorizationInteractionNotAllowed;
  const struct {
    const char* right;
    OSStatus forRoot, forUser;
  } rows[] = {
      {"r.allow", kOk, kOk},
      {"r.dict", kOk, kOk},   // the rule under "rule"
      {"r.class", kOk, kOk},  // or under "class"
      {"r.deny", kDenied, kDenied},
      {"r.root", kOk, kDenied},
      {"r.undefined", kOk, kDenied},  // the default rule is root's
      {"r.admin", kNoInteraction, kNoInteraction},
      {"r.unknown", kDenied, kDenied},  // an unknown rule name
      {"r.emptydict", kDenied, kDenied},
      {"r.number", kDenied, kDenied},
  };
  for (const auto& row : rows) {
    EXPECT_EQ(obtain(row.right, 0), row.forRoot) << row.right;
    EXPECT_EQ(obtain(row.right, 501), row.forUser) << row.right;
  }
  // With interaction allowed there is still no agent to ask for credentials.
  EXPECT_EQ(obtain("r.admin", 0, kExtend | kAuthorizationFlagInteractionAllowed), kDenied);
}

TEST_F(LinuxAuthorizationTest, ADatabaseThatCannotBeTrustedOrUnderstoodGrantsNothing) {
  const std::string allowAll = databaseWith("<key>r</key><string>allow</string>");
  const auto put = [&](const std::string& contents) { std::ofstream(database_, std::ios::trunc) << contents; };
  const std::pair<const char*, std::function<void()>> rows[] = {
      {"writable by others", [&] { put(allowAll); chmod(database_.c_str(), 0666); }},
      {"a symbolic link", [&] { (void)!symlink(dir_.file("other").c_str(), database_.c_str()); }},
      {"not a property list", [&] { put("rights = allow everything\n"); }},
      {"an array at the root", [&] { put("<plist><array><string>allow</string></array></plist>"); }},
      {"larger than 16 MiB", [&] { put(allowAll); (void)!truncate(database_.c_str(), 16 * 1024 * 1024 + 1); }},
  };
  dir_.write("other", allowAll);
  for (const auto& [why, make] : rows) {
    std::filesystem::remove(database_);
    make();
    // Not even root's default rule applies: nothing about the database can be believed.
    EXPECT_EQ(obtain("r", 0), errAuthorizationInternal) << why;
  }
  std::filesystem::remove(database_);  // a missing database leaves the default rule
  EXPECT_EQ(obtain("r", 0), kOk);
  EXPECT_EQ(obtain("r", 501), kDenied);
}

TEST_F(LinuxAuthorizationTest, AFormReachesExactlyItsHeldGrantsUntilDestroyedAndIsKeptPrivately) {
  const ActingAs root(0);  // for the rights that only root obtains
  Form form, again, kept;
  AuthorizationRef authorization = grantAndExport("r.allow", &form);
  EXPECT_EQ(receivedHolds(form, "r.allow"), kOk);
  EXPECT_EQ(receivedHolds(form, "r.root"), kDenied);
  EXPECT_EQ(copyRight(authorization, "r.dict", 0), kDenied);  // without extending only what is held counts
  EXPECT_EQ(copyRight(authorization, "r.root"), kOk);         // a later grant travels too
  EXPECT_EQ(receivedHolds(form, "r.root"), kOk);
  ASSERT_EQ(services_.AuthorizationMakeExternalForm(authorization, &again), kOk);
  EXPECT_EQ(0, std::memcmp(form.bytes, again.bytes, sizeof form.bytes));
  again.bytes[31] ^= 1;
  EXPECT_EQ(receivedHolds(again, "r.allow"), errAuthorizationInvalidRef) << "a form one bit off";

  // Another authorization has another random form; a form freed without destroying lives on with its maker.
  services_.AuthorizationFree(grantAndExport("r.allow", &kept), kAuthorizationFlagDefaults);
  EXPECT_NE(0, std::memcmp(form.bytes, kept.bytes, sizeof form.bytes));
  EXPECT_EQ(receivedHolds(kept, "r.allow"), kOk);
  // Only the grants' owner may list them or read a record, which is named by the form's 64 hex digits.
  using std::filesystem::perms;
  EXPECT_EQ(std::filesystem::status(grants_).permissions(), perms::owner_all);
  std::size_t records = 0;
  for (const auto& entry : std::filesystem::directory_iterator(grants_)) {
    EXPECT_EQ(entry.path().filename().string().size(), 64u);
    EXPECT_EQ(entry.status().permissions(), perms::owner_read | perms::owner_write);
    ++records;
  }
  EXPECT_EQ(records, 2u);  // nothing left over from the atomic replacement

  // Destroying revokes a form: no replay, and a handle made before holds nothing.
  AuthorizationRef received = nullptr;
  ASSERT_EQ(services_.AuthorizationCreateFromExternalForm(&form, &received), kOk);
  ASSERT_EQ(services_.AuthorizationFree(authorization, kAuthorizationFlagDestroyRights), kOk);
  EXPECT_EQ(receivedHolds(form, "r.allow"), errAuthorizationInvalidRef);
  EXPECT_EQ(copyRight(received, "r.allow", 0), kDenied);
  services_.AuthorizationFree(received, 0);
}

TEST_F(LinuxAuthorizationTest, ARecordIsBelievedOnlyAsItsMakerWroteItAndWhileItLives) {
  Form form;
  AuthorizationRef authorization = grantAndExport("r.allow", &form);
  const std::string name = std::filesystem::directory_iterator(grants_)->path().filename();
  const std::string path = grants_ + "/" + name, good = dir_.read("grants/" + name);
  // Writes the record with the line that starts with `field` replaced by `line`.
  const auto rewrite = [&](const std::string& field, const std::string& line) {
    std::filesystem::remove(path);
    const std::size_t at = good.find(field), end = good.find('\n', at);
    std::ofstream(path) << good.substr(0, at) + line + good.substr(end + 1);
    chmod(path.c_str(), 0600);
  };
  std::vector<std::pair<const char*, std::function<void()>>> rows = {
      {"a recycled pid: another start time", [&] { rewrite("start ", "start 1\n"); }},
      {"made during another boot", [&] { rewrite("boot ", "boot 01234567-89ab-cdef-0123-456789abcdef\n"); }},
      {"writable by the group", [&] { chmod(path.c_str(), 0620); }},
  };
  if (geteuid() == 0) rows.emplace_back("owned by another user", [&] { (void)!chown(path.c_str(), kNobody, 0); });
  for (const auto& [why, damage] : rows) {
    damage();
    EXPECT_EQ(receivedHolds(form, "r.allow"), errAuthorizationInvalidRef) << why;
    rewrite("form ", good.substr(0, good.find('\n') + 1));
  }
  EXPECT_EQ(receivedHolds(form, "r.allow"), kOk);  // the control: the record as written is believed

  // A form whose maker exited is refused, and its record goes.
  int ends[2];
  ASSERT_EQ(pipe(ends), 0);
  ASSERT_EQ(runInChild([&] {
    grantAndExport("r.allow", &form);
    return write(ends[1], form.bytes, sizeof form.bytes) == sizeof form.bytes ? 0 : 1;
  }), 0);
  ASSERT_EQ(read(ends[0], form.bytes, sizeof form.bytes), 32);
  close(ends[0]);
  close(ends[1]);
  EXPECT_EQ(receivedHolds(form, "r.allow"), errAuthorizationInvalidRef);
  services_.AuthorizationFree(authorization, kAuthorizationFlagDestroyRights);
  EXPECT_TRUE(std::filesystem::is_empty(grants_));
}

TEST_F(LinuxAuthorizationTest, OnlyRootMayChangeARule) {
  const std::string before = dir_.read("authorization");
  {
    ActingAs user(501);
    AuthorizationRef authorization = create();
    EXPECT_EQ(services_.AuthorizationRightSet(authorization, "r.deny", Value::string("allow")), kDenied);
    services_.AuthorizationFree(authorization, 0);
  }
  EXPECT_EQ(dir_.read("authorization"), before);
  ActingAs root(0);
  AuthorizationRef authorization = create();
  EXPECT_EQ(services_.AuthorizationRightSet(authorization, "r", Value::integer(1)), errAuthorizationInvalidSet);
  EXPECT_EQ(services_.AuthorizationRightSet(authorization, "r", Value::string("deny")), kOk);
  EXPECT_EQ(copyRight(authorization, "r"), kDenied);  // the rules are read for each request
  const Value allow = Value::dictionary({{"rule", Value::string("allow")}});
  EXPECT_EQ(services_.AuthorizationRightSet(authorization, "r", allow), kOk);
  EXPECT_EQ(copyRight(authorization, "r"), kOk);
  EXPECT_EQ(copyRight(authorization, "r.allow"), kOk) << "the other rules are kept";
  services_.AuthorizationFree(authorization, 0);
}

TEST_F(LinuxAuthorizationTest, AnUnprivilegedProcessCanNeitherForgeNorReplayRootsForm) {
  if (geteuid() != 0) SKIP_OR_FAIL_UNDER_CI("needs root: drops to an unprivileged user in a child process");
  ASSERT_EQ(chmod(dir_.path().c_str(), 0711), 0);  // it may read the rules, as on a real system
  Form rootsForm;
  AuthorizationRef rootsAuthorization = grantAndExport("r.root", &rootsForm);
  // The child exits with the number of the first check that failed.
  const int failed = runInChild([&] {
    if (setresgid(kNobody, kNobody, kNobody) != 0 || setresuid(kNobody, kNobody, kNobody) != 0) return 1;
    AuthorizationRef own = create();
    Form ownForm;
    if (copyRight(own, "r.root") != kDenied) return 2;                                // root's right
    if (copyRight(own, "r.allow") != kOk) return 3;                                   // everybody's right
    if (services_.AuthorizationMakeExternalForm(own, &ownForm) != kDenied) return 4;  // recording a form
    if (receivedHolds(rootsForm, "r.root") != errAuthorizationInvalidRef) return 5;   // replaying root's
    return services_.AuthorizationRightSet(own, "r.root", Value::string("allow")) == kDenied ? 0 : 6;
  });
  EXPECT_EQ(failed, 0);
  EXPECT_EQ(receivedHolds(rootsForm, "r.root"), kOk);
  services_.AuthorizationFree(rootsAuthorization, kAuthorizationFlagDestroyRights);
}

}  // namespace
