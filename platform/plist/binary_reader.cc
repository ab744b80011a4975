// The layout is described in binary_format.h. Every read is checked
// against the object area (from the end of the header to the offset table), so
// a hostile offset, count or size ends in an error before anything is
// allocated for it.
#include "platform/plist/binary_reader.h"

#include <algorithm>
#include <bit>
#include <cinttypes>
#include <cstdarg>
#include <cstdio>
#include <cstring>
#include <memory>
#include <optional>
#include <vector>

#include "platform/plist/binary_format.h"
#include "platform/plist/codec_support.h"

namespace platform::binary_plist {
namespace {

// The number of `size` (1 to 8) bytes at `bytes`, read as one load of eight: the
// 32-byte trailer follows the objects and the offset table, so eight bytes from
// any number before it, and from each of its own eight-byte fields, lie within
// the document.
std::uint64_t readBigEndian(const std::uint8_t* bytes, std::size_t size) {
  std::uint64_t word;
  std::memcpy(&word, bytes, 8);
  if constexpr (std::endian::native == std::endian::little) word = __builtin_bswap64(word);
  return word >> (64 - 8 * size);
}

// The object being read, for error messages.
struct Where {
  std::uint64_t object;
  std::size_t offset;
};

class Reader {
 public:
  Reader(std::span<const std::uint8_t> data, std::string& problem)
      : data_(data), problem_(problem), budget_(data.size()) {}

  Value read() {
    if (!readTrailer()) return {};
    const Slot* top = object(topObject_, 0);
    if (!top) return {};
    if (top->isNull()) {
      fail({topObject_, offsetOf(topObject_)}, "the top object is null");
      return {};
    }
    return top->value();
  }

 private:
  enum class State : std::uint8_t { Unread, Reading, Read };

  // One object of the offset table: read once, then shared by every reference.
  struct Slot {
    State state = State::Unread;
    // Container levels from this object down, to keep the cap when it is reused deeper.
    std::uint16_t height = 0;
    // What the object weighs expanded, shared items counted at every reference;
    // nothing for null and fill, which stand for no object.
    codec::Weight weight;
    // An ASCII string is made afresh from its bytes at each reference, which
    // costs what a copy would, so that nothing is kept of it here.
    bool isAscii = false;
    std::string_view ascii;
    Value kept;  // any other object; absent for null and fill

    bool isNull() const { return !isAscii && !kept; }
    Value value() const { return isAscii ? Value::string(std::string(ascii)) : kept; }
  };

  bool readTrailer() {
    if (!looksLikeBinary(data_)) {
      problem_ = "binary property list: the header is not \"bplist00\"";
      return false;
    }
    if (data_.size() < kHeaderSize + kTrailerSize) {
      return failTrailer("%zu bytes cannot hold a header and a trailer", data_.size());
    }
    trailerAt_ = data_.size() - kTrailerSize;
    const std::uint8_t* trailer = data_.data() + trailerAt_;
    offsetSize_ = trailer[kTrailerOffsetSize];
    referenceSize_ = trailer[kTrailerReferenceSize];
    objectCount_ = readBigEndian(trailer + kTrailerObjectCount, 8);
    topObject_ = readBigEndian(trailer + kTrailerTopObject, 8);
    const std::uint64_t table = readBigEndian(trailer + kTrailerOffsetTable, 8);
    if (offsetSize_ < 1 || offsetSize_ > 8) {
      return failTrailer("offset size %u is not 1 to 8", offsetSize_);
    }
    if (referenceSize_ < 1 || referenceSize_ > 8) {
      return failTrailer("reference size %u is not 1 to 8", referenceSize_);
    }
    if (objectCount_ == 0) return failTrailer("no objects");
    if (objectCount_ > UINT32_MAX) {
      return failTrailer("%" PRIu64 " objects are more than 2^32 - 1", objectCount_);
    }
    if (topObject_ >= objectCount_) {
      return failTrailer("top object %" PRIu64 " is past the object count %" PRIu64, topObject_,
                         objectCount_);
    }
    if (table <= kHeaderSize || table > trailerAt_) {
      return failTrailer("offset table at byte %" PRIu64 " is outside bytes %zu to %zu", table,
                         kHeaderSize + 1, trailerAt_);
    }
    if (objectCount_ > (trailerAt_ - table) / offsetSize_) {
      return failTrailer("%" PRIu64 " offsets of %u bytes at byte %" PRIu64
                         " run past the trailer",
                         objectCount_, offsetSize_, table);
    }
    objectsEnd_ = static_cast<std::size_t>(table);
    slotNumbers_.assign(static_cast<std::size_t>(objectCount_), 0);
    return true;
  }

