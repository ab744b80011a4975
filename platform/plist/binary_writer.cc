// Objects are numbered in the order they are first met, parents before their
// items and a dictionary's keys before its values, so the top object is 0 and
// the output depends only on the value. Scalars are identified by their whole
// encoding (so 0.0 and -0.0 stay apart), containers by their storage, which
// also keeps a value that shares one container many times linear to write.
// Each object's weight is kept beside its place, as the reader weighs it: 1, plus
// the UTF-8 bytes of a string or the bytes of data, plus what its items and keys
// weigh a level down, a shared one at every reference.
#include "platform/plist/binary_writer.h"

#include <algorithm>
#include <bit>
#include <cinttypes>
#include <cstdio>
#include <unordered_map>
#include <vector>

#include "platform/plist/binary_format.h"
#include "platform/plist/codec_support.h"
#include "platform/plist/writer_support.h"

namespace platform::binary_plist {
namespace {

// The fewest of 1, 2, 4 or 8 bytes that hold `value`.
std::size_t bytesFor(std::uint64_t value) {
  if (value <= 0xFF) return 1;
  if (value <= 0xFFFF) return 2;
  if (value <= 0xFFFFFFFF) return 4;
  return 8;
}

template <typename Out>
void appendBigEndian(Out& out, std::uint64_t value, std::size_t size) {
  for (std::size_t i = size; i-- > 0;) {
    out.push_back(static_cast<typename Out::value_type>(value >> (8 * i)));
  }
}

template <typename Out>
void appendMarker(Out& out, std::uint8_t marker) {
  out.push_back(static_cast<typename Out::value_type>(marker));
}

// An unsigned integer object of the fewest bytes.
template <typename Out>
void appendUnsigned(Out& out, std::uint64_t value) {
  const std::size_t size = bytesFor(value);
  appendMarker(out, static_cast<std::uint8_t>(kInteger | std::countr_zero(size)));
  appendBigEndian(out, value, size);
}

// A marker of `kind` with its count in the low nibble, or after it when long.
template <typename Out>
void appendMarkerWithCount(Out& out, std::uint8_t kind, std::uint64_t count) {
  if (count < kLongCount) {
    appendMarker(out, static_cast<std::uint8_t>(kind | count));
    return;
  }
  appendMarker(out, kind | kLongCount);
  appendUnsigned(out, count);
}

std::string encodeInteger(const Integer& integer) {
  std::string out;
  if (integer.isUnsigned) {
    // Above INT64_MAX: the 16-byte two's-complement form, high half zero.
    appendMarker(out, kInteger | 4);
    appendBigEndian(out, 0, 8);
    appendBigEndian(out, integer.bits, 8);
  } else if (integer.int64Value() < 0) {
    appendMarker(out, kInteger | 3);
    appendBigEndian(out, integer.bits, 8);
  } else {
    appendUnsigned(out, integer.bits);
  }
  return out;
}

std::string encodeDouble(std::uint8_t marker, double value) {
  std::string out;
  appendMarker(out, marker);
  appendBigEndian(out, std::bit_cast<std::uint64_t>(value), 8);
  return out;
}

std::string encodeData(const Bytes& bytes) {
  std::string out;
  appendMarkerWithCount(out, kData, bytes.size());
  out.append(bytes.begin(), bytes.end());
  return out;
}

// ASCII as it is, anything else as big-endian UTF-16; nullopt for invalid UTF-8.
std::optional<std::string> encodeString(const std::string& text) {
  std::string out;
  if (std::all_of(text.begin(), text.end(), [](char c) { return static_cast<unsigned char>(c) < 0x80; })) {
    appendMarkerWithCount(out, kAsciiString, text.size());
    out.append(text);
    return out;
  }
  const std::optional<std::u16string> units = codec::utf16FromUtf8(text);
  if (!units) return std::nullopt;
  appendMarkerWithCount(out, kUtf16String, units->size());
  for (char16_t unit : *units) appendBigEndian(out, unit, 2);
  return out;
}

std::string encodeUid(Uid uid) {
  std::string out;
  const std::size_t size = bytesFor(uid.index);
  appendMarker(out, static_cast<std::uint8_t>(kUid | (size - 1)));
  appendBigEndian(out, uid.index, size);
  return out;
}

class Writer {
 public:
  explicit Writer(bool allowUids) : allowUids_(allowUids) {}

