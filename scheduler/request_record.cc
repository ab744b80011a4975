#include "scheduler/request_record.h"

#include <fcntl.h>
#include <unistd.h>

#include <cerrno>
#include <string_view>

#include "scheduler/state_files.h"

namespace dev_scheduler {
namespace {

constexpr std::string_view kArrayOpening = "<array>\n";
constexpr std::string_view kArrayClosing = "</array>\n</plist>\n";

platform::Dictionary recordOf(const ReceivedRequest& request) {
  using platform::Value;
  platform::Dictionary record;
  if (request.message) record.set(kRecordMessageKey, Value::integer(*request.message));
  if (request.payload) record.set(kRecordPayloadKey, request.payload);
  if (request.payloadUnreadable) record.set(kRecordPayloadUnreadableKey, Value::boolean(true));
  record.set(kRecordAuthPresentKey, Value::boolean(request.authPresent));
  if (request.authValid) record.set(kRecordAuthValidKey, Value::boolean(*request.authValid));
  record.set(kRecordPeerUIDKey, Value::integer(request.peer.uid));
  record.set(kRecordPeerPIDKey, Value::integer(request.peer.pid));
  return record;
}

// `record`'s text as an item of an XML array, followed by the array's closing:
// an array of one record written as the file is, from the opening on.
std::optional<std::string> itemText(const platform::Value& record, platform::ErrorRef* error) {
  const std::optional<platform::Bytes> alone =
      platform::dataWithPropertyList(platform::Value::array({record}), platform::PropertyListFormat::XML, error);
  if (!alone) return std::nullopt;
  const std::string_view text(reinterpret_cast<const char*>(alone->data()), alone->size());
  const std::size_t opening = text.find(kArrayOpening);
  if (opening == std::string_view::npos || !text.ends_with(kArrayClosing)) return std::nullopt;
  return std::string(text.substr(opening + kArrayOpening.size()));
}

// 0, or the errno value of a failing write of all of `text` at `offset`.
int writeAllAt(int fd, std::string_view text, off_t offset) {
  while (!text.empty()) {
    const ssize_t n = ::pwrite(fd, text.data(), text.size(), offset);
    if (n < 0 && errno == EINTR) continue;
    if (n <= 0) return n < 0 ? errno : EIO;
    text.remove_prefix(static_cast<std::size_t>(n));
    offset += n;
  }
  return 0;
}

}  // namespace

RequestRecord::~RequestRecord() { forgetFile(); }

void RequestRecord::forgetFile() {
  if (fd_ >= 0) ::close(fd_);
  fd_ = -1;
  written_.reset();
}

bool RequestRecord::appendedInPlace(const std::string& item, platform::ErrorRef* error) {
  struct stat now {};
  if (fd_ < 0 || !written_ || ::stat(path_.c_str(), &now) != 0 || !sameFileUnchanged(now, *written_) ||
      now.st_size < static_cast<off_t>(kArrayClosing.size())) {
    return false;
  }
  const int failure = writeAllAt(fd_, item, now.st_size - static_cast<off_t>(kArrayClosing.size()));
  if (failure != 0 || ::fstat(fd_, &now) != 0) {
    // Whatever the file holds now, the next record reads it anew.
    if (error) *error = fileError("cannot write", path_, failure != 0 ? failure : errno);
    forgetFile();
    return true;
  }
  written_ = now;
  return true;
}

bool RequestRecord::rewritten(const platform::Value& record, platform::ErrorRef* error) {
  forgetFile();
  bool missing = false;
  const platform::Value stored = readStateFile(path_, &missing, error);
  if (!missing && !stored) return false;
  if (!missing && !stored.asArray()) {
    if (error) *error = fileError("no array in", path_, EINVAL);
    return false;
  }
  platform::Array records = missing ? platform::Array() : *stored.asArray();
  records.push_back(record);
  const std::optional<platform::Bytes> contents = platform::dataWithPropertyList(
      platform::Value::array(std::move(records)), platform::PropertyListFormat::XML, error);
  if (!contents || !writeStateFileContents(path_, *contents, error)) return false;
  // Kept open for the next record, which goes in place while nobody else
  // writes the file.
  fd_ = ::open(path_.c_str(), O_WRONLY | O_CLOEXEC | O_NOFOLLOW);
  struct stat opened {};
  if (fd_ >= 0 && ::fstat(fd_, &opened) == 0 && opened.st_size == static_cast<off_t>(contents->size())) {
    written_ = opened;
  }
  return true;
}

bool RequestRecord::append(const ReceivedRequest& request, platform::ErrorRef* error) {
  const platform::Value record = platform::Value::dictionary(recordOf(request));
  platform::ErrorRef failure;
  const std::optional<std::string> item = itemText(record, &failure);
  if (item && appendedInPlace(*item, &failure)) {
    if (failure && error) *error = failure;
    return !failure;
  }
  return rewritten(record, error);
}

}  // namespace dev_scheduler
