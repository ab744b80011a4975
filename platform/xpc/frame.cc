#include "platform/xpc/frame.h"

#include <algorithm>
#include <cerrno>
#include <string_view>

#include "platform/plist/property_list.h"

namespace platform {
namespace {

constexpr std::array<std::uint8_t, 4> kMagic = {'X', 'P', 'C', '1'};
constexpr std::string_view kBinaryPropertyListMagic = "bplist00";

template <typename T>
void putBigEndian(std::uint8_t* out, T value) {
  for (std::size_t i = 0; i < sizeof(T); ++i) {
    out[i] = static_cast<std::uint8_t>(value >> (8 * (sizeof(T) - 1 - i)));
  }
}

template <typename T>
T getBigEndian(const std::uint8_t* in) {
  T value = 0;
  for (std::size_t i = 0; i < sizeof(T); ++i) value = static_cast<T>((value << 8) | in[i]);
  return value;
}

std::optional<XPCFrameHeader> failHeader(const std::string& description, ErrorRef* error) {
  if (error) *error = makeXPCTransportError(EBADMSG, "XPC frame header: " + description);
  return std::nullopt;
}

std::optional<Dictionary> failBody(const std::string& description, ErrorRef* error,
                                   ErrorRef cause = nullptr) {
  if (error) {
    *error = makeXPCTransportError(EBADMSG, "XPC frame body: " + description, std::move(cause));
  }
  return std::nullopt;
}

// UIDs belong to keyed archives, not to XPC dictionaries; the binary reader
// accepts them, the writer does not. Depth is bounded by the reader's cap.
bool holdsOnlyPropertyListObjects(const Value& value) {
  if (value.asUid()) return false;
  if (const Array* array = value.asArray()) {
    return std::all_of(array->begin(), array->end(), holdsOnlyPropertyListObjects);
  }
  if (const Dictionary* dictionary = value.asDictionary()) {
    return std::all_of(dictionary->begin(), dictionary->end(),
                       [](const auto& entry) { return holdsOnlyPropertyListObjects(entry.second); });
  }
  return true;
}

}  // namespace

ErrorRef makeXPCTransportError(int posixCode, std::string description, ErrorRef cause) {
  Dictionary userInfo{{NSLocalizedDescriptionKey, Value::string(std::move(description))}};
  if (cause) userInfo.set(NSUnderlyingErrorKey, Value::error(std::move(cause)));
  return Error::make(NSPOSIXErrorDomain, posixCode, std::move(userInfo));
}

std::array<std::uint8_t, kXPCFrameHeaderSize> encodeXPCFrameHeader(const XPCFrameHeader& header) {
  std::array<std::uint8_t, kXPCFrameHeaderSize> bytes{};
  std::copy(kMagic.begin(), kMagic.end(), bytes.begin());
  putBigEndian(&bytes[4], header.bodyLength);
  putBigEndian(&bytes[8], header.messageId);
  putBigEndian(&bytes[16], header.replyTo);
  return bytes;
}

Bytes encodeXPCFrame(const XPCFrameHeader& header, std::span<const std::uint8_t> body) {
  const auto head = encodeXPCFrameHeader(header);
  Bytes frame(head.size() + body.size());
  std::copy(head.begin(), head.end(), frame.begin());
  std::copy(body.begin(), body.end(), frame.begin() + static_cast<std::ptrdiff_t>(head.size()));
  return frame;
}

std::optional<XPCFrameHeader> decodeXPCFrameHeader(std::span<const std::uint8_t> bytes,
                                                   ErrorRef* error) {
  if (bytes.size() < kXPCFrameHeaderSize) {
    return failHeader("only " + std::to_string(bytes.size()) + " of 24 bytes", error);
  }
  if (!std::equal(kMagic.begin(), kMagic.end(), bytes.begin())) {
    return failHeader("bad magic at offset 0 (expected \"XPC1\")", error);
  }
  XPCFrameHeader header{getBigEndian<std::uint32_t>(&bytes[4]),
                        getBigEndian<std::uint64_t>(&bytes[8]),
                        getBigEndian<std::uint64_t>(&bytes[16])};
  if (header.bodyLength > kXPCFrameMaxBodyLength) {
    return failHeader("body length " + std::to_string(header.bodyLength) + " at offset 4 is over " +
                          std::to_string(kXPCFrameMaxBodyLength),
                      error);
  }
  if (header.messageId != 0 && header.replyTo != 0) {
    return failHeader("a reply (reply-to at offset 16) must not expect a reply (message id at offset 8)",
                      error);
  }
  return header;
}

std::optional<Bytes> encodeXPCFrameBody(const Dictionary& message, ErrorRef* error) {
  ErrorRef cause;
  std::optional<Bytes> body =
      dataWithPropertyList(Value::dictionary(message), PropertyListFormat::Binary, &cause);
  if (!body) {
    if (error) {
      *error = makeXPCTransportError(EINVAL, "XPC message is not a property list", std::move(cause));
    }
    return std::nullopt;
  }
  if (body->size() > kXPCFrameMaxBodyLength) {
    if (error) {
      *error = makeXPCTransportError(EMSGSIZE, "XPC message of " + std::to_string(body->size()) +
                                                   " bytes is over " +
                                                   std::to_string(kXPCFrameMaxBodyLength));
    }
    return std::nullopt;
  }
  return body;
}

std::optional<Dictionary> decodeXPCFrameBody(std::span<const std::uint8_t> body, ErrorRef* error) {
  if (body.size() < kBinaryPropertyListMagic.size() ||
      !std::equal(kBinaryPropertyListMagic.begin(), kBinaryPropertyListMagic.end(), body.begin())) {
    return failBody("not a binary property list (no \"bplist00\" at offset 0)", error);
  }
  ErrorRef cause;
  Value root = propertyListWithData(body, nullptr, &cause);
  if (root.isNone()) return failBody("binary property list does not parse", error, std::move(cause));
  const Dictionary* dictionary = root.asDictionary();
  if (!dictionary) return failBody("root object is not a dictionary", error);
  if (!holdsOnlyPropertyListObjects(root)) return failBody("dictionary holds a UID", error);
  return *dictionary;
}

}  // namespace platform
