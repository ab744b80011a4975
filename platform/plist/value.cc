#include "platform/plist/value.h"

#include <algorithm>
#include <cmath>
#include <cstdio>

namespace platform {

bool sameNumber(double a, double b) { return a == b || (std::isnan(a) && std::isnan(b)); }

bool operator==(Date a, Date b) { return sameNumber(a.sinceReferenceDate, b.sinceReferenceDate); }

Value Value::boolean(bool b) { return Value(Storage(b)); }
Value Value::integer(std::int64_t i) {
  return Value(Storage(Integer{static_cast<std::uint64_t>(i), false}));
}
Value Value::unsignedInteger(std::uint64_t u) {
  return Value(Storage(Integer{u, u > static_cast<std::uint64_t>(INT64_MAX)}));
}
Value Value::real(double d) { return Value(Storage(d)); }
Value Value::string(std::string s) { return Value(Storage(std::move(s))); }
Value Value::date(Date d) { return Value(Storage(d)); }
Value Value::data(Bytes bytes) {
  return Value(Storage(std::make_shared<const Bytes>(std::move(bytes))));
}
Value Value::array(Array a) { return Value(Storage(std::make_shared<const Array>(std::move(a)))); }
Value Value::dictionary(Dictionary d) {
  return Value(Storage(std::make_shared<const Dictionary>(std::move(d))));
}
Value Value::error(ErrorRef e) { return e ? Value(Storage(std::move(e))) : Value(); }
Value Value::uid(std::uint64_t index) { return Value(Storage(Uid{index})); }

std::optional<bool> Value::asBoolean() const {
  if (auto* b = std::get_if<bool>(&storage_)) return *b;
  return std::nullopt;
}
const Integer* Value::asInteger() const { return std::get_if<Integer>(&storage_); }
std::optional<double> Value::asReal() const {
  if (auto* d = std::get_if<double>(&storage_)) return *d;
  return std::nullopt;
}
const std::string* Value::asString() const { return std::get_if<std::string>(&storage_); }
std::optional<Date> Value::asDate() const {
  if (auto* d = std::get_if<Date>(&storage_)) return *d;
  return std::nullopt;
}
const Bytes* Value::asData() const {
  auto* p = std::get_if<std::shared_ptr<const Bytes>>(&storage_);
  return p ? p->get() : nullptr;
}
const Array* Value::asArray() const {
  auto* p = std::get_if<std::shared_ptr<const Array>>(&storage_);
  return p ? p->get() : nullptr;
}
const Dictionary* Value::asDictionary() const {
  auto* p = std::get_if<std::shared_ptr<const Dictionary>>(&storage_);
  return p ? p->get() : nullptr;
}
const ErrorRef* Value::asError() const { return std::get_if<ErrorRef>(&storage_); }
std::optional<Uid> Value::asUid() const {
  if (auto* u = std::get_if<Uid>(&storage_)) return *u;
  return std::nullopt;
}

bool Value::boolValue() const {
  if (auto b = asBoolean()) return *b;
  if (auto* i = asInteger()) return i->bits != 0;
  if (auto d = asReal()) return *d != 0;
  return false;
}

std::int64_t Value::int64Value() const {
  if (auto b = asBoolean()) return *b ? 1 : 0;
  if (auto* i = asInteger()) return i->int64Value();
  if (auto d = asReal()) {
    // 2^63 and beyond do not fit; the cast of such a double is undefined.
    constexpr double kTwoTo63 = 9223372036854775808.0;
    if (std::isnan(*d)) return 0;
    if (*d >= kTwoTo63) return INT64_MAX;
    if (*d < -kTwoTo63) return INT64_MIN;
    return static_cast<std::int64_t>(*d);
  }
  return 0;
}

std::uint64_t Value::uint64Value() const {
  if (auto* i = asInteger()) return i->uint64Value();
  return static_cast<std::uint64_t>(int64Value());
}

double Value::doubleValue() const {
  if (auto* i = asInteger()) {
    return i->isUnsigned ? static_cast<double>(i->bits) : static_cast<double>(i->int64Value());
  }
  if (auto d = asReal()) return *d;
  return static_cast<double>(int64Value());
}

bool operator==(const Value& a, const Value& b) {
  if (a.kind() != b.kind()) return false;
  switch (a.kind()) {
    case Value::Kind::None: return true;
    case Value::Kind::Boolean: return *a.asBoolean() == *b.asBoolean();
    case Value::Kind::Integer: return a.asInteger()->bits == b.asInteger()->bits &&
                                      a.asInteger()->isUnsigned == b.asInteger()->isUnsigned;
    case Value::Kind::Real: return sameNumber(*a.asReal(), *b.asReal());
    case Value::Kind::String: return *a.asString() == *b.asString();
    case Value::Kind::Date: return *a.asDate() == *b.asDate();
    case Value::Kind::Data: return *a.asData() == *b.asData();
    case Value::Kind::Array: return *a.asArray() == *b.asArray();
    case Value::Kind::Dictionary: return *a.asDictionary() == *b.asDictionary();
    case Value::Kind::Error: return **a.asError() == **b.asError();
    case Value::Kind::Uid: return *a.asUid() == *b.asUid();
  }
  return false;
}

namespace {

bool keyBefore(const Dictionary::Entry& entry, std::string_view key) { return entry.first < key; }

}  // namespace

Dictionary::Dictionary(std::initializer_list<std::pair<const std::string, Value>> entries)
    : Dictionary(std::vector<Entry>(entries.begin(), entries.end())) {}

Dictionary::Dictionary(std::vector<Entry> entries) : entries_(std::move(entries)) {
  const auto byKey = [](const Entry& a, const Entry& b) { return a.first < b.first; };
  // Readers of documents written in key order find them sorted and unique already.
  const auto notAscending = [](const Entry& a, const Entry& b) { return a.first >= b.first; };
  if (std::adjacent_find(entries_.begin(), entries_.end(), notAscending) == entries_.end()) return;
  std::stable_sort(entries_.begin(), entries_.end(), byKey);
  // Of a run of equal keys the last one set stays: move it to the run's front, then drop the rest.
  auto kept = entries_.begin();
  for (auto run = entries_.begin(); run != entries_.end();) {
    auto last = run;
    while (last + 1 != entries_.end() && last[1].first == run->first) ++last;
    if (kept != last) *kept = std::move(*last);
    ++kept;
    run = last + 1;
  }
  entries_.erase(kept, entries_.end());
}

std::vector<Dictionary::Entry>::const_iterator Dictionary::find(std::string_view key) const {
  const auto it = std::lower_bound(entries_.begin(), entries_.end(), key, keyBefore);
  return it != entries_.end() && it->first == key ? it : entries_.end();
}

const Value& Dictionary::get(std::string_view key) const {
  static const Value absent;
  const auto it = find(key);
  return it == entries_.end() ? absent : it->second;
}

bool Dictionary::contains(std::string_view key) const { return find(key) != entries_.end(); }

void Dictionary::set(std::string key, Value v) {
  const auto it = std::lower_bound(entries_.begin(), entries_.end(), key, keyBefore);
  if (it != entries_.end() && it->first == key) {
    it->second = std::move(v);
  } else {
    entries_.emplace(it, std::move(key), std::move(v));
  }
}

void Dictionary::erase(std::string_view key) {
  const auto it = find(key);
  if (it != entries_.end()) entries_.erase(it);
}

ErrorRef Error::make(std::string domain, std::int64_t code, Dictionary userInfo) {
  return std::make_shared<const Error>(Error{std::move(domain), code, std::move(userInfo)});
}

ErrorRef Error::underlyingError() const {
  const ErrorRef* e = userInfo.get(NSUnderlyingErrorKey).asError();
  return e ? *e : nullptr;
}

std::string Error::localizedDescription() const {
  if (const std::string* text = userInfo.get(NSLocalizedDescriptionKey).asString()) return *text;
  char buffer[64];
  std::snprintf(buffer, sizeof buffer, " error %lld.)", static_cast<long long>(code));
  return "The operation couldn\u2019t be completed. (" + domain + buffer;
}

bool operator==(const Error& a, const Error& b) {
  return a.domain == b.domain && a.code == b.code && a.userInfo == b.userInfo;
}

}  // namespace platform
