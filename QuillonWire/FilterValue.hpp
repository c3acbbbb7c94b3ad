// FilterValue and FilterPair: the filters that tag a memory ("lang": "swift", "stars": 4,
// "pinned": true).
//
// A filter value is a bare JSON scalar on the wire, not a case object: a string, a number or a
// boolean. Decoding tries a boolean, then a number, then a string, so `true` is never 1 and `1` is
// never "1". The type has no implicit conversions: a string literal must never turn into a
// boolean, so values are made through the named factories.
#pragma once

#include <string>
#include <utility>
#include <variant>

#include "QuillonWire/WireCatalogue.hpp"

namespace quillon::wire {

class FilterValue {
 public:
  // An empty string, the value of a default-built record.
  FilterValue() = default;

  static FilterValue string(std::string text) { return FilterValue(Value(std::in_place_index<0>, std::move(text))); }
  static FilterValue number(double number) { return FilterValue(Value(std::in_place_index<1>, number)); }
  static FilterValue boolean(bool flag) { return FilterValue(Value(std::in_place_index<2>, flag)); }

  // The one alternative held, or null for the others.
  const std::string* asString() const { return std::get_if<0>(&value_); }
  const double* asNumber() const { return std::get_if<1>(&value_); }
  const bool* asBool() const { return std::get_if<2>(&value_); }

  bool operator==(const FilterValue&) const = default;

 private:
  using Value = std::variant<std::string, double, bool>;
  explicit FilterValue(Value value) : value_(std::move(value)) {}
  Value value_;
};

// A filter value as the model reads it, on cards and in the gateway's echo lines alike: a string
// as it is; a bool as "true" or "false"; a whole number below 1e15 in magnitude as its integer
// digits (3, not 3.0); any other number in the shortest plain or exponent form that reads back as
// the same double (1234567.5, 0.1, 1e+15).
std::string renderFilterValue(const FilterValue& value);

// The filters of one memory as sent with a write: key to value, keys unique.
using Filters = Dict<FilterValue>;

// One filter as the daemon lists it back.
QUILLON_RECORD(FilterPair, (String, key), (FilterValue, value));

}  // namespace quillon::wire