  std::optional<Bytes> write(const Value& top, std::string& problem) {
    Placed placed;
    if (!add(top, 0, placed)) {
      problem = "binary property list: cannot write " + what_ + " at " + route_.text();
      return std::nullopt;
    }
    Bytes bytes = emit();
    // Equal scalars and shared containers are stored once, so the document may
    // be smaller than the one the value was read from, and its budget lower.
    const codec::ExpansionBudget budget(bytes.size());
    if (!budget.admits(placed.weight.atTop)) {
      problem = "binary property list: cannot write the value: " + budget.refusal("it");
      return std::nullopt;
    }
    return bytes;
  }

 private:
  // One object to write: a scalar's whole encoding, or a container's references.
  struct Object {
    const std::string* scalar = nullptr;  // a key of scalars_, stable while it lives
    std::uint8_t containerKind = 0;       // kArray or kDictionary
    std::vector<std::uint64_t> references;  // a dictionary's keys, then its values
  };

  // Where an object went, how many container levels it spans downwards, and
  // what it weighs.
  struct Placed {
    std::uint64_t index = 0;
    std::uint16_t height = 0;
    codec::Weight weight;
  };

  // Adds `value`, enclosed by `depth` containers, unless it is already there.
  bool add(const Value& value, std::size_t depth, Placed& placed) {
    switch (value.kind()) {
      case Value::Kind::Boolean:
        return addScalar(std::string(1, static_cast<char>(*value.asBoolean() ? kTrue : kFalse)), 0, placed);
      case Value::Kind::Integer:
        return addScalar(encodeInteger(*value.asInteger()), 0, placed);
      case Value::Kind::Real:
        return addScalar(encodeDouble(kReal | 3, *value.asReal()), 0, placed);
      case Value::Kind::Date:
        return addScalar(encodeDouble(kDate, value.asDate()->sinceReferenceDate), 0, placed);
      case Value::Kind::Data:
        return addScalar(encodeData(*value.asData()), value.asData()->size(), placed);
      case Value::Kind::String:
        return addString(*value.asString(), placed);
      case Value::Kind::Array:
        return addArray(*value.asArray(), depth, placed);
      case Value::Kind::Dictionary:
        return addDictionary(*value.asDictionary(), depth, placed);
      case Value::Kind::Uid:
        if (allowUids_) return addScalar(encodeUid(*value.asUid()), 0, placed);
        return refuse("a UID, which is not a property-list object");
      case Value::Kind::Error: {
        const Error& error = **value.asError();
        char code[32];
        std::snprintf(code, sizeof code, "%" PRId64, error.code);
        return refuse("an error object (" + error.domain + " " + code +
                      "), which is not a property-list object");
      }
      case Value::Kind::None:
        break;
    }
    return refuse("an absent value");
  }

  // A scalar carrying `payload` bytes of text or data.
  bool addScalar(std::string encoding, std::uint64_t payload, Placed& placed) {
    const auto [entry, added] = scalars_.try_emplace(std::move(encoding), objects_.size());
    if (added) objects_.push_back({&entry->first, 0, {}});
    placed = {entry->second, 0, codec::Weight::object(payload)};
    return true;
  }

  bool addString(const std::string& text, Placed& placed) {
    std::optional<std::string> encoding = encodeString(text);
    if (!encoding) return refuse("a string that is not valid UTF-8");
    return addScalar(std::move(*encoding), text.size(), placed);
  }

  const Placed* findContainer(const void* storage) const {
    const auto found = containers_.find(storage);
    return found == containers_.end() ? nullptr : &found->second;
  }

  // A container met before is reused when it still fits under the nesting cap here.
  bool reuse(const Placed& seen, std::size_t depth, Placed& placed) {
    placed = seen;
    return depth + seen.height <= codec::kMaxNestingDepth || tooDeep();
  }

  // A new container gets its index before its items.
  bool enter(std::uint8_t kind, std::size_t depth, Placed& placed) {
    if (depth + 1 > codec::kMaxNestingDepth) return tooDeep();
    placed = {objects_.size(), 1, codec::Weight::object(0)};
    objects_.push_back({nullptr, kind, {}});
    return true;
  }