  // The offset of object `index` (below the object count); 0 when it lies outside
  // the object area, after recording the problem.
  std::size_t offsetOf(std::uint64_t index) {
    const std::uint64_t offset =
        readBigEndian(data_.data() + objectsEnd_ + index * offsetSize_, offsetSize_);
    if (offset < kHeaderSize || offset >= objectsEnd_) {
      fail({index, objectsEnd_ + index * offsetSize_},
           "offset-table entry %" PRIu64 " is outside the object area (bytes %zu to %zu)", offset,
           kHeaderSize, objectsEnd_ - 1);
      return 0;
    }
    return static_cast<std::size_t>(offset);
  }

  // The slot of object `index`, read if needed, where `depth` containers enclose
  // it; nullptr on failure.
  const Slot* object(std::uint64_t index, std::size_t depth) {
    std::uint32_t& number = slotNumbers_[index];
    if (number == 0) number = static_cast<std::uint32_t>(slots_.add() + 1);
    Slot& slot = slots_[number - 1];
    if (slot.state == State::Read) {
      if (depth + slot.height > codec::kMaxNestingDepth) {
        fail({index, offsetOf(index)}, "nesting deeper than %zu levels", codec::kMaxNestingDepth);
        return nullptr;
      }
      return &slot;
    }
    const std::size_t offset = offsetOf(index);
    if (offset == 0) return nullptr;
    if (slot.state == State::Reading) {
      fail({index, offset}, "the object contains itself through its references");
      return nullptr;
    }
    slot.state = State::Reading;
    if (!parse({index, offset}, depth, slot)) return nullptr;
    if (slot.isAscii) {
      slot.weight = codec::Weight::object(slot.ascii.size());
    } else if (slot.kept && !slot.kept.asArray() && !slot.kept.asDictionary()) {
      slot.weight = codec::Weight::object(codec::ExpansionBudget::payload(slot.kept));
    }
    slot.state = State::Read;
    return &slot;
  }

  bool parse(const Where& where, std::size_t depth, Slot& slot) {
    const std::uint8_t marker = data_[where.offset];
    const std::uint8_t info = marker & kInfoMask;
    std::size_t at = where.offset + 1;
    switch (marker & kKindMask) {
      case kNull:
        if (marker == kFalse || marker == kTrue) {
          slot.kept = Value::boolean(marker == kTrue);
          return true;
        }
        if (marker == kNull || marker == kFill) return true;
        break;
      case kInteger:
        return readInteger(where, at, info, slot.kept);
      case kReal:
        return readReal(where, at, info, slot.kept);
      case kDate & kKindMask: {
        if (marker != kDate) break;
        const std::uint8_t* bytes = take(where, at, 8, "date");
        if (!bytes) return false;
        slot.kept = Value::date({std::bit_cast<double>(readBigEndian(bytes, 8))});
        return true;
      }
      case kData:
      case kAsciiString:
      case kUtf16String:
        return readBytes(where, at, marker, slot);
      case kUid:
        return readUid(where, at, info, slot.kept);
      case kArray:
      case kSet:
        return readArray(where, at, info, depth, slot);
      case kDictionary:
        return readDictionary(where, at, info, depth, slot);
      default:
        break;
    }
    return fail(where, "unknown object marker 0x%02X", marker);
  }

  // The `size` bytes at `at`, or nullptr when they run past the object area.
  const std::uint8_t* take(const Where& where, std::size_t at, std::uint64_t size,
                           const char* what) {
    if (at > objectsEnd_ || size > objectsEnd_ - at) {
      fail(where, "%s of %" PRIu64 " bytes at byte %zu runs past the object area", what, size, at);
      return nullptr;
    }
    return data_.data() + at;
  }

