// Unarchiving an error object from the platform's keyed-archive layout (see
// keyed_archive_format.h), admitting only the error class and the property-list
// classes. An object referenced several times is decoded once and shared, as
// the platform's unarchiver does; the walk of the UID graph refuses cycles,
// nesting beyond the codecs' cap and sharing that the expansion budget does not
// admit for the archive's size.
#include <cinttypes>
#include <cstdarg>
#include <cstdio>
#include <vector>

#include "platform/plist/binary_reader.h"
#include "platform/plist/codec_support.h"
#include "platform/plist/keyed_archive.h"
#include "platform/plist/keyed_archive_format.h"

namespace platform {
namespace {

using namespace keyed_archive;

enum class ClassKind : std::uint8_t { Error, Dictionary, Array, Date, Data, String };

struct AdmittedClass {
  std::string_view name;
  ClassKind kind;
};

// The classes that decode; the mutable variants read as their immutable kin.
constexpr AdmittedClass kAdmittedClasses[] = {
    {kErrorClass, ClassKind::Error},
    {kDictionaryClass, ClassKind::Dictionary},
    {"NSMutableDictionary", ClassKind::Dictionary},
    {kArrayClass, ClassKind::Array},
    {"NSMutableArray", ClassKind::Array},
    {kDateClass, ClassKind::Date},
    {kDataClass, ClassKind::Data},
    {"NSMutableData", ClassKind::Data},
    {kStringClass, ClassKind::String},
    {"NSMutableString", ClassKind::String},
};

class Decoder {
 public:
  Decoder(const Array& objects, std::size_t archiveBytes)
      : objects_(objects), states_(objects.size(), State::Unvisited), decoded_(objects.size()),
        weights_(objects.size()), budget_(archiveBytes) {}

  // Decodes the object that `reference` names, `depth` objects below the root:
  // where the decoded value stands among the error's values (an error's domain
  // and user info one level below it, the user info's keys and values two), at
  // which it is weighed. False with problem() set on any fault; a nil reference
  // gives an absent value.
  bool decode(const Value& reference, std::size_t depth, Value& out) {
    const std::optional<Uid> uid = reference.asUid();
    if (!uid) return fail("a reference is %s, not a UID", kindName(reference.kind()));
    if (uid->index == 0) {
      out = Value();
      return true;
    }
    if (uid->index >= objects_.size()) {
      return fail("reference %" PRIu64 " is past the %zu objects", uid->index, objects_.size());
    }
    const std::size_t index = uid->index;
    switch (states_[index]) {
      case State::Decoding: return fail("object %zu contains itself", index);
      case State::Decoded:
        out = decoded_[index];
        return count(weights_[index], depth);
      case State::Unvisited: break;
    }
    const codec::Weight before = weighed_;
    const Value& entry = objects_[index];
    if (const Dictionary* fields = entry.asDictionary()) {
      states_[index] = State::Decoding;
      if (!count(codec::Weight::object(0), depth) || !decodeObject(index, *fields, depth, out)) return false;
    } else if (entry.asArray() || entry.asUid()) {
      return fail("object %zu is %s, neither an object nor a plain value", index, kindName(entry.kind()));
    } else {
      out = entry;  // a string, number, boolean, date or data kept as it is
      if (!count(codec::Weight::object(codec::ExpansionBudget::payload(entry)), depth)) return false;
    }
    states_[index] = State::Decoded;
    decoded_[index] = out;
    // What decoding it added, less the `depth` levels that each of its objects
    // stood below the root: what it weighs standing at the top.
    const std::uint64_t objects = weighed_.objects - before.objects;
    weights_[index] = {weighed_.atTop - before.atTop - depth * objects, objects};
    return true;
  }

  // What went wrong, once decode() returned false.
  const std::string& problem() const { return problem_; }

 private:
  enum class State : std::uint8_t { Unvisited, Decoding, Decoded };

  bool fail(const char* format, ...) __attribute__((format(printf, 2, 3))) {
    char text[256];
    va_list arguments;
    va_start(arguments, format);
    std::vsnprintf(text, sizeof text, format, arguments);
    va_end(arguments);
    problem_ = text;
    return false;
  }

