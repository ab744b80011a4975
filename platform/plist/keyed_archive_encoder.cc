// Archiving an error object in the platform's keyed-archive layout (see
// keyed_archive_format.h). Objects are numbered in the order they are met, an
// object before its fields; an object referenced twice is archived once, as the
// platform's archiver does for the same instance, and so are equal strings,
// equal data and each class entry. Equal data is merged rather than told apart
// by instance because binary property lists merge it anyway: an archive read
// back then archives to the same bytes. Beside each entry the encoder keeps
// what the decoder will weigh it, so that it never writes an archive that the
// decoder's budget refuses.
#include <cstdio>
#include <map>
#include <vector>

#include "platform/plist/binary_writer.h"
#include "platform/plist/codec_support.h"
#include "platform/plist/keyed_archive.h"
#include "platform/plist/keyed_archive_format.h"
#include "platform/plist/writer_support.h"

namespace platform {
namespace {

using namespace keyed_archive;

class Encoder {
 public:
  // The UID of `value`'s entry in "$objects", adding it and everything it
  // holds; nullopt when something in it cannot be archived (see problem()).
  std::optional<std::uint64_t> encode(const Value& value, std::size_t depth) {
    if (const void* identity = identityOf(value)) {
      if (const auto found = byIdentity_.find(identity); found != byIdentity_.end()) return found->second;
    }
    switch (value.kind()) {
      case Value::Kind::Boolean:
      case Value::Kind::Integer:
      case Value::Kind::Real: return append(value, codec::Weight::object(0));
      case Value::Kind::String: {
        const auto [entry, added] = strings_.try_emplace(*value.asString(), objects_.size());
        if (added) append(value, codec::Weight::object(value.asString()->size()));
        return entry->second;
      }
      case Value::Kind::Date: {
        Value entry = Value::dictionary({{kTimeKey, Value::real(value.asDate()->sinceReferenceDate)},
                                         {kClassKey, classReference(kDateClass)}});
        return append(std::move(entry), codec::Weight::object(0));
      }
      case Value::Kind::Data: {
        if (const auto found = data_.find(value.asData()); found != data_.end()) return found->second;
        Value entry = Value::dictionary({{kBytesKey, value}, {kClassKey, classReference(kDataClass)}});
        const std::uint64_t uid = append(std::move(entry), codec::Weight::object(value.asData()->size()));
        data_.emplace(value.asData(), uid);
        return uid;
      }
      case Value::Kind::Array: return encodeArray(value, depth);
      case Value::Kind::Dictionary: return encodeDictionary(value, depth);
      case Value::Kind::Error: return encodeError(value, depth);
      case Value::Kind::Uid: return refuse("a UID, which is not an archivable object");
      case Value::Kind::None: break;
    }
    return refuse("an absent value, which no collection can hold");
  }

  // The archive whose root is the object at `root`.
  Value archive(std::uint64_t root) && {
    return Value::dictionary({
        {kArchiverKey, Value::string(kArchiver)},
        {kObjectsKey, Value::array(Array(std::move(objects_)))},
        {kTopKey, Value::dictionary({{kRootKey, Value::uid(root)}})},
        {kVersionKey, Value::integer(kVersion)},
    });
  }

  // What could not be archived, and where, once encode() failed.
  std::string problem() const { return "cannot archive " + route_.text() + ": " + what_; }

  // What the decoder weighs the object at `uid`: 1, plus the bytes of its string
  // or data, plus what the objects it references weigh a level down, a shared
  // one at every reference.
  const codec::Weight& weight(std::uint64_t uid) const { return weights_[uid]; }

 private:
  // Containers and errors are objects of their own: one entry however often
  // they are referenced.
  static const void* identityOf(const Value& value) {
    if (const Array* array = value.asArray()) return array;
    if (const Dictionary* dictionary = value.asDictionary()) return dictionary;
    if (const ErrorRef* error = value.asError()) return error->get();
    return nullptr;
  }

// GCC 12 at -O3 reports a memcmp bound past any object inside std::vector's comparison here.
#if defined(__GNUC__) && !defined(__clang__)
#pragma GCC diagnostic push
#pragma GCC diagnostic ignored "-Wstringop-overread"
#endif
  struct ByContents {
    bool operator()(const Bytes* a, const Bytes* b) const { return *a < *b; }
  };
#if defined(__GNUC__) && !defined(__clang__)
#pragma GCC diagnostic pop
#endif

  std::uint64_t append(Value entry, const codec::Weight& weight) {
    objects_.push_back(std::move(entry));
    weights_.push_back(weight);
    return objects_.size() - 1;
  }

  // An entry numbered before its fields and filled in after them.
  std::uint64_t placeholder() {
    objects_.emplace_back();
    weights_.emplace_back();
    return objects_.size() - 1;
  }

  // The placeholder of an object that others may share.
  std::uint64_t reserve(const Value& value) {
    const std::uint64_t uid = placeholder();
    byIdentity_.emplace(identityOf(value), uid);
    return uid;
  }

  void fill(std::uint64_t uid, Value entry, const codec::Weight& weight) {
    objects_[uid] = std::move(entry);
    weights_[uid] = weight;
  }

  // Adds the weight of the object at `uid`, a level down, to a referencing object's `total`.
  void weigh(codec::Weight& total, std::uint64_t uid) const { total.hold(weights_[uid], 1); }

  // Containers and errors nest; strings, numbers, dates and data end a branch.
  bool tooDeep(std::size_t depth) {
    if (depth <= codec::kMaxNestingDepth) return false;
    what_ = "nesting deeper than " + std::to_string(codec::kMaxNestingDepth) + " levels";
    return true;
  }

