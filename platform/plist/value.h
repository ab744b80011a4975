// Foundation's objects as one value type: the property-list kinds (dictionary,
// array, string, integer, real, boolean, date, data), plus an error object that
// may sit in an error's user info, plus the UID that keyed archives reference
// objects by. A default-constructed Value is "absent" (nil).
//
// Containers are shared and immutable once wrapped in a Value: a "mutable copy"
// is a copy of the Dictionary or Array, changed, then wrapped again.
#pragma once

#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <utility>
#include <variant>
#include <vector>

namespace platform {

class Value;
class Array;
class Dictionary;
struct Error;

using ErrorRef = std::shared_ptr<const Error>;
using Bytes = std::vector<std::uint8_t>;

// A point in time: seconds since 2001-01-01 00:00:00 UTC, as the platform keeps it.
// Any double is kept as it is, NaN included, since a peer may send one.
struct Date {
  double sinceReferenceDate = 0;
  // Seconds between 1970-01-01 and 2001-01-01.
  static constexpr double kReferenceToUnixEpoch = 978307200.0;
  static Date fromUnixTime(double seconds) { return {seconds - kReferenceToUnixEpoch}; }
  double unixTime() const { return sinceReferenceDate + kReferenceToUnixEpoch; }
  // Equal seconds, or both not a number (see sameNumber).
  friend bool operator==(Date a, Date b);
};

// Equality of reals as values compare them: by ==, except that NaN equals NaN,
// so that every value equals itself and whatever it reads back as.
bool sameNumber(double a, double b);

// An integer as NSNumber keeps it: 64 bits, signed unless the value only fits unsigned.
struct Integer {
  std::uint64_t bits = 0;
  bool isUnsigned = false;  // true only for values above INT64_MAX
  std::int64_t int64Value() const { return static_cast<std::int64_t>(bits); }
  std::uint64_t uint64Value() const { return bits; }
  friend bool operator==(Integer, Integer) = default;
};

// A keyed-archive object reference.
struct Uid {
  std::uint64_t index = 0;
  friend bool operator==(Uid, Uid) = default;
};

class Value {
 public:
  enum class Kind : std::uint8_t {
    None, Boolean, Integer, Real, String, Date, Data, Array, Dictionary, Error, Uid
  };

  Value() = default;
  Value(bool) = delete;  // spelled Value::boolean() so that pointers never turn into booleans
  static Value boolean(bool b);
  static Value integer(std::int64_t i);
  static Value unsignedInteger(std::uint64_t u);  // stored signed when it fits
  static Value real(double d);
  static Value string(std::string s);
  static Value date(Date d);
  static Value data(Bytes bytes);
  static Value array(Array a);
  static Value dictionary(Dictionary d);
  static Value error(ErrorRef e);
  static Value uid(std::uint64_t index);

  Kind kind() const { return static_cast<Kind>(storage_.index()); }
  bool isNone() const { return kind() == Kind::None; }
  explicit operator bool() const { return !isNone(); }

  // Each accessor returns nullptr (or nullopt) when the value is of another kind.
  std::optional<bool> asBoolean() const;
  const Integer* asInteger() const;
  std::optional<double> asReal() const;
  const std::string* asString() const;
  std::optional<Date> asDate() const;
  const Bytes* asData() const;
  const Array* asArray() const;
  const Dictionary* asDictionary() const;
  const ErrorRef* asError() const;
  std::optional<Uid> asUid() const;

  // NSNumber's readings of a boolean, integer or real; false / 0 for anything else.
  // A real reads as an integer rounded towards zero, saturated at the ends of the
  // range, and NaN as 0.
  bool boolValue() const;
  std::int64_t int64Value() const;
  std::uint64_t uint64Value() const;
  double doubleValue() const;

  // The platform's "%@" text: a string as it is, a number in decimal, containers
  // in old-style property-list notation, an absent value as "(null)".
  std::string description() const;

  // Equality as isEqual: decides it: same kind and same contents; integers compare
  // by numeric value whatever their signedness; reals and dates as sameNumber does.
  friend bool operator==(const Value& a, const Value& b);

 private:
  using Storage = std::variant<std::monostate, bool, Integer, double, std::string, Date,
                               std::shared_ptr<const Bytes>, std::shared_ptr<const Array>,
                               std::shared_ptr<const Dictionary>, ErrorRef, Uid>;
  explicit Value(Storage s) : storage_(std::move(s)) {}
  Storage storage_;
};

class Array {
 public:
  Array() = default;
  Array(std::initializer_list<Value> values) : items_(values) {}
  explicit Array(std::vector<Value> values) : items_(std::move(values)) {}

  std::size_t size() const { return items_.size(); }
  bool empty() const { return items_.empty(); }
  const Value& operator[](std::size_t i) const { return items_[i]; }
  void push_back(Value v) { items_.push_back(std::move(v)); }
  auto begin() const { return items_.begin(); }
  auto end() const { return items_.end(); }
  const std::vector<Value>& items() const { return items_; }
  friend bool operator==(const Array&, const Array&) = default;

 private:
  std::vector<Value> items_;
};

// String keys kept in ascending byte order, as the platform sorts them for output.
// The entries sit in one sorted vector: a document's dictionaries cost one
// allocation each, and readers hand over all entries at once to be sorted once.
class Dictionary {
 public:
  using Entry = std::pair<std::string, Value>;
  Dictionary() = default;
  Dictionary(std::initializer_list<std::pair<const std::string, Value>> entries);
  // Entries in any order; of equal keys the last one stays, as if each were set in turn.
  explicit Dictionary(std::vector<Entry> entries);

  std::size_t size() const { return entries_.size(); }
  bool empty() const { return entries_.empty(); }
  // The value for key, or an absent Value; the reference lives as long as the entry.
  const Value& get(std::string_view key) const;
  bool contains(std::string_view key) const;
  // Inserts in place, so costs time linear in the size: many entries go through the constructor.
  void set(std::string key, Value v);
  void erase(std::string_view key);
  auto begin() const { return entries_.begin(); }
  auto end() const { return entries_.end(); }
  friend bool operator==(const Dictionary&, const Dictionary&) = default;

 private:
  std::vector<Entry>::const_iterator find(std::string_view key) const;
  std::vector<Entry> entries_;
};

// The user-info key under which an error keeps its cause.
inline constexpr const char* NSUnderlyingErrorKey = "NSUnderlyingError";
// The user-info key of a human-readable description supplied by the maker of an error.
inline constexpr const char* NSLocalizedDescriptionKey = "NSLocalizedDescription";
// The platform's own error domains.
inline constexpr const char* NSCocoaErrorDomain = "NSCocoaErrorDomain";
inline constexpr const char* NSPOSIXErrorDomain = "NSPOSIXErrorDomain";

// NSError: immutable once made; errors form chains through NSUnderlyingErrorKey.
struct Error {
  std::string domain;
  std::int64_t code = 0;
  Dictionary userInfo;

  static ErrorRef make(std::string domain, std::int64_t code, Dictionary userInfo = {});
  // The cause, or nullptr.
  ErrorRef underlyingError() const;
  // The platform's text: NSLocalizedDescriptionKey when given, otherwise the
  // generic "The operation couldn’t be completed. (domain error code.)".
  std::string localizedDescription() const;
};

bool operator==(const Error& a, const Error& b);

}  // namespace platform