  static const char* kindName(Value::Kind kind) {
    switch (kind) {
      case Value::Kind::None: return "nothing";
      case Value::Kind::Boolean: return "a boolean";
      case Value::Kind::Integer: return "an integer";
      case Value::Kind::Real: return "a real";
      case Value::Kind::String: return "a string";
      case Value::Kind::Date: return "a date";
      case Value::Kind::Data: return "data";
      case Value::Kind::Array: return "an array";
      case Value::Kind::Dictionary: return "a dictionary";
      case Value::Kind::Error: return "an error";
      case Value::Kind::Uid: return "a UID";
    }
    return "a value";
  }

  // Adds `weight`, standing `depth` levels below the root, to the weight of the
  // value decoded so far, which must stay within the budget.
  bool count(const codec::Weight& weight, std::size_t depth) {
    weighed_.hold(weight, depth);
    if (budget_.admits(weighed_.atTop)) return true;
    return fail("%s", budget_.refusal("the archive").c_str());
  }

  bool decodeObject(std::size_t index, const Dictionary& fields, std::size_t depth, Value& out) {
    if (depth > codec::kMaxNestingDepth) return fail("nesting deeper than %zu levels", codec::kMaxNestingDepth);
    const std::optional<ClassKind> kind = classOf(index, fields);
    if (!kind) return false;
    switch (*kind) {
      case ClassKind::Error: return decodeError(index, fields, depth, out);
      case ClassKind::Dictionary: return decodeDictionary(index, fields, depth, out);
      case ClassKind::Array: return decodeArray(index, fields, depth, out);
      case ClassKind::Date: {
        const Value& time = fields.get(kTimeKey);
        if (!time.asReal() && !time.asInteger()) return fail("the date object %zu has no \"%s\"", index, kTimeKey);
        out = Value::date({time.doubleValue()});
        return true;
      }
      case ClassKind::Data: return decodeWrapped(index, fields, kBytesKey, Value::Kind::Data, "data", depth, out);
      case ClassKind::String:
        return decodeWrapped(index, fields, kTextKey, Value::Kind::String, "string", depth, out);
    }
    return false;
  }

  std::optional<ClassKind> classOf(std::size_t index, const Dictionary& fields) {
    const std::optional<Uid> uid = fields.get(kClassKey).asUid();
    if (!uid) {
      fail("object %zu has no \"%s\" reference", index, kClassKey);
      return std::nullopt;
    }
    const Dictionary* entry = uid->index < objects_.size() ? objects_[uid->index].asDictionary() : nullptr;
    const std::string* name = entry ? entry->get(kClassNameKey).asString() : nullptr;
    if (!name) {
      fail("the class of object %zu is not a class entry", index);
      return std::nullopt;
    }
    for (const AdmittedClass& admitted : kAdmittedClasses) {
      if (admitted.name == *name) return admitted.kind;
    }
    fail("object %zu is of class \"%.80s\", which is not decoded here", index, name->c_str());
    return std::nullopt;
  }

  bool decodeError(std::size_t index, const Dictionary& fields, std::size_t depth, Value& out) {
    // A missing code reads as 0, as decoding a missing integer does.
    const Value& code = fields.get(kCodeKey);
    if (code && !code.asInteger()) return fail("the code of error object %zu is %s", index, kindName(code.kind()));
    Value domain;
    if (!decode(fields.get(kDomainKey), depth + 1, domain)) return false;
    if (!domain.asString()) return fail("the domain of error object %zu is not a string", index);
    Value userInfo;
    const Value& userInfoReference = fields.get(kUserInfoKey);
    if (userInfoReference && !decode(userInfoReference, depth + 1, userInfo)) return false;
    if (userInfo && !userInfo.asDictionary()) return fail("the user info of error object %zu is not a dictionary", index);
    out = Value::error(Error::make(*domain.asString(), code.int64Value(),
                                   userInfo ? *userInfo.asDictionary() : Dictionary()));
    return true;
  }

  // The members under `key`: an array of references, each to a non-nil object.
  bool decodeMembers(std::size_t index, const Dictionary& fields, const char* key, std::size_t depth,
                     std::vector<Value>& members) {
    const Array* references = fields.get(key).asArray();
    if (!references) return fail("object %zu has no \"%s\" array", index, key);
    members.resize(references->size());
    for (std::size_t i = 0; i < references->size(); ++i) {
      if (!decode((*references)[i], depth + 1, members[i])) return false;
      if (!members[i]) return fail("member %zu of \"%s\" in object %zu is nil", i, key, index);
    }
    return true;
  }