  bool readInteger(const Where& where, std::size_t at, std::uint8_t info, Value& out) {
    if (info > 4) return fail(where, "integer of 2^%u bytes", info);
    const std::size_t size = std::size_t{1} << info;
    const std::uint8_t* bytes = take(where, at, size, "integer");
    if (!bytes) return false;
    if (size <= 8) {
      // 1, 2 and 4 bytes are unsigned; 8 bytes are two's complement.
      out = Value::integer(static_cast<std::int64_t>(readBigEndian(bytes, size)));
      return true;
    }
    // 16 bytes, two's complement: written for values above INT64_MAX, and
    // accepted for anything that fits 64 bits signed or unsigned.
    const std::uint64_t high = readBigEndian(bytes, 8);
    const std::uint64_t low = readBigEndian(bytes + 8, 8);
    if (high == 0) {
      out = Value::unsignedInteger(low);
    } else if (high == UINT64_MAX && low >> 63) {
      out = Value::integer(static_cast<std::int64_t>(low));
    } else {
      return fail(where, "16-byte integer does not fit 64 bits");
    }
    return true;
  }

  bool readReal(const Where& where, std::size_t at, std::uint8_t info, Value& out) {
    if (info != 2 && info != 3) return fail(where, "real of 2^%u bytes", info);
    const std::size_t size = std::size_t{1} << info;
    const std::uint8_t* bytes = take(where, at, size, "real");
    if (!bytes) return false;
    const std::uint64_t bits = readBigEndian(bytes, size);
    out = Value::real(size == 4 ? std::bit_cast<float>(static_cast<std::uint32_t>(bits))
                                : std::bit_cast<double>(bits));
    return true;
  }

  bool readUid(const Where& where, std::size_t at, std::uint8_t info, Value& out) {
    const std::size_t size = std::size_t{info} + 1;
    const std::uint8_t* bytes = take(where, at, size, "UID");
    if (!bytes) return false;
    const std::size_t extra = size > 8 ? size - 8 : 0;
    if (std::any_of(bytes, bytes + extra, [](std::uint8_t b) { return b != 0; })) {
      return fail(where, "UID of %zu bytes does not fit 64 bits", size);
    }
    out = Value::uid(readBigEndian(bytes + extra, size - extra));
    return true;
  }

  // The element count of a data, string or container object: the marker's low
  // nibble, or the integer object after the marker. Advances `at` past it.
  std::optional<std::uint64_t> readCount(const Where& where, std::size_t& at, std::uint8_t info) {
    if (info != kLongCount) return info;
    const std::uint8_t* marker = take(where, at, 1, "count");
    if (!marker) return std::nullopt;
    if ((*marker & kKindMask) != kInteger || (*marker & kInfoMask) > 3) {
      fail(where, "count marker 0x%02X is not a 1- to 8-byte integer", *marker);
      return std::nullopt;
    }
    const std::size_t size = std::size_t{1} << (*marker & kInfoMask);
    const std::uint8_t* bytes = take(where, at + 1, size, "count");
    if (!bytes) return std::nullopt;
    at += 1 + size;
    return readBigEndian(bytes, size);
  }

  // Checks that `count` items of `itemSize` bytes fit between `at` and the end of
  // the object area, before anything is allocated for them.
  bool fits(const Where& where, std::size_t at, std::uint64_t count, std::size_t itemSize,
            const char* what) {
    if (at > objectsEnd_ || count > (objectsEnd_ - at) / itemSize) {
      return fail(where, "%s of %" PRIu64 " items at byte %zu runs past the object area", what,
                  count, at);
    }
    return true;
  }

