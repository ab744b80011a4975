// Arbitrary bytes as a stream from a peer, read frame by frame as a connection
// reads them. Whatever is read as a frame must encode again, unless it is too
// heavy for the smaller body written, to a body that reads back the same, as
// values compare (a date that is not a number equals another); anything else
// must end the stream cleanly.
#include <sys/socket.h>
#include <unistd.h>

#include <cstdint>
#include <cstdlib>

#include "fuzz/weight_refusal.h"
#include "platform/xpc/socket.h"

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  int fds[2];
  if (::socketpair(AF_UNIX, SOCK_STREAM, 0, fds) != 0) std::abort();
  // Inputs are at most 64 KiB, well within a socket's buffer: the write never blocks.
  if (size > 0 && ::write(fds[1], data, size) != static_cast<ssize_t>(size)) std::abort();
  ::close(fds[1]);
  platform::XPCSocket socket(fds[0]);
  for (;;) {
    platform::XPCFrame frame;
    if (socket.receiveFrame(&frame, nullptr) != platform::XPCSocket::Received::Frame) break;
    platform::ErrorRef refusal;
    const std::optional<platform::Bytes> body = platform::encodeXPCFrameBody(frame.message, &refusal);
    if (!body) {
      if (!fuzzing::refusedForWeight(refusal)) std::abort();
      continue;
    }
    const std::optional<platform::Dictionary> again = platform::decodeXPCFrameBody(*body, nullptr);
    if (!again || !(*again == frame.message)) std::abort();
  }
  return 0;
}