  bool decodeArray(std::size_t index, const Dictionary& fields, std::size_t depth, Value& out) {
    std::vector<Value> members;
    if (!decodeMembers(index, fields, kMembersKey, depth, members)) return false;
    out = Value::array(Array(std::move(members)));
    return true;
  }

  bool decodeDictionary(std::size_t index, const Dictionary& fields, std::size_t depth, Value& out) {
    std::vector<Value> keys, members;
    if (!decodeMembers(index, fields, kKeysKey, depth, keys) ||
        !decodeMembers(index, fields, kMembersKey, depth, members)) {
      return false;
    }
    if (keys.size() != members.size()) {
      return fail("dictionary object %zu has %zu keys and %zu objects", index, keys.size(), members.size());
    }
    std::vector<Dictionary::Entry> entries;
    entries.reserve(keys.size());
    for (std::size_t i = 0; i < keys.size(); ++i) {
      const std::string* key = keys[i].asString();
      if (!key) return fail("key %zu of dictionary object %zu is %s", i, index, kindName(keys[i].kind()));
      entries.emplace_back(*key, std::move(members[i]));
    }
    out = Value::dictionary(Dictionary(std::move(entries)));
    return true;
  }

  // Data and strings wrapped in an object keep their value under `key`, in
  // place or behind a reference.
  bool decodeWrapped(std::size_t index, const Dictionary& fields, const char* key, Value::Kind kind,
                     const char* noun, std::size_t depth, Value& out) {
    const Value& field = fields.get(key);
    if (field.asUid()) {
      // Weighed a level below the wrapping object, which stands in its place: a
      // little heavier than it prints, and no archive this side writes does it.
      if (!decode(field, depth + 1, out)) return false;
    } else {
      out = field;
      // Bytes kept in place are the wrapping object's own, at its depth.
      if (!count({codec::ExpansionBudget::payload(field), 0}, depth)) return false;
    }
    if (out.kind() != kind) return fail("object %zu has no %s under \"%s\"", index, noun, key);
    return true;
  }

  const Array& objects_;
  std::vector<State> states_;
  std::vector<Value> decoded_;
  // What each decoded value weighs standing at the top, shared objects counted at every reference.
  std::vector<codec::Weight> weights_;
  const codec::ExpansionBudget budget_;
  codec::Weight weighed_;  // the value decoded so far, its root at the top
  std::string problem_;
};

// The error archived in `data`; null with `problem` set otherwise.
ErrorRef decodeArchive(std::span<const std::uint8_t> data, std::string& problem) {
  if (!binary_plist::looksLikeBinary(data)) {
    problem = "the data is not a binary property list";
    return nullptr;
  }
  const Value plist = binary_plist::read(data, problem);
  if (!plist) return nullptr;
  const Dictionary* archive = plist.asDictionary();
  if (!archive) {
    problem = "the top object is not a dictionary";
    return nullptr;
  }
  const std::string* archiver = archive->get(kArchiverKey).asString();
  const Integer* version = archive->get(kVersionKey).asInteger();
  if (!archiver || *archiver != kArchiver || !version || version->int64Value() != kVersion) {
    problem = "not made by NSKeyedArchiver version 100000";
    return nullptr;
  }
  const Array* objects = archive->get(kObjectsKey).asArray();
  if (!objects || objects->empty() || (*objects)[0] != Value::string(kNull)) {
    problem = "\"$objects\" does not start with \"$null\"";
    return nullptr;
  }
  const Dictionary* top = archive->get(kTopKey).asDictionary();
  if (!top || !top->contains(kRootKey)) {
    problem = "\"$top\" names no root";
    return nullptr;
  }
  Decoder decoder(*objects, data.size());
  Value root;
  if (!decoder.decode(top->get(kRootKey), 0, root)) {
    problem = decoder.problem();
    return nullptr;
  }
  const ErrorRef* error = root.asError();
  if (!error) {
    problem = root ? "the root object is not an error" : "the root object is nil";
    return nullptr;
  }
  return *error;
}

}  // namespace

ErrorRef unarchivedErrorFromData(std::span<const std::uint8_t> data, ErrorRef* failure) {
  std::string problem;
  ErrorRef error = decodeArchive(data, problem);
  if (!error && failure) *failure = coderError(NSCoderReadCorruptError, std::move(problem));
  return error;
}

}  // namespace platform
