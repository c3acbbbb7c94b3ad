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
  // Sizes in bytes. Generous for what each piece is for, and small enough that every answer that
  // carries them (a grab, a listing, an echo) stays far below what one door line may hold.
  static constexpr std::size_t kMaxTextBytes = std::size_t{1} << 20;
  static constexpr std::size_t kMaxWhyBytes = std::size_t{16} << 10;
  static constexpr std::size_t kMaxTitleBytes = 1024;
  static constexpr std::size_t kMaxScopeBytes = 256;
  static constexpr std::size_t kMaxWordBytes = 64;  // a type or a filter key
  static constexpr std::size_t kMaxFilters = 32;
  static constexpr std::size_t kMaxFolderBytes = 4096;
  // What a refusal or an echo quotes of a value given to it: its start, then "…".
  static constexpr std::size_t kMaxEchoBytes = 200;

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

  // Nothing when the piece fits its size, else the refusal naming its size and the limit.
  static std::optional<std::string> text(std::string_view value);
  static std::optional<std::string> why(std::string_view value);
  static std::optional<std::string> title(std::string_view value);
  // "2.4 MiB", "16 KiB", "312 bytes".
  static std::string size(std::size_t bytes);
  // The value as given when it is short, else its first kMaxEchoBytes (whole characters) and "…".
  static std::string echoed(std::string_view value, std::size_t bytes = kMaxEchoBytes);
};

}  // namespace quillon::gateway
