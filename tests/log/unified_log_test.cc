// The unified log's stand-in: entries as journal datagrams, and the formatting
// of unified-log statements.
#include "platform/unified_log.h"

#include <errno.h>
#include <fcntl.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/un.h>
#include <unistd.h>

#include <cstring>
#include <optional>
#include <utility>
#include <vector>

#include "harness/temp_dir.h"
#include "log/log_test_fixture.h"

namespace log_testing {
namespace {

using Fields = std::vector<std::pair<std::string, std::string>>;

// The fields of one native-protocol entry, in order; nullopt when malformed.
std::optional<Fields> parseEntry(std::string_view data) {
  Fields fields;
  std::size_t pos = 0;
  while (pos < data.size()) {
    const std::size_t separator = data.find_first_of("=\n", pos);
    if (separator == std::string_view::npos) return std::nullopt;
    std::string key(data.substr(pos, separator - pos));
    if (data[separator] == '=') {
      const std::size_t end = data.find('\n', separator);
      if (end == std::string_view::npos) return std::nullopt;
      fields.emplace_back(std::move(key), std::string(data.substr(separator + 1, end - separator - 1)));
      pos = end + 1;
      continue;
    }
    if (data.size() - separator - 1 < 8) return std::nullopt;
    std::uint64_t length = 0;
    for (int i = 7; i >= 0; --i) length = (length << 8) | static_cast<unsigned char>(data[separator + 1 + i]);
    const std::size_t valueStart = separator + 9;
    if (data.size() - valueStart < length + 1 || data[valueStart + length] != '\n') return std::nullopt;
    fields.emplace_back(std::move(key), std::string(data.substr(valueStart, length)));
    pos = valueStart + length + 1;
  }
  return fields;
}

// A journal socket bound in a private directory.
class FakeJournal {
 public:
  FakeJournal() : path_(dir_.file("journal.socket")) {}
  ~FakeJournal() {
    if (fd_ >= 0) ::close(fd_);
  }

  void bind() {
    fd_ = ::socket(AF_UNIX, SOCK_DGRAM | SOCK_CLOEXEC, 0);
    ASSERT_GE(fd_, 0);
    sockaddr_un address{};
    address.sun_family = AF_UNIX;
    std::strncpy(address.sun_path, path_.c_str(), sizeof address.sun_path - 1);
    ASSERT_EQ(::bind(fd_, reinterpret_cast<sockaddr*>(&address), sizeof address), 0) << std::strerror(errno);
    const int bufferSize = 8 << 20;
    ::setsockopt(fd_, SOL_SOCKET, SO_RCVBUF, &bufferSize, sizeof bufferSize);
  }

  const std::string& path() const { return path_; }

  // The next datagram waiting, with the descriptor it carried (-1 for none);
  // nullopt when nothing is waiting.
  std::optional<std::pair<std::string, int>> receive() {
    std::string buffer(1 << 16, '\0');
    iovec iov{buffer.data(), buffer.size()};
    alignas(cmsghdr) char control[CMSG_SPACE(sizeof(int))] = {};
    msghdr msg{};
    msg.msg_iov = &iov;
    msg.msg_iovlen = 1;
    msg.msg_control = control;
    msg.msg_controllen = sizeof control;
    const ssize_t n = ::recvmsg(fd_, &msg, MSG_DONTWAIT | MSG_CMSG_CLOEXEC);
    if (n < 0) return std::nullopt;
    buffer.resize(static_cast<std::size_t>(n));
    int passed = -1;
    if (cmsghdr* header = CMSG_FIRSTHDR(&msg); header && header->cmsg_type == SCM_RIGHTS) {
      std::memcpy(&passed, CMSG_DATA(header), sizeof passed);
    }
    return std::make_pair(buffer, passed);
  }

  // The next datagram, which must carry no descriptor.
  std::string receiveInline() {
    auto datagram = receive();
    if (!datagram) return "(nothing)";
    EXPECT_EQ(datagram->second, -1);
    return datagram->first;
  }

