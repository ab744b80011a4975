// What a process that is not root can do with the Linux Authorization Services
// of a root-owned system: nothing beyond the rules' grants to it. Run as root;
// each case drops to an unprivileged user in a child process.
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <filesystem>

#include "authorization/authorization_test_support.h"

namespace {

using authorization_testing::kNobody;
using authorization_testing::LinuxAuthorizationTest;
using authorization_testing::ruleEntry;
using platform::AuthorizationExternalForm;
using platform::AuthorizationRef;

constexpr platform::AuthorizationFlags kExtend = platform::kAuthorizationFlagExtendRights;

bool dropToNobody() { return setresgid(kNobody, kNobody, kNobody) == 0 && setresuid(kNobody, kNobody, kNobody) == 0; }

class PrivilegeTest : public LinuxAuthorizationTest {
 protected:
  void SetUp() override {
    if (geteuid() != 0) GTEST_SKIP() << "needs root: drops to an unprivileged user in a child process";
    // The unprivileged user may read the rules, as on a real system, but not the grants.
    ASSERT_EQ(chmod(dir_.path().c_str(), 0711), 0);
    writeDatabase(ruleEntry("r.root", "is-root") + ruleEntry("r.allow", "allow"));
  }
};

TEST_F(PrivilegeTest, AnUnprivilegedProcessCanNeitherForgeNorReplayRootsForm) {
  AuthorizationExternalForm rootsForm;
  AuthorizationRef rootsAuthorization = grantAndExport("r.root", &rootsForm);

  // Each check the child makes, in order; the child exits with the number of the first that failed.
  const char* const checks[] = {
      "dropping to the unprivileged user",
      "a right that is root's is refused to it",
      "a right that the rules allow everybody is granted to it",
      "it cannot record a form of its own",
      "root's form is unknown to it",
      "a forged form is unknown to it",
      "it may not change a rule",
  };
  const int failed = authorization_testing::runInChild([&] {
    if (!dropToNobody()) return 1;
    AuthorizationRef own = create();
    if (copyRight(own, "r.root", kExtend) != platform::errAuthorizationDenied) return 2;
    if (copyRight(own, "r.allow", kExtend) != platform::errAuthorizationSuccess) return 3;
    AuthorizationExternalForm ownForm;
    if (services_.AuthorizationMakeExternalForm(own, &ownForm) != platform::errAuthorizationDenied) return 4;
    if (receivedHolds(rootsForm, "r.root") != platform::errAuthorizationInvalidRef) return 5;
    AuthorizationExternalForm forged;
    if (getentropy(forged.bytes, sizeof forged.bytes) != 0) return 6;
    if (receivedHolds(forged, "r.root") != platform::errAuthorizationInvalidRef) return 6;
    if (services_.AuthorizationRightSet(own, "r.root", platform::Value::string("allow")) !=
        platform::errAuthorizationDenied) {
      return 7;
    }
    return 0;
  });
  EXPECT_EQ(failed, 0) << (failed > 0 && failed <= 7 ? checks[failed - 1] : "the child did not exit");

  // Root's form still works for root, and the rule is unchanged.
  EXPECT_EQ(receivedHolds(rootsForm, "r.root"), platform::errAuthorizationSuccess);
  services_.AuthorizationFree(rootsAuthorization, platform::kAuthorizationFlagDestroyRights);
}

TEST_F(PrivilegeTest, AFormRecordedByAnUnprivilegedProcessIsNotAcceptedByRoot) {
  // The unprivileged process gets a grants directory of its own, and uses it.
  const std::string ownGrants = dir_.file("own-grants");
  ASSERT_EQ(mkdir(ownGrants.c_str(), 0700), 0);
  ASSERT_EQ(chown(ownGrants.c_str(), kNobody, kNobody), 0);
  int toParent[2], toChild[2];
  ASSERT_EQ(pipe(toParent), 0);
  ASSERT_EQ(pipe(toChild), 0);
  const pid_t child = fork();
  ASSERT_GE(child, 0);
  if (child == 0) {
    platform::LinuxAuthorizationServices own({database(), ownGrants});
    AuthorizationRef authorization = nullptr;
    AuthorizationExternalForm form;
    const platform::AuthorizationItem item{"r.allow", 0, nullptr, 0};
    const platform::AuthorizationRights rights{1, &item};
    const bool made =
        dropToNobody() &&
        own.AuthorizationCreate(&rights, nullptr, kExtend, &authorization) == platform::errAuthorizationSuccess &&
        own.AuthorizationMakeExternalForm(authorization, &form) == platform::errAuthorizationSuccess;
    if (made && write(toParent[1], form.bytes, sizeof form.bytes) == sizeof form.bytes) {
      char done;
      (void)!read(toChild[0], &done, 1);  // stays alive meanwhile, so its record is not stale
    }
    _exit(0);
  }
  close(toParent[1]);
  AuthorizationExternalForm form;
  const bool received = read(toParent[0], form.bytes, sizeof form.bytes) == sizeof form.bytes;
  platform::LinuxAuthorizationServices rootsView({database(), ownGrants});
  AuthorizationRef handle = nullptr;
  const platform::OSStatus status = received ? rootsView.AuthorizationCreateFromExternalForm(&form, &handle)
                                             : platform::errAuthorizationInternal;
  (void)!write(toChild[1], "x", 1);
  close(toParent[0]);
  close(toChild[0]);
  close(toChild[1]);
  waitpid(child, nullptr, 0);
  ASSERT_TRUE(received) << "the unprivileged process could not make a form in its own directory";
  EXPECT_EQ(status, platform::errAuthorizationInvalidRef);
}

}  // namespace
