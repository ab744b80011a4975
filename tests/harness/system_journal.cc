#include "harness/system_journal.h"

#include <gtest/gtest.h>
#include <signal.h>
#include <sys/mman.h>
#include <sys/mount.h>
#include <sys/prctl.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>
#include <chrono>
#include <cstdint>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <string_view>
#include <thread>

#include "harness/end_to_end.h"
#include "harness/files.h"
#include "harness/tool_run.h"

namespace testing_support {
namespace {

constexpr const char* kNativeSocket = "/run/systemd/journal/socket";
constexpr const char* kSyslogSocket = "/run/systemd/journal/dev-log";
constexpr const char* kControlSocket = "/run/systemd/journal/io.systemd.journal";  // journalctl --sync
constexpr const char* kJournalDirectory = "/run/log/journal";
// Where the machine's /dev stays reachable once the sandbox has a /dev of its own.
constexpr const char* kMachineDevices = "/run/machine-dev";

// A drop-in that wins over the machine's settings: the journal only in /run,
// nothing read from the kernel and nothing passed on.
constexpr const char* kSettingsDirectory = "/run/systemd/journald.conf.d";
constexpr const char* kSettings =
    "[Journal]\n"
    "Storage=volatile\n"
    "ReadKMsg=no\n"
    "Audit=no\n"
    "ForwardToSyslog=no\n"
    "ForwardToKMsg=no\n"
    "ForwardToConsole=no\n"
    "ForwardToWall=no\n";

constexpr int kStartAttempts = 250;
constexpr int kReadAttempts = 50;
constexpr auto kPause = std::chrono::milliseconds(20);

bool succeeded(bool ok, const std::string& step) {
  if (!ok) ADD_FAILURE() << step << ": " << std::strerror(errno);
  return ok;
}

// syslog(3) writes to /dev/log, which the sandbox shares with the machine. The
// sandbox gets a /dev of its own whose entries lead to the machine's, and its
// /dev/log to the daemon's syslog socket.
bool leadDevLogToDaemon() {
  if (!succeeded(::mkdir(kMachineDevices, 0755) == 0, std::string("mkdir ") + kMachineDevices) ||
      !succeeded(::mount("/dev", kMachineDevices, nullptr, MS_BIND | MS_REC, nullptr) == 0, "bind /dev") ||
      !succeeded(::mount("tmpfs", "/dev", "tmpfs", MS_NOSUID | MS_NOEXEC, "mode=755") == 0, "fresh /dev")) {
    return false;
  }
  std::error_code error;
  for (const auto& device : std::filesystem::directory_iterator(kMachineDevices, error)) {
    const std::string link = "/dev/" + device.path().filename().string();
    if (!succeeded(::symlink(device.path().c_str(), link.c_str()) == 0, "link " + link)) return false;
  }
  if (error) {
    ADD_FAILURE() << "list " << kMachineDevices << ": " << error.message();
    return false;
  }
  return succeeded(::symlink(kSyslogSocket, "/dev/log") == 0, "link /dev/log");
}

bool writeSettings() {
  std::error_code error;
  std::filesystem::create_directories(kSettingsDirectory, error);
  std::ofstream file(std::string(kSettingsDirectory) + "/private.conf");
  file << kSettings;
  file.close();
  if (error || !file) {
    ADD_FAILURE() << "cannot write the daemon's settings in " << kSettingsDirectory;
    return false;
  }
  return true;
}

bool socketsOpen() {
  struct stat st {};
  for (const char* path : {kNativeSocket, kSyslogSocket, kControlSocket}) {
    if (::stat(path, &st) != 0 || !S_ISSOCK(st.st_mode)) return false;
  }
  return true;
}

// journalctl's export format: "NAME=value\n" for each field, or, for a value
// that is not plain text, "NAME\n", its length as 64-bit little endian, the
// value and "\n"; an empty line ends each entry. Parsing stops at anything else.
std::vector<JournalEntry> parseExport(std::string_view text) {
  std::vector<JournalEntry> entries;
  JournalEntry entry;
  std::size_t at = 0;
  while (at < text.size()) {
    if (text[at] == '\n') {
      entries.push_back(std::move(entry));
      entry.clear();
      ++at;
      continue;
    }
    const std::size_t nameEnd = text.find_first_of("=\n", at);
    if (nameEnd == std::string_view::npos) break;
    const std::string name(text.substr(at, nameEnd - at));
    if (text[nameEnd] == '=') {
      const std::size_t lineEnd = text.find('\n', nameEnd);
      if (lineEnd == std::string_view::npos) break;
      entry[name] = text.substr(nameEnd + 1, lineEnd - nameEnd - 1);
      at = lineEnd + 1;
      continue;
    }
    const std::size_t valueStart = nameEnd + 1 + sizeof(std::uint64_t);
    if (valueStart > text.size()) break;
    std::uint64_t length = 0;
    for (std::size_t i = sizeof length; i-- > 0;) {
      length = length << 8 | static_cast<unsigned char>(text[nameEnd + 1 + i]);
    }
    if (length >= text.size() - valueStart) break;  // the value and its "\n"
    entry[name] = text.substr(valueStart, length);
    at = valueStart + length + 1;
  }
  return entries;
}

}  // namespace

bool SystemJournal::installed() { return ::access(kDaemonPath, X_OK) == 0 && ::access(kReaderPath, X_OK) == 0; }

std::unique_ptr<SystemJournal> SystemJournal::start() {
  // It takes over the system's journal sockets and /dev/log: only ever those of a sandbox.
  if (!inSandbox()) {
    ADD_FAILURE() << "the journal daemon runs only inside a sandbox";
    return nullptr;
  }
  if (!leadDevLogToDaemon() || !writeSettings()) return nullptr;
  const int output = ::memfd_create("journald-output", MFD_CLOEXEC);
  if (!succeeded(output >= 0, "memfd_create")) return nullptr;
  const pid_t daemon = ::fork();
  if (daemon == 0) {
    ::prctl(PR_SET_PDEATHSIG, SIGKILL);  // never outlives the test
    ::dup2(output, STDOUT_FILENO);
    ::dup2(output, STDERR_FILENO);
    char* const argv[] = {const_cast<char*>(kDaemonPath), nullptr};
    char* const env[] = {const_cast<char*>("SYSTEMD_LOG_TARGET=console"), nullptr};  // its own messages: not to the kernel's log
    ::execve(kDaemonPath, argv, env);
    ::_exit(127);
  }
  if (!succeeded(daemon > 0, "fork")) {
    ::close(output);
    return nullptr;
  }
  std::unique_ptr<SystemJournal> journal(new SystemJournal(daemon, output));
  for (int attempt = 0; attempt < kStartAttempts; ++attempt) {
    if (socketsOpen()) return journal;
    int status = 0;
    if (::waitpid(daemon, &status, WNOHANG) == daemon) {
      journal->daemon_ = -1;
      ADD_FAILURE() << "systemd-journald ended at start (status " << status << "): " << readDescriptor(output);
      return nullptr;
    }
    std::this_thread::sleep_for(kPause);
  }
  ADD_FAILURE() << "systemd-journald did not open its sockets: " << readDescriptor(output);
  return nullptr;
}

SystemJournal::~SystemJournal() {
  // Nothing to flush: the journal is thrown away with the sandbox's /run.
  if (daemon_ > 0) {
    ::kill(daemon_, SIGKILL);
    while (::waitpid(daemon_, nullptr, 0) < 0 && errno == EINTR) {
    }
  }
  ::close(output_);
}

std::vector<JournalEntry> SystemJournal::entriesFrom(pid_t pid, std::size_t count) const {
  const std::vector<std::string> query = {std::string("--directory=") + kJournalDirectory, "--output=export",
                                          "_PID=" + std::to_string(pid)};
  std::vector<JournalEntry> entries;
  for (int attempt = 0; attempt < kReadAttempts; ++attempt) {
    // Returns once the daemon has stored every entry that reached it before.
    runProgram(kReaderPath, {"--sync"});
    entries = parseExport(runProgram(kReaderPath, query).out);
    if (entries.size() >= count) break;
    std::this_thread::sleep_for(kPause);
  }
  return entries;
}

}  // namespace testing_support
