// Keyed archives of error objects, in the platform's keyed-archive format: a
// binary property list {"$archiver": "NSKeyedArchiver", "$version": 100000,
// "$top": {"root": UID}, "$objects": ["$null", ...]} in which every object is
// referenced by UID and classes are named by "$classname" / "$classes".
#pragma once

#include <cstdint>
#include <optional>
#include <span>

#include "platform/plist/value.h"

namespace platform {

// The archive of `error`, its user info and its chain of causes. Nullopt with
// an error (NSCocoaErrorDomain, 4866) naming what cannot be archived and where:
// a UID or an absent value, text that is not UTF-8, nesting beyond the cap.
std::optional<Bytes> archivedDataWithRootError(const ErrorRef& error, ErrorRef* failure);

// The error object archived in `data`, decoding only the error class and the
// property-list classes (mutable variants included). Null with an error
// (NSCocoaErrorDomain, 4864) saying what is wrong for anything else: a root
// that is not an error, an unknown class anywhere, a broken or cyclic UID
// graph, nesting beyond the cap, a value of absurd size, bad input.
ErrorRef unarchivedErrorFromData(std::span<const std::uint8_t> data, ErrorRef* failure);

}  // namespace platform
