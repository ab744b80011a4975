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
#include <cstring>
#include <string_view>
#include <utility>
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

// Writes into room made beforehand, so that a byte costs no check of capacity.
struct ByteCursor {
  using value_type = std::uint8_t;
  std::uint8_t* at;
  void push_back(std::uint8_t byte) { *at++ = byte; }
  void append(const char* bytes, std::size_t size) {
    std::memcpy(at, bytes, size);
    at += size;
  }
  std::size_t offsetIn(const Bytes& out) const { return static_cast<std::size_t>(at - out.data()); }
};

// The `size` (1 to 8) low bytes of `value`, big-endian, as the first `size` bytes of the word returned.
std::uint64_t bigEndianWord(std::uint64_t value, std::size_t size) {
  const std::uint64_t word = value << (64 - 8 * size);
  if constexpr (std::endian::native == std::endian::little) return __builtin_bswap64(word);
  return word;
}

// One store of eight bytes, of which the cursor moves past the first `size`: the
// room must reach seven bytes beyond them, which later bytes overwrite or the end cuts off.
void appendBigEndian(ByteCursor& out, std::uint64_t value, std::size_t size) {
  const std::uint64_t word = bigEndianWord(value, size);
  std::memcpy(out.at, &word, 8);
  out.at += size;
}

