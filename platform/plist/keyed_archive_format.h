// The keyed-archive layout, shared by its encoder and decoder.
//
//   {"$archiver": "NSKeyedArchiver", "$version": 100000,
//    "$top": {"root": UID},
//    "$objects": ["$null", ...]}
//
// A UID is an index into "$objects"; UID 0 ("$null") stands for nil. Strings,
// numbers and booleans sit in "$objects" as they are. Every other object is a
// dictionary of its fields plus "$class", the UID of a class entry
// {"$classname": name, "$classes": [name, superclass, ..., "NSObject"]}:
//
//   NSError        "NSCode" integer, "NSDomain" UID, "NSUserInfo" UID
//   NSDictionary   "NS.keys" and "NS.objects", arrays of UIDs of equal length
//   NSArray        "NS.objects", an array of UIDs
//   NSDate         "NS.time", seconds since 2001-01-01 UTC
//   NSData         "NS.data", the bytes
//   NSString       "NS.string", the text (as archives of mutable strings carry it)
#pragma once

#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>

#include "platform/plist/value.h"

namespace platform::keyed_archive {

inline constexpr const char* kArchiverKey = "$archiver";
inline constexpr const char* kArchiver = "NSKeyedArchiver";
inline constexpr const char* kVersionKey = "$version";
inline constexpr std::int64_t kVersion = 100000;
inline constexpr const char* kTopKey = "$top";
inline constexpr const char* kRootKey = "root";
inline constexpr const char* kObjectsKey = "$objects";
inline constexpr const char* kNull = "$null";

inline constexpr const char* kClassKey = "$class";
inline constexpr const char* kClassNameKey = "$classname";
inline constexpr const char* kClassesKey = "$classes";
inline constexpr const char* kRootClass = "NSObject";

inline constexpr const char* kErrorClass = "NSError";
inline constexpr const char* kDictionaryClass = "NSDictionary";
inline constexpr const char* kArrayClass = "NSArray";
inline constexpr const char* kDateClass = "NSDate";
inline constexpr const char* kDataClass = "NSData";
inline constexpr const char* kStringClass = "NSString";

inline constexpr const char* kCodeKey = "NSCode";
inline constexpr const char* kDomainKey = "NSDomain";
inline constexpr const char* kUserInfoKey = "NSUserInfo";
inline constexpr const char* kKeysKey = "NS.keys";
inline constexpr const char* kMembersKey = "NS.objects";
inline constexpr const char* kTimeKey = "NS.time";
inline constexpr const char* kBytesKey = "NS.data";
inline constexpr const char* kTextKey = "NS.string";

// The platform's codes for a coder's failures.
inline constexpr std::int64_t NSCoderReadCorruptError = 4864;
inline constexpr std::int64_t NSCoderInvalidValueError = 4866;

// An error of NSCocoaErrorDomain whose description is `problem`.
inline ErrorRef coderError(std::int64_t code, std::string problem) {
  Dictionary userInfo;
  userInfo.set(NSLocalizedDescriptionKey, Value::string("keyed archive: " + std::move(problem)));
  return Error::make(NSCocoaErrorDomain, code, std::move(userInfo));
}

}  // namespace platform::keyed_archive
