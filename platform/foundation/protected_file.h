// Files whose contents decide who gets which rights: read only when nobody but
// root or this process's own user could have written them, and replaced in one
// step, so that a reader sees the old contents or the new, never a mix.
#pragma once

#include <sys/types.h>

#include <cstddef>
#include <span>
#include <string>

#include "platform/plist/value.h"

namespace platform {

// Reads the regular file at `path` (symbolic links are not followed) into
// *contents. Returns 0, or an errno value: ENOENT when there is no such file,
// EPERM when it is not a regular file, belongs to another user than root or
// this process's effective user, or is writable by group or others; EFBIG when
// it is larger than `maxSize`.
int readProtectedFile(const std::string& path, std::size_t maxSize, Bytes* contents);

// Whether a replaced file must survive a crash of the machine, or only matters
// while the system runs (then the costly sync to the disk is left out).
enum class Durability { SurvivesCrash, RunTimeOnly };

// Replaces the file at `path` with `contents` and permissions `mode` through a
// temporary file in the same directory that is renamed over it (and synced
// first for Durability::SurvivesCrash). Returns 0, or the errno value of the
// step that failed (nothing is replaced).
int replaceFileAtomically(const std::string& path, std::span<const std::uint8_t> contents,
                          mode_t mode, Durability durability = Durability::SurvivesCrash);

// Returns 0 when `path` is a directory (not a symbolic link) that belongs to
// root or this process's effective user and that group and others can neither
// read, write nor enter; otherwise an errno value (EPERM when it exists without
// those properties).
int checkPrivateDirectory(const std::string& path);

// Makes sure `path` is such a directory, creating it with mode 0700 when it is
// missing (its parent must exist). Returns 0 or an errno value.
int ensurePrivateDirectory(const std::string& path);

}  // namespace platform