  bool addArray(const Array& array, std::size_t depth, Placed& placed) {
    if (const Placed* seen = findContainer(&array)) return reuse(*seen, depth, placed);
    if (!enter(kArray, depth, placed)) return false;
    std::vector<std::uint64_t> references;
    references.reserve(array.size());
    for (std::size_t i = 0; i < array.size(); ++i) {
      if (!addItem(array[i], depth, placed, references)) {
        route_.prependIndex(i);
        return false;
      }
    }
    return finishContainer(&array, placed, std::move(references));
  }

  bool addDictionary(const Dictionary& dictionary, std::size_t depth, Placed& placed) {
    if (const Placed* seen = findContainer(&dictionary)) return reuse(*seen, depth, placed);
    if (!enter(kDictionary, depth, placed)) return false;
    std::vector<std::uint64_t> references;
    references.reserve(2 * dictionary.size());
    for (const auto& [key, item] : dictionary) {
      Placed keyPlaced;
      if (!addString(key, keyPlaced)) {
        route_.prependKey(key);
        return false;
      }
      references.push_back(keyPlaced.index);
      placed.weight.hold(keyPlaced.weight, 1);
    }
    for (const auto& [key, item] : dictionary) {
      if (!addItem(item, depth, placed, references)) {
        route_.prependKey(key);
        return false;
      }
    }
    return finishContainer(&dictionary, placed, std::move(references));
  }

  // Adds one item of the container `parent`, grows the parent's height to cover
  // it and adds its weight, a level down, to the parent's.
  bool addItem(const Value& item, std::size_t depth, Placed& parent,
               std::vector<std::uint64_t>& references) {
    Placed placed;
    if (!add(item, depth + 1, placed)) return false;
    references.push_back(placed.index);
    parent.height = std::max<std::uint16_t>(parent.height, placed.height + 1);
    parent.weight.hold(placed.weight, 1);
    return true;
  }

  bool finishContainer(const void* storage, const Placed& placed,
                       std::vector<std::uint64_t> references) {
    objects_[placed.index].references = std::move(references);
    containers_.emplace(storage, placed);
    return true;
  }

  Bytes emit() const {
    const std::size_t referenceSize = bytesFor(objects_.size() - 1);
    Bytes out(kMagic.begin(), kMagic.end());
    std::vector<std::uint64_t> offsets;
    offsets.reserve(objects_.size());
    for (const Object& object : objects_) {
      offsets.push_back(out.size());
      if (object.scalar) {
        out.insert(out.end(), object.scalar->begin(), object.scalar->end());
        continue;
      }
      const std::size_t count = object.containerKind == kDictionary ? object.references.size() / 2
                                                                      : object.references.size();
      appendMarkerWithCount(out, object.containerKind, count);
      for (std::uint64_t reference : object.references) appendBigEndian(out, reference, referenceSize);
    }
    const std::uint64_t table = out.size();
    const std::size_t offsetSize = bytesFor(offsets.back());
    for (std::uint64_t offset : offsets) appendBigEndian(out, offset, offsetSize);
    out.insert(out.end(), kTrailerOffsetSize, 0);  // unused bytes and sort version
    out.push_back(static_cast<std::uint8_t>(offsetSize));
    out.push_back(static_cast<std::uint8_t>(referenceSize));
    appendBigEndian(out, objects_.size(), 8);
    appendBigEndian(out, 0, 8);  // the top object is the first one added
    appendBigEndian(out, table, 8);
    return out;
  }

  bool tooDeep() {
    return refuse("nesting deeper than " + std::to_string(codec::kMaxNestingDepth) + " levels");
  }

  bool refuse(std::string what) {
    what_ = std::move(what);
    return false;
  }

  const bool allowUids_;
  std::string what_;  // what could not be written
  codec::ValueRoute route_;  // and where
  std::vector<Object> objects_;
  // Every scalar by its encoding; node-based, so Object::scalar stays valid.
  std::unordered_map<std::string, std::uint64_t> scalars_;
  std::unordered_map<const void*, Placed> containers_;
};

}  // namespace

std::optional<Bytes> write(const Value& plist, std::string& problem) {
  return Writer(false).write(plist, problem);
}

std::optional<Bytes> writeWithUids(const Value& plist, std::string& problem) {
  return Writer(true).write(plist, problem);
}

}  // namespace platform::binary_plist
