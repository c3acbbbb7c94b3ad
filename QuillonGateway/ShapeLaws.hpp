// ShapeLaws: the laws a memory's scope, type and filters obey, checked before anything is stored.
//
// The tool catalogue states them to the agent; the gateway enforces them, so every client of the
// store meets the same laws. A refusal says what broke and how to call again, and offers the
// corrected spelling when one can be made, since the reader is a model that will retry at once.
// Stateless; thread-safe.
#pragma once

#include <optional>
#include <string>
#include <string_view>

#include "QuillonWire/FilterValue.hpp"

namespace quillon::gateway {

// A value in its one stored spelling, or the refusal that says how to call again.
struct Shaped {
  std::optional<std::string> value;
  std::string refusal;
};

struct ShapeLaws {
  static constexpr int kMaxScopeLevels = 3;
  static constexpr std::size_t kMaxFilterCharacters = 40;

  // "/code/quillon": lowercase letters, digits and dashes, up to three levels. A missing leading
  // slash or a trailing one is forgiven; "" and "/" are the root.
  static Shaped scope(std::string_view given);
  // One lowercase word: letters, digits, dashes.
  static Shaped type(std::string_view given);
  // Nothing when every key and value obeys the filter law, else the refusal for the first that
  // does not (keys in order).
  static std::optional<std::string> filters(const wire::Filters& filters);
  static std::optional<std::string> filterKey(std::string_view key);
  // An absolute folder in its normal form ("/home/mq/code/quillon", no trailing slash).
  static Shaped folder(std::string_view given);
};

}  // namespace quillon::gateway