 private:
  testing_support::TempDir dir_;
  std::string path_;
  int fd_ = -1;
};

TEST(JournalSink, EntryCarriesMessagePrioritySenderSubsystemAndCategory) {
  FakeJournal journal;
  journal.bind();
  platform::JournalSink sink(journal.path());
  const platform::UnifiedLog log("com.larkspan.quillhaven", "ctl");
  sink.send(log, platform::OS_LOG_TYPE_DEFAULT, "Connection became invalid with server.");
  EXPECT_EQ(journal.receiveInline(), std::string("MESSAGE=Connection became invalid with server.\n"
                                                 "PRIORITY=5\n"
                                                 "SYSLOG_IDENTIFIER=") +
                                         program_invocation_short_name +
                                         "\n"
                                         "SUBSYSTEM=com.larkspan.quillhaven\n"
                                         "CATEGORY=ctl\n");
  EXPECT_EQ(journal.receive(), std::nullopt);  // one datagram per entry
}

TEST(JournalSink, DefaultHandleSendsNoSubsystemOrCategory) {
  FakeJournal journal;
  journal.bind();
  platform::JournalSink sink(journal.path());
  sink.send(*platform::UnifiedLog::defaultLog(), platform::OS_LOG_TYPE_ERROR, "Failed to open log file (2).");
  const std::optional<Fields> fields = parseEntry(journal.receiveInline());
  ASSERT_TRUE(fields);
  EXPECT_EQ(*fields, (Fields{{"MESSAGE", "Failed to open log file (2)."},
                             {"PRIORITY", "3"},
                             {"SYSLOG_IDENTIFIER", program_invocation_short_name}}));
}

TEST(JournalSink, PriorityFollowsTheEntryType) {
  const std::pair<std::uint8_t, int> cases[] = {
      {platform::OS_LOG_TYPE_DEFAULT, 5}, {platform::OS_LOG_TYPE_INFO, 6},
      {platform::OS_LOG_TYPE_DEBUG, 7},   {platform::OS_LOG_TYPE_ERROR, 3},
      {platform::OS_LOG_TYPE_FAULT, 2},   {0x05, 5},  // unknown types count as default
  };
  FakeJournal journal;
  journal.bind();
  platform::JournalSink sink(journal.path());
  const platform::UnifiedLog log("s", "c");
  for (const auto& [type, priority] : cases) {
    EXPECT_EQ(platform::journalPriorityForType(type), priority) << int(type);
    sink.send(log, type, "m");
    const std::optional<Fields> fields = parseEntry(journal.receiveInline());
    ASSERT_TRUE(fields && fields->size() > 1);
    EXPECT_EQ((*fields)[1], (std::pair<std::string, std::string>{"PRIORITY", std::to_string(priority)}));
  }
}

TEST(JournalSink, ValueWithANewlineTravelsWithItsLength) {
  FakeJournal journal;
  journal.bind();
  platform::JournalSink sink(journal.path());
  sink.send(platform::UnifiedLog("s", "line\nbreak"), platform::OS_LOG_TYPE_INFO, "two\nlines");
  const std::string datagram = journal.receiveInline();
  EXPECT_EQ(datagram.substr(0, 26), std::string("MESSAGE\n\x09\0\0\0\0\0\0\0two\nlines\n", 26));
  const std::optional<Fields> fields = parseEntry(datagram);
  ASSERT_TRUE(fields);
  ASSERT_EQ(fields->size(), 5u);
  EXPECT_EQ((*fields)[0].second, "two\nlines");
  EXPECT_EQ((*fields)[4], (std::pair<std::string, std::string>{"CATEGORY", "line\nbreak"}));
}

TEST(JournalSink, EntryTooLargeForADatagramTravelsInASealedMemoryFile) {
  FakeJournal journal;
  journal.bind();
  platform::JournalSink sink(journal.path());
  const std::string message(4 << 20, 'm');
  sink.send(platform::UnifiedLog("s", "c"), platform::OS_LOG_TYPE_DEFAULT, message);
  auto datagram = journal.receive();
  ASSERT_TRUE(datagram);
  EXPECT_EQ(datagram->first, "");
  const int memory = datagram->second;
  ASSERT_GE(memory, 0);
  const int seals = ::fcntl(memory, F_GET_SEALS);
  EXPECT_EQ(seals & (F_SEAL_WRITE | F_SEAL_SHRINK | F_SEAL_GROW), F_SEAL_WRITE | F_SEAL_SHRINK | F_SEAL_GROW);
  struct stat status {};
  ASSERT_EQ(::fstat(memory, &status), 0);
  std::string contents(static_cast<std::size_t>(status.st_size), '\0');
  EXPECT_EQ(::pread(memory, contents.data(), contents.size(), 0), status.st_size);
  ::close(memory);
  const std::optional<Fields> fields = parseEntry(contents);
  ASSERT_TRUE(fields);
  EXPECT_EQ((*fields)[0].second, message);
}

TEST(JournalSink, EntriesWithoutAJournalAreDroppedAndLaterOnesStillSent) {
  FakeJournal journal;
  platform::JournalSink sink(journal.path());
  const platform::UnifiedLog log("s", "c");
  sink.send(log, platform::OS_LOG_TYPE_DEFAULT, "nobody listens");
  journal.bind();
  sink.send(log, platform::OS_LOG_TYPE_DEFAULT, "journal started");
  const std::optional<Fields> fields = parseEntry(journal.receiveInline());
  ASSERT_TRUE(fields);
  EXPECT_EQ((*fields)[0].second, "journal started");
  EXPECT_EQ(journal.receive(), std::nullopt);
}

TEST(UnifiedLogFormat, PrivacyMarkersAreDropped) {
  const std::pair<const char*, const char*> cases[] = {
      {"plain text", "plain text"},
      {"Could not convert string '%{public}s'.", "Could not convert string '%s'."},
      {"%{private}@ and %{public}d", "%@ and %d"},
      {"100%% {public}", "100%% {public}"},  // an escaped percent starts no marker
      {"%%{public}s", "%%{public}s"},
      {"%{public", "%{public"},  // unterminated: kept as written
      {"ends with %", "ends with %"},
  };
  for (const auto& [format, expected] : cases)
    EXPECT_EQ(platform::formatWithoutPrivacyMarkers(format), expected) << format;
}

TEST(UnifiedLogFormat, StatementsFormatTheirArgumentsOrRecordTheFormat) {
  RecordingUnifiedSink recorder;
  platform::UnifiedLog::setSinkForTesting(&recorder);
  platform::UnifiedLog log("s", "c");
  platform::os_log_with_type(&log, platform::OS_LOG_TYPE_ERROR, "Could not format string '%{public}s'.",
                             "%d");
  platform::os_log_with_type(&log, platform::OS_LOG_TYPE_INFO, "%{public}s of %d",
                             "one");  // an argument short
  platform::os_log_with_type(nullptr, platform::OS_LOG_TYPE_ERROR, "disabled handle");
  platform::UnifiedLog::setSinkForTesting(nullptr);

  const std::vector<UnifiedEntry> entries = recorder.entries();
  ASSERT_EQ(entries.size(), 2u);
  EXPECT_EQ(entries[0].log, &log);
  EXPECT_EQ(entries[0].type, platform::OS_LOG_TYPE_ERROR);
  EXPECT_EQ(entries[0].message, "Could not format string '%d'.");
  EXPECT_EQ(entries[1].type, platform::OS_LOG_TYPE_INFO);
  EXPECT_EQ(entries[1].message, "%s of %d");
}

}  // namespace
}  // namespace log_testing
