#include "scheduler/faults.h"

#include <array>
#include <cerrno>
#include <string_view>

#include "errors/lks_error.h"
#include "platform/plist/binary_writer.h"
#include "platform/plist/keyed_archive_format.h"
#include "platform/xpc/frame.h"
#include "scheduler/reply_encoding.h"
#include "scheduler/state_files.h"

namespace dev_scheduler {
namespace {

struct KindName {
  Fault::Kind kind;
  const char* name;
};

constexpr KindName kKindNames[] = {
    {Fault::Kind::ReplyPayload, kFaultReplyPayload},
    {Fault::Kind::ReplyError, kFaultReplyError},
    {Fault::Kind::UnparsablePayload, kFaultUnparsablePayload},
    {Fault::Kind::UnarchivableError, kFaultUnarchivableError},
    {Fault::Kind::GarbageError, kFaultGarbageError},
    {Fault::Kind::Close, kFaultClose},
    {Fault::Kind::BrokenFrame, kFaultBrokenFrame},
};

platform::ErrorRef faultFileError(const std::string& path, const std::string& problem) {
  return platform::Error::make(
      platform::NSPOSIXErrorDomain, EINVAL,
      {{platform::NSLocalizedDescriptionKey, platform::Value::string("bad fault in " + path + ": " + problem)}});
}

// The error an entry {"Domain", "Code", "UserInfo"?, "Underlying"?} describes;
// null when it describes none.
platform::ErrorRef errorFromEntry(const platform::Dictionary& entry) {
  const std::string* domain = entry.get(kFaultDomainKey).asString();
  const platform::Integer* code = entry.get(kFaultCodeKey).asInteger();
  if (!domain || !code) return nullptr;
  const platform::Dictionary* given = entry.get(kFaultUserInfoKey).asDictionary();
  platform::Dictionary userInfo = given ? *given : platform::Dictionary();
  if (const platform::Value& underlying = entry.get(kFaultUnderlyingKey)) {
    const platform::Dictionary* cause = underlying.asDictionary();
    platform::ErrorRef causeError = cause ? errorFromEntry(*cause) : nullptr;
    if (!causeError) return nullptr;
    userInfo.set(platform::NSUnderlyingErrorKey, platform::Value::error(causeError));
  }
  return LKSError::errorWithDomain(*domain, code->int64Value(), std::move(userInfo));
}

// A keyed archive that decodes well, but to a dictionary rather than an error.
platform::Bytes archiveOfDictionary() {
  namespace archive = platform::keyed_archive;
  using platform::Value;
  const Value classEntry = Value::dictionary(
      {{archive::kClassNameKey, Value::string(archive::kDictionaryClass)},
       {archive::kClassesKey, Value::array({Value::string(archive::kDictionaryClass), Value::string(archive::kRootClass)})}});
  const Value root = Value::dictionary({{archive::kKeysKey, Value::array({})},
                                        {archive::kMembersKey, Value::array({})},
                                        {archive::kClassKey, Value::uid(2)}});
  const Value top = Value::dictionary({
      {archive::kArchiverKey, Value::string(archive::kArchiver)},
      {archive::kVersionKey, Value::integer(archive::kVersion)},
      {archive::kTopKey, Value::dictionary({{archive::kRootKey, Value::uid(1)}})},
      {archive::kObjectsKey, Value::array({Value::string(archive::kNull), root, classEntry})},
  });
  std::string problem;
  return platform::binary_plist::writeWithUids(top, problem).value_or(platform::Bytes());
}

platform::Bytes bytesOf(std::string_view text) { return platform::Bytes(text.begin(), text.end()); }

// The reply a reply fault sends; nullopt with an error when it cannot be made.
std::optional<platform::Dictionary> faultyReply(const Fault& fault, platform::ErrorRef* error) {
  using platform::Value;
  switch (fault.kind) {
    case Fault::Kind::ReplyPayload:
      return payloadReply(fault.payload, error);
    case Fault::Kind::ReplyError:
      return errorReply(fault.error, error);
    case Fault::Kind::UnparsablePayload:
      return platform::Dictionary{{kReplyPayloadKey, Value::data(bytesOf("this is <not a property list"))}};
    case Fault::Kind::UnarchivableError:
      return platform::Dictionary{{kReplyErrorKey, Value::data(archiveOfDictionary())}};
    case Fault::Kind::GarbageError:
      return platform::Dictionary{{kReplyErrorKey, Value::data(bytesOf("no keyed archive"))}};
    case Fault::Kind::Close:
    case Fault::Kind::BrokenFrame:
      break;  // they send no reply
  }
  return platform::Dictionary();
}

}  // namespace

const char* faultKindName(Fault::Kind kind) {
  for (const KindName& entry : kKindNames) {
    if (entry.kind == kind) return entry.name;
  }
  return "unknown";
}

std::optional<Fault> faultForMessage(const std::string& path, QHVHelperMessage message, platform::ErrorRef* problem) {
  bool missing = false;
  const platform::Value faults = readStateFile(path, &missing, problem);
  if (missing || !faults) return std::nullopt;
  const platform::Dictionary* byMessage = faults.asDictionary();
  if (!byMessage) {
    if (problem) *problem = faultFileError(path, "the root is no dictionary");
    return std::nullopt;
  }
  const platform::Value& entryValue = byMessage->get(std::to_string(message));
  if (!entryValue) return std::nullopt;
  const platform::Dictionary* entry = entryValue.asDictionary();
  const std::string* kindName = entry ? entry->get(kFaultKindKey).asString() : nullptr;
  for (const KindName& known : kKindNames) {
    if (!kindName || *kindName != known.name) continue;
    Fault fault{known.kind, entry->get(kFaultPayloadKey), nullptr};
    if (fault.kind == Fault::Kind::ReplyPayload && !fault.payload) break;
    if (fault.kind == Fault::Kind::ReplyError && !(fault.error = errorFromEntry(*entry))) break;
    return fault;
  }
  if (problem) *problem = faultFileError(path, "the entry of message " + std::to_string(message) + " names no fault");
  return std::nullopt;
}

bool injectFault(platform::XPCPeer& peer, std::uint64_t requestId, const Fault& fault, platform::ErrorRef* error) {
  switch (fault.kind) {
    case Fault::Kind::Close:
      peer.close();
      return true;
    case Fault::Kind::BrokenFrame: {
      std::array<std::uint8_t, platform::kXPCFrameHeaderSize> header =
          platform::encodeXPCFrameHeader({0, 0, requestId});
      header[3] = '0';  // "XPC0": no frame of this format
      const bool sent = peer.sendBytes(header, error);
      peer.close();
      return sent;
    }
    default:
      break;
  }
  if (requestId == 0) return true;
  const std::optional<platform::Dictionary> reply = faultyReply(fault, error);
  return reply && peer.reply(requestId, *reply, error);
}

}  // namespace dev_scheduler