  bool readBytes(const Where& where, std::size_t at, std::uint8_t marker, Slot& slot) {
    const std::optional<std::uint64_t> length = readCount(where, at, marker & kInfoMask);
    const std::uint8_t kind = marker & kKindMask;
    const char* what = kind == kData ? "data" : "string";
    if (!length || !fits(where, at, *length, kind == kUtf16String ? 2 : 1, what)) return false;
    const std::uint64_t count = *length;
    const std::uint8_t* bytes = data_.data() + at;
    if (kind == kData) {
      slot.kept = Value::data(Bytes(bytes, bytes + count));
      return true;
    }
    if (kind == kAsciiString) {
      const std::string_view text(reinterpret_cast<const char*>(bytes), count);
      const std::size_t ascii = codec::asciiPrefixLength(text);
      if (ascii != text.size()) {
        return fail(where, "byte 0x%02X at byte %zu of an ASCII string", bytes[ascii], at + ascii);
      }
      slot.isAscii = true;
      slot.ascii = text;
      return true;
    }
    std::string text;
    text.reserve(count);
    codec::Utf16ToUtf8 utf8(text);
    for (std::uint64_t i = 0; i < count; ++i) {
      if (!utf8.push(static_cast<char16_t>(bytes[2 * i] << 8 | bytes[2 * i + 1]))) {
        return fail(where, "unpaired surrogate at byte %zu of a UTF-16 string",
                    at + 2 * static_cast<std::size_t>(i));
      }
    }
    if (!utf8.finish()) return fail(where, "UTF-16 string ends in an unpaired surrogate");
    slot.kept = Value::string(std::move(text));
    return true;
  }

  // The object reference at byte `at`, checked against the object count.
  bool readReference(const Where& where, std::size_t at, std::uint64_t& reference) {
    reference = readBigEndian(data_.data() + at, referenceSize_);
    if (reference >= objectCount_) {
      return fail(where, "reference %" PRIu64 " at byte %zu is past the object count %" PRIu64,
                  reference, at, objectCount_);
    }
    return true;
  }

  // The container's own level must fit under the cap before its items are read.
  bool enterContainer(const Where& where, std::size_t depth) {
    if (depth + 1 > codec::kMaxNestingDepth) {
      return fail(where, "nesting deeper than %zu levels", codec::kMaxNestingDepth);
    }
    return true;
  }

  // Adds an item's weight, one level down, to its container's, which must stay within the budget.
  bool weigh(const Where& where, codec::Weight& weight, const Slot& item) {
    weight.hold(item.weight, 1);
    if (budget_.admits(weight.atTop)) return true;
    return fail(where, "%s", budget_.refusal("the document").c_str());
  }

  bool readArray(const Where& where, std::size_t at, std::uint8_t info, std::size_t depth,
                 Slot& slot) {
    if (!enterContainer(where, depth)) return false;
    const std::optional<std::uint64_t> length = readCount(where, at, info);
    if (!length || !fits(where, at, *length, referenceSize_, "array")) return false;
    const std::uint64_t count = *length;
    std::vector<Value> items;
    items.reserve(count);
    std::uint16_t height = 1;
    codec::Weight weight = codec::Weight::object(0);
    for (std::uint64_t i = 0; i < count; ++i, at += referenceSize_) {
      std::uint64_t reference;
      if (!readReference(where, at, reference)) return false;
      const Slot* item = object(reference, depth + 1);
      if (!item || !weigh(where, weight, *item)) return false;
      if (!item->isNull()) items.push_back(item->value());
      height = std::max<std::uint16_t>(height, item->height + 1);
    }
    slot.kept = Value::array(Array(std::move(items)));
    slot.height = height;
    slot.weight = weight;
    return true;
  }

