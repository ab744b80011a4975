// The system logs as systemd-journald records them: unified entries through its
// native socket, one too large for a datagram through a memory file, and
// legacy entries through syslog's /dev/log at their levels.
#include <grp.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>
#include <functional>
#include <memory>

#include "harness/skip_or_fail_under_ci.h"
#include "harness/system_journal.h"
#include "log/log_test_fixture.h"
#include "sandbox/sandbox.h"

namespace log_testing {
namespace {

using testing_support::JournalEntry;
using testing_support::SystemJournal;

class SystemJournalTest : public LogFacilityTest {
 protected:
  void SetUp() override {
    std::string whyNot;
    sandbox_ = qhv_sandbox::Sandbox::enter(&whyNot);
    if (!sandbox_) SKIP_OR_FAIL_UNDER_CI(whyNot);
    if (!SystemJournal::installed()) {
      SKIP_OR_FAIL_UNDER_CI(std::string(SystemJournal::kDaemonPath) + " or " + SystemJournal::kReaderPath +
                            " is missing (the systemd package)");
    }
    journal_ = SystemJournal::start();
    ASSERT_TRUE(journal_);
    // Entries go to the system's logs, not to the fixture's recorders.
    platform::UnifiedLogSink::setForTesting(nullptr);
    platform::LegacyLogSink::setForTesting(nullptr);
  }
  void TearDown() override {
    journal_.reset();
    sandbox_.reset();
  }

  // What the first `count` entries of process `sender` say: "<PRIORITY>
  // <SYSLOG_IDENTIFIER> <SUBSYSTEM> <CATEGORY> <MESSAGE>", "-" for a field the entry lacks.
  Lines entriesSent(std::size_t count, pid_t sender = getpid()) const {
    Lines lines;
    for (const JournalEntry& entry : journal_->entriesFrom(sender, count)) {
      std::string line;
      for (const char* name : {"PRIORITY", "SYSLOG_IDENTIFIER", "SUBSYSTEM", "CATEGORY", "MESSAGE"}) {
        const auto field = entry.find(name);
        line += (line.empty() ? "" : " ") + (field == entry.end() ? "-" : field->second);
      }
      lines.push_back(std::move(line));
    }
    return lines;
  }

  // Runs `send` in a child process as the sandbox's unprivileged user; the child's pid once it has ended.
  static pid_t sendAsUser(const std::function<void()>& send) {
    const pid_t child = ::fork();
    if (child == 0) {
      const gid_t group = qhv_sandbox::Sandbox::kGroupId;
      const uid_t user = qhv_sandbox::Sandbox::kUserId;
      if (::setgroups(1, &group) != 0 || ::setresgid(group, group, group) != 0 ||
          ::setresuid(user, user, user) != 0) {
        ::_exit(126);
      }
      send();
      ::_exit(0);
    }
    int status = -1;
    while (child > 0 && ::waitpid(child, &status, 0) < 0 && errno == EINTR) {
    }
    EXPECT_EQ(status, 0) << "the user's sender failed";
    return child;
  }

  const std::string sender_ = program_invocation_short_name;

 private:
  std::unique_ptr<qhv_sandbox::Sandbox> sandbox_;
  std::unique_ptr<SystemJournal> journal_;
};

TEST_F(SystemJournalTest, UnifiedEntriesArriveWithTheirPrioritySenderSubsystemAndCategory) {
  init(/*unified=*/true);
  LKSLog(LKSLogLevelDefault, "Scheduler %@ is running.", std::string("com.larkspan.quillhaven.scheduler"));
  LKSLog(LKSLogLevelInfo, "User canceled authentication.");
  LKSLog(LKSLogLevelDebug, "Connection interrupted with server.");
  LKSLog(LKSLogLevelError, "Reply:\n%@", std::string("{ Enabled = 1; }"));  // a value with a newline
  platform::os_log_with_type(platform::UnifiedLog::defaultLog(), platform::OS_LOG_TYPE_FAULT,
                             "Failed to open log file (%{public}d).", 13);
  const std::string handle = sender_ + " com.larkspan.quillhaven ctl ";
  EXPECT_EQ(entriesSent(5), (Lines{"5 " + handle + "Scheduler com.larkspan.quillhaven.scheduler is running.",
                                   "6 " + handle + "User canceled authentication.",
                                   "7 " + handle + "Connection interrupted with server.",
                                   "3 " + handle + "Reply:\n{ Enabled = 1; }",
                                   "2 " + sender_ + " - - Failed to open log file (13)."}));
}

TEST_F(SystemJournalTest, UsersEntryTooLargeForADatagramArrivesWholeThroughASealedMemoryFile) {
  // Numbered words, so that a lost, doubled or cut piece shows; far beyond what
  // a socket's default send buffer (about 208 KiB) takes in one datagram.
  std::string large;
  for (int word = 0; large.size() < 1024 * 1024; ++word) large += std::to_string(word) + " ";
  // Sent by a user: the daemon takes a memory file from anyone but root only when it is sealed.
  const pid_t sender = sendAsUser([&large] {
    platform::JournalSink journal;
    const platform::UnifiedLog log("com.larkspan.quillhaven", "ctl");
    journal.send(log, platform::OS_LOG_TYPE_DEFAULT, large);
    journal.send(log, platform::OS_LOG_TYPE_DEFAULT, "after");
  });
  const std::string head = "5 " + sender_ + " com.larkspan.quillhaven ctl ";
  Lines entries = entriesSent(2, sender);
  // A megabyte is compared here, and never printed whole.
  for (std::string& entry : entries) {
    if (entry == head + large) {
      entry = head + "<the large text, whole>";
    } else if (entry.size() > 200) {
      entry = entry.substr(0, 200) + "... (" + std::to_string(entry.size()) + " bytes)";
    }
  }
  EXPECT_EQ(entries, (Lines{head + "<the large text, whole>", head + "after"}));
}

TEST_F(SystemJournalTest, LegacyEntriesArriveThroughDevLogAtTheirLevelsWithoutDebug) {
  init(/*unified=*/false);
  LKSLog(LKSLogLevelDefault, "Scheduler is running.");
  LKSLog(LKSLogLevelInfo, "User canceled authentication.");
  LKSLog(LKSLogLevelDebug, "Connection interrupted with server.");
  LKSLog(LKSLogLevelError, "Connection became invalid with server.");
  EXPECT_EQ(entriesSent(3), (Lines{"4 com.larkspan.quillhaven - - Scheduler is running.",
                                   "4 com.larkspan.quillhaven - - User canceled authentication.",
                                   "3 com.larkspan.quillhaven - - Connection became invalid with server."}));
}

}  // namespace
}  // namespace log_testing