  Value classReference(std::string_view name) {
    const auto [entry, added] = classes_.try_emplace(name, objects_.size());
    // A class entry is looked up by name, never decoded as an object: it weighs nothing.
    if (added) {
      append(Value::dictionary({
          {kClassNameKey, Value::string(std::string(name))},
          {kClassesKey, Value::array({Value::string(std::string(name)),
                                                   Value::string(kRootClass)})},
      }), {});
    }
    return Value::uid(entry->second);
  }

  std::optional<std::uint64_t> encodeArray(const Value& value, std::size_t depth) {
    if (tooDeep(depth)) return std::nullopt;
    const std::uint64_t uid = reserve(value);
    Array members;
    codec::Weight weight = codec::Weight::object(0);
    std::size_t index = 0;
    for (const Value& member : *value.asArray()) {
      const std::optional<std::uint64_t> memberUid = encode(member, depth + 1);
      if (!memberUid) return failedAt(index);
      members.push_back(Value::uid(*memberUid));
      weigh(weight, *memberUid);
      ++index;
    }
    Value entry = Value::dictionary({{kMembersKey, Value::array(std::move(members))},
                                     {kClassKey, classReference(kArrayClass)}});
    fill(uid, std::move(entry), weight);
    return uid;
  }

  std::optional<std::uint64_t> encodeDictionary(const Value& value, std::size_t depth) {
    if (tooDeep(depth)) return std::nullopt;
    const std::uint64_t uid = reserve(value);
    codec::Weight weight;
    std::optional<Value> entry = dictionaryEntry(*value.asDictionary(), depth, weight);
    if (!entry) return std::nullopt;
    fill(uid, std::move(*entry), weight);
    return uid;
  }

  // The fields of a dictionary's entry, and its weight; nullopt when a member
  // cannot be archived.
  std::optional<Value> dictionaryEntry(const Dictionary& dictionary, std::size_t depth, codec::Weight& weight) {
    Array keys, members;
    weight = codec::Weight::object(0);
    for (const auto& [key, member] : dictionary) {
      const std::uint64_t keyUid = *encode(Value::string(key), depth + 1);
      keys.push_back(Value::uid(keyUid));
      weigh(weight, keyUid);
      const std::optional<std::uint64_t> memberUid = encode(member, depth + 1);
      if (!memberUid) return failedAt(key);
      members.push_back(Value::uid(*memberUid));
      weigh(weight, *memberUid);
    }
    return Value::dictionary({{kKeysKey, Value::array(std::move(keys))},
                              {kMembersKey, Value::array(std::move(members))},
                              {kClassKey, classReference(kDictionaryClass)}});
  }

  std::optional<std::uint64_t> encodeError(const Value& value, std::size_t depth) {
    if (tooDeep(depth)) return std::nullopt;
    const Error& error = **value.asError();
    const std::uint64_t uid = reserve(value);
    codec::Weight weight = codec::Weight::object(0);
    const std::uint64_t domain = *encode(Value::string(error.domain), depth + 1);
    weigh(weight, domain);
    // No user info is nil, as the platform archives an error made without one.
    std::uint64_t userInfo = 0;
    if (!error.userInfo.empty()) {
      if (tooDeep(depth + 1)) return std::nullopt;
      userInfo = placeholder();
      codec::Weight userInfoWeight;
      std::optional<Value> entry = dictionaryEntry(error.userInfo, depth + 1, userInfoWeight);
      if (!entry) return std::nullopt;
      fill(userInfo, std::move(*entry), userInfoWeight);
      weigh(weight, userInfo);
    }
    Value entry = Value::dictionary({{kCodeKey, Value::integer(error.code)},
                                     {kDomainKey, Value::uid(domain)},
                                     {kUserInfoKey, Value::uid(userInfo)},
                                     {kClassKey, classReference(kErrorClass)}});
    fill(uid, std::move(entry), weight);
    return uid;
  }

  std::nullopt_t refuse(std::string what) {
    what_ = std::move(what);
    return std::nullopt;
  }
  std::nullopt_t failedAt(std::size_t index) {
    route_.prependIndex(index);
    return std::nullopt;
  }
  std::nullopt_t failedAt(std::string_view key) {
    route_.prependKey(key);
    return std::nullopt;
  }

  std::vector<Value> objects_{Value::string(kNull)};
  std::vector<codec::Weight> weights_{codec::Weight{}};  // by UID; nil weighs nothing
  std::map<const void*, std::uint64_t> byIdentity_;
  std::map<std::string, std::uint64_t, std::less<>> strings_;
  std::map<const Bytes*, std::uint64_t, ByContents> data_;  // the bytes live in the archived value
  std::map<std::string_view, std::uint64_t> classes_;
  std::string what_;
  codec::ValueRoute route_;
};

}  // namespace

std::optional<Bytes> archivedDataWithRootError(const ErrorRef& error, ErrorRef* failure) {
  std::string problem;
  std::optional<Bytes> bytes;
  if (!error) {
    problem = "there is no error to archive";
  } else {
    Encoder encoder;
    if (const std::optional<std::uint64_t> root = encoder.encode(Value::error(error), 0)) {
      const std::uint64_t weight = encoder.weight(*root).atTop;
      bytes = binary_plist::writeWithUids(std::move(encoder).archive(*root), problem);
      if (bytes) {
        const codec::ExpansionBudget budget(bytes->size());
        if (!budget.admits(weight)) {
          problem = "cannot archive the error: " + budget.refusal("it");
          bytes.reset();
        }
      }
    } else {
      problem = encoder.problem();
    }
  }
  if (!bytes && failure) *failure = coderError(NSCoderInvalidValueError, std::move(problem));
  return bytes;
}

}  // namespace platform
