#include "platform/xpc/frame_reader.h"

#include <algorithm>
#include <utility>

namespace platform {

std::size_t XPCFrameReader::missing() const {
  return headerRead_ ? header_.bodyLength - body_.size() : kXPCFrameHeaderSize - headerFill_;
}

XPCFrameReader::Progress XPCFrameReader::append(std::span<const std::uint8_t> bytes, ErrorRef* error) {
  if (!headerRead_) {
    std::copy(bytes.begin(), bytes.end(), headerBytes_ + headerFill_);
    headerFill_ += bytes.size();
    if (headerFill_ < kXPCFrameHeaderSize) return Progress::Partial;
    const std::optional<XPCFrameHeader> header = decodeXPCFrameHeader(headerBytes_, error);
    if (!header) return Progress::Malformed;
    header_ = *header;
    headerRead_ = true;
  } else {
    // Grows with what arrived: a peer that announces 16 MiB and sends nothing costs nothing.
    body_.insert(body_.end(), bytes.begin(), bytes.end());
  }
  return body_.size() == header_.bodyLength ? Progress::Complete : Progress::Partial;
}

Bytes XPCFrameReader::takeBody() {
  headerFill_ = 0;
  headerRead_ = false;
  return std::exchange(body_, {});
}

}  // namespace platform
