// Reading whole files, as the platform's data objects read them.
#pragma once

#include <cstddef>
#include <string>

#include "platform/plist/value.h"

namespace platform {

// Files larger than this are refused rather than read: nothing the tool reads
// comes near it, and a device or pipe that never ends must not exhaust memory.
inline constexpr std::size_t kMaxReadFileSize = 64 * 1024 * 1024;

// Reads what `fd` holds up to its end into *contents. Returns 0, or an errno
// value; EFBIG when more than `maxSize` bytes come.
int readAll(int fd, std::size_t maxSize, Bytes* contents);

enum class FileReadResult { Read, Missing, Failed };

// Reads the file at `path` (links followed) into *contents: Missing when the
// path reaches nothing, for any reason (no entry, a loop of links, a name too
// long, a file where a folder should be), Failed with an NSPOSIXErrorDomain
// error whose description names the file and the reason (a directory, no
// permission, over kMaxReadFileSize) when it cannot be read.
FileReadResult readFile(const std::string& path, Bytes* contents, ErrorRef* error);

}  // namespace platform
