// WireResult: what an encode or decode produced, a value or the reason it could not.
//
// The wire never throws at its callers: a bad message is an answer, not an exception. The error
// says where in the value it was found (`path`, e.g. "cards._0[0].why", built from JSON keys and
// array indices; empty for the message as a whole) and what was wrong there (`message`), so the
// daemon's exact texts ("Invalid number of keys found, expected one.") stay comparable.
#pragma once

#include <string>
#include <utility>
#include <variant>

namespace quillon::wire {

struct WireError {
  std::string path;
  std::string message;

  // "path: message", or the message alone at the top.
  std::string describe() const { return path.empty() ? message : path + ": " + message; }
  bool operator==(const WireError&) const = default;
};

template <class T>
class [[nodiscard]] WireResult {
 public:
  WireResult(T value) : state_(std::in_place_index<0>, std::move(value)) {}
  WireResult(WireError error) : state_(std::in_place_index<1>, std::move(error)) {}

  bool ok() const { return state_.index() == 0; }
  explicit operator bool() const { return ok(); }

  // Only when ok().
  const T& value() const& { return std::get<0>(state_); }
  T& value() & { return std::get<0>(state_); }
  T&& value() && { return std::get<0>(std::move(state_)); }

  // Only when !ok().
  const WireError& error() const { return std::get<1>(state_); }

 private:
  std::variant<T, WireError> state_;
};

template <class T>
using Decoded = WireResult<T>;
using Encoded = WireResult<std::string>;

}  // namespace quillon::wire
