// Assembling frames (platform/xpc/frame.h) from a byte stream as its bytes
// arrive, for both ends of a connection: the header first, then the body.
// Memory follows what arrived, never what a header announced, and the reader
// never asks for a byte past the end of the frame it assembles, so whatever
// follows a frame stays with the stream.
#pragma once

#include <cstddef>
#include <cstdint>
#include <span>

#include "platform/plist/value.h"
#include "platform/xpc/frame.h"

namespace platform {

class XPCFrameReader {
 public:
  enum class Progress : std::uint8_t {
    Partial,    // the frame lacks bytes still
    Complete,   // header() and takeBody() hold the frame
    Malformed,  // the header broke the frame format; the stream is unusable
  };

  // How many bytes the frame being assembled still lacks: the next read from
  // the stream must ask for at most this many. Not 0 until Complete.
  std::size_t missing() const;

  // Takes `bytes` (at most missing()) that came next on the stream.
  // Malformed, with an error, as soon as a complete header is refused.
  Progress append(std::span<const std::uint8_t> bytes, ErrorRef* error);

  // True while part of a frame is held: the stream stopped mid-frame if it ends now.
  bool holdsPartialFrame() const { return headerFill_ > 0; }

  // After Complete: the frame's header, and its body, handed over once; the
  // reader then starts on the next frame.
  const XPCFrameHeader& header() const { return header_; }
  Bytes takeBody();

 private:
  std::uint8_t headerBytes_[kXPCFrameHeaderSize] = {};
  std::size_t headerFill_ = 0;
  bool headerRead_ = false;
  XPCFrameHeader header_;
  Bytes body_;
};

}  // namespace platform