  bool readDictionary(const Where& where, std::size_t at, std::uint8_t info, std::size_t depth,
                      Slot& slot) {
    if (!enterContainer(where, depth)) return false;
    const std::optional<std::uint64_t> length = readCount(where, at, info);
    if (!length || !fits(where, at, *length, 2 * std::size_t{referenceSize_}, "dictionary")) {
      return false;
    }
    const std::uint64_t count = *length;
    const std::size_t valuesAt = at + static_cast<std::size_t>(count) * referenceSize_;
    std::vector<Dictionary::Entry> entries;
    entries.reserve(count);
    std::uint16_t height = 1;
    codec::Weight weight = codec::Weight::object(0);
    for (std::uint64_t i = 0; i < count; ++i) {
      const std::size_t keyAt = at + static_cast<std::size_t>(i) * referenceSize_;
      std::uint64_t keyReference, valueReference;
      if (!readReference(where, keyAt, keyReference) ||
          !readReference(where, valuesAt + (keyAt - at), valueReference)) {
        return false;
      }
      const std::size_t keyOffset = offsetOf(keyReference);
      if (keyOffset == 0) return false;
      const std::uint8_t keyKind = data_[keyOffset] & kKindMask;
      if (keyKind != kAsciiString && keyKind != kUtf16String) {
        return fail(where, "key %" PRIu64 " (object %" PRIu64 ", marker 0x%02X) is not a string",
                    i, keyReference, data_[keyOffset]);
      }
      const Slot* key = object(keyReference, depth + 1);
      const Slot* value = key ? object(valueReference, depth + 1) : nullptr;
      if (!value || !weigh(where, weight, *key) || !weigh(where, weight, *value)) return false;
      // A null value leaves the key out, as the absent value it stands for.
      if (!value->isNull()) {
        entries.emplace_back(key->isAscii ? std::string(key->ascii) : *key->kept.asString(), value->value());
      }
      height = std::max<std::uint16_t>(height, value->height + 1);
    }
    slot.kept = Value::dictionary(Dictionary(std::move(entries)));
    slot.height = height;
    slot.weight = weight;
    return true;
  }

  bool fail(const Where& where, const char* format, ...) __attribute__((format(printf, 3, 4))) {
    va_list arguments;
    va_start(arguments, format);
    record(format, arguments);
    va_end(arguments);
    char location[80];
    std::snprintf(location, sizeof location, " (object %" PRIu64 " at byte %zu)", where.object,
                  where.offset);
    problem_ += location;
    return false;
  }

  bool failTrailer(const char* format, ...) __attribute__((format(printf, 2, 3))) {
    va_list arguments;
    va_start(arguments, format);
    record(format, arguments);
    va_end(arguments);
    char location[48];
    std::snprintf(location, sizeof location, " (trailer at byte %zu)", trailerAt_);
    problem_ += location;
    return false;
  }

  void record(const char* format, va_list arguments) __attribute__((format(printf, 2, 0))) {
    char what[256];
    std::vsnprintf(what, sizeof what, format, arguments);
    problem_ = std::string("binary property list: ") + what;
  }

  std::span<const std::uint8_t> data_;
  std::string& problem_;
  std::size_t trailerAt_ = 0;
  std::size_t objectsEnd_ = 0;  // the offset table's first byte
  std::uint8_t offsetSize_ = 0;
  std::uint8_t referenceSize_ = 0;
  std::uint64_t objectCount_ = 0;
  std::uint64_t topObject_ = 0;
  const codec::ExpansionBudget budget_;
  // Slots in chunks of a few each: they keep their address as others are added,
  // and a chunk is a small allocation, which the allocator hands out far more
  // cheaply than a large one when many small documents are read in turn.
  class SlotChunks {
   public:
    // A new slot's place.
    std::size_t add() {
      if (count_ % kChunk == 0) chunks_.push_back(std::make_unique<Slot[]>(kChunk));
      return count_++;
    }
    Slot& operator[](std::size_t place) { return chunks_[place / kChunk][place % kChunk]; }

   private:
    static constexpr std::size_t kChunk = 8;
    std::vector<std::unique_ptr<Slot[]>> chunks_;
    std::size_t count_ = 0;
  };

  // Only objects that are reached get a slot, so a huge offset table behind a
  // small document costs four bytes per entry. An object's number is its slot's
  // place plus one, 0 when unread.
  std::vector<std::uint32_t> slotNumbers_;
  SlotChunks slots_;
};

}  // namespace

bool looksLikeBinary(std::span<const std::uint8_t> data) {
  return data.size() >= kMagic.size() && std::memcmp(data.data(), kMagic.data(), kMagic.size()) == 0;
}

Value read(std::span<const std::uint8_t> data, std::string& problem) {
  return Reader(data, problem).read();
}

}  // namespace platform::binary_plist
