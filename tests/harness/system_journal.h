// systemd-journald as tests use it: started inside the current sandbox (never
// outside one) on the sandbox's fresh /run, keeping its journal there and
// neither reading from nor forwarding to the machine; /dev/log leads to its
// syslog socket, as on a system that runs it. Entries are read back with
// journalctl. Whatever of this fails is reported as a test failure.
#pragma once

#include <sys/types.h>

#include <cstddef>
#include <map>
#include <memory>
#include <string>
#include <vector>

namespace testing_support {

// One journal entry: each field's name and value.
using JournalEntry = std::map<std::string, std::string>;

class SystemJournal {
 public:
  static constexpr const char* kDaemonPath = "/lib/systemd/systemd-journald";
  static constexpr const char* kReaderPath = "/usr/bin/journalctl";

  // True when the daemon and its reader are installed.
  static bool installed();

  // Started and ready for entries on every socket; null, reported, when it cannot be.
  static std::unique_ptr<SystemJournal> start();

  // Stopped; its journal goes with the sandbox's /run.
  ~SystemJournal();
  SystemJournal(const SystemJournal&) = delete;
  SystemJournal& operator=(const SystemJournal&) = delete;

  // The entries that process `pid` sent, oldest first, once the daemon has
  // stored everything sent before the call, waiting a bounded time for
  // `count` of them; fewer when they do not come.
  std::vector<JournalEntry> entriesFrom(pid_t pid, std::size_t count) const;

 private:
  SystemJournal(pid_t daemon, int output) : daemon_(daemon), output_(output) {}

  pid_t daemon_;
  int output_;  // the daemon's own messages, for reports of its failures
};

}  // namespace testing_support
