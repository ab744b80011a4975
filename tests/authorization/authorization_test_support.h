// A private rights database and grants directory for the Linux Authorization
// Services, and the few helpers the tests of the stand-in share.
#pragma once

#include <gtest/gtest.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <functional>
#include <string>

#include "harness/temp_dir.h"
#include "platform/authorization_services.h"

namespace authorization_testing {

// The unprivileged user that root tests drop to.
inline constexpr uid_t kNobody = 65534;

// A rights database of the given "rights" entries, each `name` -> a rule string
// or an XML fragment for the value.
inline std::string databaseWith(const std::string& rightsEntries) {
  return "<?xml version=\"1.0\" encoding=\"UTF-8\"?>\n"
         "<!DOCTYPE plist PUBLIC \"-//Apple//DTD PLIST 1.0//EN\" "
         "\"http://www.apple.com/DTDs/PropertyList-1.0.dtd\">\n"
         "<plist version=\"1.0\"><dict><key>rights</key><dict>" +
         rightsEntries + "</dict></dict></plist>\n";
}

inline std::string ruleEntry(const std::string& right, const std::string& rule) {
  return "<key>" + right + "</key><string>" + rule + "</string>";
}

// Runs `body` in a forked child and returns its exit status (-1 when it did not exit).
inline int runInChild(const std::function<int()>& body) {
  pid_t child = fork();
  if (child == 0) _exit(body());
  int status = 0;
  if (child < 0 || waitpid(child, &status, 0) != child || !WIFEXITED(status)) return -1;
  return WEXITSTATUS(status);
}

// The permission bits of `path`, or -1 when it does not exist.
inline int modeOf(const std::string& path) {
  struct stat st {};
  return lstat(path.c_str(), &st) == 0 ? static_cast<int>(st.st_mode & 07777) : -1;
}

class LinuxAuthorizationTest : public ::testing::Test {
 protected:
  LinuxAuthorizationTest() { dir_.write("authorization", databaseWith("")); }

  void writeDatabase(const std::string& rightsEntries) {
    dir_.write("authorization", databaseWith(rightsEntries));
  }
  std::string database() const { return dir_.file("authorization"); }
  std::string grants() const { return dir_.file("grants"); }

  platform::AuthorizationRef create() {
    platform::AuthorizationRef authorization = nullptr;
    EXPECT_EQ(services_.AuthorizationCreate(nullptr, nullptr, 0, &authorization),
              platform::errAuthorizationSuccess);
    return authorization;
  }

  platform::OSStatus copyRight(platform::AuthorizationRef authorization, const char* right,
                               platform::AuthorizationFlags flags) {
    const platform::AuthorizationItem item{right, 0, nullptr, 0};
    const platform::AuthorizationRights rights{1, &item};
    return services_.AuthorizationCopyRights(authorization, &rights, nullptr, flags);
  }

  // A new authorization holding `right` (granted by the rules) and its external form.
  platform::AuthorizationRef grantAndExport(const char* right, platform::AuthorizationExternalForm* form) {
    platform::AuthorizationRef authorization = create();
    EXPECT_EQ(copyRight(authorization, right, platform::kAuthorizationFlagExtendRights),
              platform::errAuthorizationSuccess);
    EXPECT_EQ(services_.AuthorizationMakeExternalForm(authorization, form), platform::errAuthorizationSuccess);
    return authorization;
  }

  // The status of asking, through a handle made from `form`, for `right` as already held.
  platform::OSStatus receivedHolds(const platform::AuthorizationExternalForm& form, const char* right) {
    platform::AuthorizationRef received = nullptr;
    platform::OSStatus status = services_.AuthorizationCreateFromExternalForm(&form, &received);
    if (status != platform::errAuthorizationSuccess) return status;
    status = copyRight(received, right, platform::kAuthorizationFlagDefaults);
    services_.AuthorizationFree(received, platform::kAuthorizationFlagDefaults);
    return status;
  }

  testing_support::TempDir dir_;
  platform::LinuxAuthorizationServices services_{{database(), grants()}};
};

}  // namespace authorization_testing
