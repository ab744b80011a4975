#include "scheduler/request_record.h"

#include <cerrno>
#include <string_view>

#include "scheduler/state_files.h"

namespace dev_scheduler {
namespace {

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

// The same file, unchanged: every replacement makes a new one.
bool sameFile(const struct stat& a, const struct stat& b) {
  return a.st_dev == b.st_dev && a.st_ino == b.st_ino && a.st_size == b.st_size &&
         a.st_mtim.tv_sec == b.st_mtim.tv_sec && a.st_mtim.tv_nsec == b.st_mtim.tv_nsec;
}

}  // namespace

std::optional<platform::Bytes> RequestRecord::appendedToWritten(const platform::Value& record) const {
  struct stat now {};
  if (!written_ || ::stat(path_.c_str(), &now) != 0 || !sameFile(now, *written_)) return std::nullopt;
  // An array of one record written as the file is: the record's text sits
  // between the array's opening and the closing both end with.
  const std::optional<platform::Bytes> alone =
      platform::dataWithPropertyList(platform::Value::array({record}), platform::PropertyListFormat::XML, nullptr);
  const std::string_view opening = "<array>\n", closing = "</array>\n</plist>\n";
  auto endsWithClosing = [&](const platform::Bytes& bytes) {
    return bytes.size() >= closing.size() &&
           std::string_view(reinterpret_cast<const char*>(bytes.data()) + bytes.size() - closing.size(),
                            closing.size()) == closing;
  };
  if (!alone || !endsWithClosing(*alone) || !endsWithClosing(bytes_)) return std::nullopt;
  const std::string_view aloneText(reinterpret_cast<const char*>(alone->data()), alone->size());
  const std::size_t recordStart = aloneText.find(opening);
  if (recordStart == std::string_view::npos) return std::nullopt;
  platform::Bytes next(bytes_.begin(), bytes_.end() - static_cast<std::ptrdiff_t>(closing.size()));
  next.insert(next.end(), alone->begin() + static_cast<std::ptrdiff_t>(recordStart + opening.size()), alone->end());
  return next;
}

std::optional<platform::Bytes> RequestRecord::appendedToStored(const platform::Value& record,
                                                               platform::ErrorRef* error) const {
  bool missing = false;
  const platform::Value stored = readStateFile(path_, &missing, error);
  if (!missing && !stored) return std::nullopt;
  if (!missing && !stored.asArray()) {
    if (error) *error = fileError("no array in", path_, EINVAL);
    return std::nullopt;
  }
  platform::Array records = missing ? platform::Array() : *stored.asArray();
  records.push_back(record);
  return platform::dataWithPropertyList(platform::Value::array(std::move(records)), platform::PropertyListFormat::XML,
                                        error);
}

bool RequestRecord::append(const ReceivedRequest& request, platform::ErrorRef* error) {
  const platform::Value record = platform::Value::dictionary(recordOf(request));
  std::optional<platform::Bytes> next = appendedToWritten(record);
  if (!next) next = appendedToStored(record, error);
  if (!next) return false;
  if (!writeStateFileContents(path_, *next, error)) return false;
  bytes_ = std::move(*next);
  struct stat written {};
  written_ = ::stat(path_.c_str(), &written) == 0 ? std::optional<struct stat>(written) : std::nullopt;
  return true;
}

}  // namespace dev_scheduler