void appendBigEndian(std::string& out, std::uint64_t value, std::size_t size) {
  const std::uint64_t word = bigEndianWord(value, size);
  out.append(reinterpret_cast<const char*>(&word), size);
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

void encodeInteger(std::string& out, const Integer& integer) {
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
}

void encodeDouble(std::string& out, std::uint8_t marker, double value) {
  appendMarker(out, marker);
  appendBigEndian(out, std::bit_cast<std::uint64_t>(value), 8);
}

void encodeData(std::string& out, const Bytes& bytes) {
  appendMarkerWithCount(out, kData, bytes.size());
  out.append(bytes.begin(), bytes.end());
}

// ASCII as it is, anything else as big-endian UTF-16; false for invalid UTF-8.
bool encodeString(std::string& out, const std::string& text) {
  if (codec::asciiPrefixLength(text) == text.size()) {
    appendMarkerWithCount(out, kAsciiString, text.size());
    out.append(text);
    return true;
  }
  const std::optional<std::u16string> units = codec::utf16FromUtf8(text);
  if (!units) return false;
  appendMarkerWithCount(out, kUtf16String, units->size());
  for (char16_t unit : *units) appendBigEndian(out, unit, 2);
  return true;
}

void encodeUid(std::string& out, Uid uid) {
  const std::size_t size = bytesFor(uid.index);
  appendMarker(out, static_cast<std::uint8_t>(kUid | (size - 1)));
  appendBigEndian(out, uid.index, size);
}

// Open addressing with linear probes over slots that keep their key's hash, so
// that a probe compares keys only when the hashes agree and growing hashes
// nothing again. The table stays at most half full, so that probes stay short.
template <typename Slot>
class ProbedTable {
 public:
  std::size_t size() const { return count_; }
  // The memory it holds.
  std::size_t bytes() const { return slots_.capacity() * sizeof(Slot); }

  // Empties the table, keeping its room unless the last document used little of it.
  void clear() {
    if (8 * count_ < slots_.size()) {
      slots_ = {};
    } else {
      std::fill(slots_.begin(), slots_.end(), Slot{});
    }
    count_ = 0;
  }

  // The slot of hash `hash` that `same` accepts; nullptr when there is none.
  template <typename Same>
  Slot* find(std::size_t hash, Same same) {
    if (slots_.empty()) return nullptr;
    const std::size_t mask = slots_.size() - 1;
    for (std::size_t at = hash & mask; !slots_[at].isFree(); at = (at + 1) & mask) {
      if (slots_[at].hash == hash && same(slots_[at])) return &slots_[at];
    }
    return nullptr;
  }

  // A free slot for a new key of hash `hash`, marked with it, for the caller to
  // fill; it stays where it is until the next insertion.
  Slot& insert(std::size_t hash) {
    if (2 * (count_ + 1) > slots_.size()) grow();
    const std::size_t mask = slots_.size() - 1;
    std::size_t at = hash & mask;
    while (!slots_[at].isFree()) at = (at + 1) & mask;
    ++count_;
    slots_[at].hash = hash;
    return slots_[at];
  }

 private:
  void grow() {
    std::vector<Slot> slots(std::max<std::size_t>(64, 2 * slots_.size()));
    const std::size_t mask = slots.size() - 1;
    for (const Slot& slot : slots_) {
      if (slot.isFree()) continue;
      std::size_t at = slot.hash & mask;
      while (!slots[at].isFree()) at = (at + 1) & mask;
      slots[at] = slot;
    }
    slots_ = std::move(slots);
  }

  std::vector<Slot> slots_;
  std::size_t count_ = 0;
};

// One object to write: a scalar's whole encoding, from `begin` in the encodings,
// or a container's references, from `begin` in the references (a dictionary's
// keys, then its values). Every object's bytes sit in one of the two, so a
// document costs a handful of allocations however many objects it has.
struct Object {
  std::uint8_t containerKind = 0;  // kArray or kDictionary; 0 for a scalar
  std::size_t begin = 0;
  std::size_t count = 0;  // bytes of a scalar, references of a container
};

// Where an object went, how many container levels it spans downwards, and
// what it weighs.
struct Placed {
  std::uint64_t index = 0;
  std::uint16_t height = 0;
  codec::Weight weight;
};

struct ScalarSlot {
  std::size_t hash = 0;      // of its encoding
  std::uint64_t number = 0;  // the object's index plus one; 0 when free
  bool isFree() const { return number == 0; }
};

struct ContainerSlot {
  std::size_t hash = 0;           // of its storage's address
  const void* storage = nullptr;  // nullptr when free
  Placed placed;
  bool isFree() const { return storage == nullptr; }
};

// What a writer works in. Each thread keeps the last one it used, emptied, so
// that document after document reuses its memory rather than fetching fresh
// pages from the system, which cost as much as the writing itself; a large
// one is given back.
struct Workspace {
  std::vector<Object> objects;
  std::string encodings;  // every distinct scalar's encoding, once
  std::vector<std::uint64_t> references;  // every container's references, each container's together
  std::vector<std::uint64_t> pending;  // the references of the containers being added, innermost last
  ProbedTable<ScalarSlot> scalars;  // by encoding
  ProbedTable<ContainerSlot> containers;  // by storage

  static constexpr std::size_t kMostKept = std::size_t{32} << 20;

  // This thread's workspace, emptied; a fresh one when a writer of this thread already has it.
  static Workspace take() { return std::exchange(kept(), {}); }

  // Keeps `work` for the next document of this thread.
  static void keep(Workspace&& work) {
    const std::size_t bytes = work.objects.capacity() * sizeof(Object) + work.encodings.capacity() +
                              (work.references.capacity() + work.pending.capacity()) * sizeof(std::uint64_t) +
                              work.scalars.bytes() + work.containers.bytes();
    if (bytes > kMostKept) return;
    work.objects.clear();
    work.encodings.clear();
    work.references.clear();
    work.pending.clear();
    work.scalars.clear();
    work.containers.clear();
    kept() = std::move(work);
  }

 private:
  static Workspace& kept() {
    static thread_local Workspace workspace;
    return workspace;
  }
};

class Writer {
 public:
  explicit Writer(bool allowUids) : allowUids_(allowUids) {}
  ~Writer() { Workspace::keep(std::move(work_)); }
  Writer(const Writer&) = delete;
  Writer& operator=(const Writer&) = delete;

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
  // Adds `value`, enclosed by `depth` containers, unless it is already there.
  bool add(const Value& value, std::size_t depth, Placed& placed) {
    const std::size_t begin = work_.encodings.size();
    switch (value.kind()) {
      case Value::Kind::Boolean:
        appendMarker(work_.encodings, *value.asBoolean() ? kTrue : kFalse);
        return addScalar(begin, 0, placed);
      case Value::Kind::Integer:
        encodeInteger(work_.encodings, *value.asInteger());
        return addScalar(begin, 0, placed);
      case Value::Kind::Real:
        encodeDouble(work_.encodings, kReal | 3, *value.asReal());
        return addScalar(begin, 0, placed);
      case Value::Kind::Date:
        encodeDouble(work_.encodings, kDate, value.asDate()->sinceReferenceDate);
        return addScalar(begin, 0, placed);
      case Value::Kind::Data:
        encodeData(work_.encodings, *value.asData());
        return addScalar(begin, value.asData()->size(), placed);
      case Value::Kind::String:
        return addString(*value.asString(), placed);
      case Value::Kind::Array:
        return addArray(*value.asArray(), depth, placed);
      case Value::Kind::Dictionary:
        return addDictionary(*value.asDictionary(), depth, placed);
      case Value::Kind::Uid:
        if (!allowUids_) return refuse("a UID, which is not a property-list object");
        encodeUid(work_.encodings, *value.asUid());
        return addScalar(begin, 0, placed);
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

  std::string_view encodingOf(const Object& scalar) const {
    return std::string_view(work_.encodings).substr(scalar.begin, scalar.count);
  }

  // The scalar whose encoding was just appended to the encodings from `begin` on,
  // carrying `payload` bytes of text or data: an equal one met before, whose
  // bytes are kept instead, or a new object.
  bool addScalar(std::size_t begin, std::uint64_t payload, Placed& placed) {
    const std::string_view encoding = std::string_view(work_.encodings).substr(begin);
    const std::size_t hash = std::hash<std::string_view>{}(encoding);
    std::uint64_t number;
    if (const ScalarSlot* seen = work_.scalars.find(hash, [&](const ScalarSlot& slot) {
          return encodingOf(work_.objects[slot.number - 1]) == encoding;
        })) {
      number = seen->number;
      work_.encodings.resize(begin);
    } else {
      number = work_.objects.size() + 1;
      work_.scalars.insert(hash).number = number;
      work_.objects.push_back({0, begin, encoding.size()});
    }
    placed = {number - 1, 0, codec::Weight::object(payload)};
    return true;
  }

  bool addString(const std::string& text, Placed& placed) {
    const std::size_t begin = work_.encodings.size();
    if (!encodeString(work_.encodings, text)) {
      work_.encodings.resize(begin);
      return refuse("a string that is not valid UTF-8");
    }
    return addScalar(begin, text.size(), placed);
  }

  // Storage is aligned, so its address's low bits say little: the high ones are mixed in.
  static std::size_t storageHash(const void* storage) {
    const std::uint64_t mixed = reinterpret_cast<std::uintptr_t>(storage) * 0x9E3779B97F4A7C15ULL;
    return static_cast<std::size_t>(mixed ^ mixed >> 32);
  }

  const Placed* findContainer(const void* storage) {
    const ContainerSlot* seen =
        work_.containers.find(storageHash(storage), [&](const ContainerSlot& slot) { return slot.storage == storage; });
    return seen ? &seen->placed : nullptr;
  }

  // A container met before is reused when it still fits under the nesting cap here.
  bool reuse(const Placed& seen, std::size_t depth, Placed& placed) {
    placed = seen;
    return depth + seen.height <= codec::kMaxNestingDepth || tooDeep();
  }

  // A new container gets its index before its items.
  bool enter(std::uint8_t kind, std::size_t depth, Placed& placed) {
    if (depth + 1 > codec::kMaxNestingDepth) return tooDeep();
    placed = {work_.objects.size(), 1, codec::Weight::object(0)};
    work_.objects.push_back({kind, 0, 0});
    return true;
  }

  bool addArray(const Array& array, std::size_t depth, Placed& placed) {
    if (const Placed* seen = findContainer(&array)) return reuse(*seen, depth, placed);
    if (!enter(kArray, depth, placed)) return false;
    const std::size_t first = work_.pending.size();
    for (std::size_t i = 0; i < array.size(); ++i) {
      if (!addItem(array[i], depth, placed)) {
        route_.prependIndex(i);
        return false;
      }
    }
    return finishContainer(&array, placed, first);
  }

  bool addDictionary(const Dictionary& dictionary, std::size_t depth, Placed& placed) {
    if (const Placed* seen = findContainer(&dictionary)) return reuse(*seen, depth, placed);
    if (!enter(kDictionary, depth, placed)) return false;
    const std::size_t first = work_.pending.size();
    for (const auto& [key, item] : dictionary) {
      Placed keyPlaced;
      if (!addString(key, keyPlaced)) {
        route_.prependKey(key);
        return false;
      }
      work_.pending.push_back(keyPlaced.index);
      placed.weight.hold(keyPlaced.weight, 1);
    }
    for (const auto& [key, item] : dictionary) {
      if (!addItem(item, depth, placed)) {
        route_.prependKey(key);
        return false;
      }
    }
    return finishContainer(&dictionary, placed, first);
  }

  // Adds one item of the container `parent`, grows the parent's height to cover
  // it and adds its weight, a level down, to the parent's.
  bool addItem(const Value& item, std::size_t depth, Placed& parent) {
    Placed placed;
    if (!add(item, depth + 1, placed)) return false;
    work_.pending.push_back(placed.index);
    parent.height = std::max<std::uint16_t>(parent.height, placed.height + 1);
    parent.weight.hold(placed.weight, 1);
    return true;
  }

  // The container's references, pending from `first` on, move to their final place.
  bool finishContainer(const void* storage, const Placed& placed, std::size_t first) {
    Object& object = work_.objects[placed.index];
    object.begin = work_.references.size();
    object.count = work_.pending.size() - first;
    work_.references.insert(work_.references.end(), work_.pending.begin() + static_cast<std::ptrdiff_t>(first), work_.pending.end());
    work_.pending.resize(first);
    ContainerSlot& slot = work_.containers.insert(storageHash(storage));
    slot.storage = storage;
    slot.placed = placed;
    return true;
  }

  Bytes emit() const {
    const std::size_t referenceSize = bytesFor(work_.objects.size() - 1);
    // Markers and long counts of containers take at most 10 bytes each, offsets at most 8,
    // and a big-endian number may store seven bytes past its own.
    Bytes out(kMagic.size() + work_.encodings.size() + work_.references.size() * referenceSize + 10 * work_.containers.size() +
              8 * work_.objects.size() + kTrailerSize + 7);
    ByteCursor cursor{out.data()};
    cursor.append(kMagic.data(), kMagic.size());
    std::vector<std::uint64_t> offsets;
    offsets.reserve(work_.objects.size());
    for (const Object& object : work_.objects) {
      offsets.push_back(cursor.offsetIn(out));
      if (object.containerKind == 0) {
        const std::string_view encoding = encodingOf(object);
        cursor.append(encoding.data(), encoding.size());
        continue;
      }
      const std::size_t count = object.containerKind == kDictionary ? object.count / 2 : object.count;
      appendMarkerWithCount(cursor, object.containerKind, count);
      for (std::size_t i = object.begin; i < object.begin + object.count; ++i) {
        appendBigEndian(cursor, work_.references[i], referenceSize);
      }
    }
    const std::uint64_t table = cursor.offsetIn(out);
    const std::size_t offsetSize = bytesFor(offsets.back());
    for (std::uint64_t offset : offsets) appendBigEndian(cursor, offset, offsetSize);
    for (std::size_t i = 0; i < kTrailerOffsetSize; ++i) cursor.push_back(0);  // unused bytes and sort version
    cursor.push_back(static_cast<std::uint8_t>(offsetSize));
    cursor.push_back(static_cast<std::uint8_t>(referenceSize));
    appendBigEndian(cursor, work_.objects.size(), 8);
    appendBigEndian(cursor, 0, 8);  // the top object is the first one added
    appendBigEndian(cursor, table, 8);
    out.resize(cursor.offsetIn(out));
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
  Workspace work_ = Workspace::take();
};

}  // namespace

std::optional<Bytes> write(const Value& plist, std::string& problem) {
  return Writer(false).write(plist, problem);
}

std::optional<Bytes> writeWithUids(const Value& plist, std::string& problem) {
  return Writer(true).write(plist, problem);
}

}  // namespace platform::binary_plist
