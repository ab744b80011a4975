// The frames that carry XPC dictionaries over a stream socket.
//
// Layout of one frame (integers big-endian):
//   bytes 0-3    "XPC1"
//   bytes 4-7    body length, at most kXPCFrameMaxBodyLength
//   bytes 8-15   message id: non-zero when the sender expects a reply; 0 for a
//                one-way message and for a reply
//   bytes 16-23  reply-to: 0 for a request; the request's message id for its reply
//   body         a binary property list ("bplist00") whose root is a dictionary
//
// Decoding failures are NSPOSIXErrorDomain EBADMSG errors whose description says
// what was wrong; a body that does not parse carries the parser's error as its cause.
#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <optional>
#include <span>
#include <string>

#include "platform/plist/value.h"

namespace platform {

// An NSPOSIXErrorDomain error with code `posixCode`, `description` as its text and
// `cause`, when given, underneath. Every failure of the XPC transport is one.
ErrorRef makeXPCTransportError(int posixCode, std::string description, ErrorRef cause = nullptr);

inline constexpr std::size_t kXPCFrameHeaderSize = 24;
inline constexpr std::uint32_t kXPCFrameMaxBodyLength = 16'777'216;

struct XPCFrameHeader {
  std::uint32_t bodyLength = 0;
  std::uint64_t messageId = 0;
  std::uint64_t replyTo = 0;
  friend bool operator==(const XPCFrameHeader&, const XPCFrameHeader&) = default;
};

// The 24 header bytes for `header`. The length is written as given, unchecked,
// so that a test peer can announce a body over the limit.
std::array<std::uint8_t, kXPCFrameHeaderSize> encodeXPCFrameHeader(const XPCFrameHeader& header);

// A whole frame: the header's bytes for `header`, then `body`, in one buffer
// that goes out with one send.
Bytes encodeXPCFrame(const XPCFrameHeader& header, std::span<const std::uint8_t> body);

// Reads the header at the start of `bytes`. Returns nullopt with an error when
// fewer than 24 bytes are given, the magic is wrong, the body length is over the
// limit, or the frame both answers a request and expects a reply.
std::optional<XPCFrameHeader> decodeXPCFrameHeader(std::span<const std::uint8_t> bytes,
                                                   ErrorRef* error);

// The body for `message`: its binary property list. Returns nullopt with an error
// when the dictionary holds a value that is not a property-list object or the
// result is over the length limit.
std::optional<Bytes> encodeXPCFrameBody(const Dictionary& message, ErrorRef* error);

// Reads a body. Returns nullopt with an error unless `body` is a binary property
// list whose root is a dictionary and which holds only property-list objects
// (so that whatever is received can be sent again).
std::optional<Dictionary> decodeXPCFrameBody(std::span<const std::uint8_t> body,
                                             ErrorRef* error);

}  // namespace platform
