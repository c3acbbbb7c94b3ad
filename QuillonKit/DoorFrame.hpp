// DoorFrame: one door message as one line of compact UTF-8 JSON, the framing of the Unix-socket
// door (docs/door.md). Both ends use it: the bridge's socket connection and any gateway.
//
// A line is an object whose members mirror the message's entries: "payload" and "event" hold
// their JSON as embedded values (not as strings), "wire", "served_ms" and "id" are unsigned
// integers, "subscribe" a boolean, "token" a string. "id" pairs a reply with its request.
// Stateless; thread-safe.
#pragma once

#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

#include "QuillonKit/DoorConnection.hpp"

namespace quillon::kit {

struct DoorLine {
  std::optional<std::uint64_t> id{};
  DoorMessage message{};
  bool operator==(const DoorLine&) const = default;
};

struct DoorFrame {
  // A longer line breaks the connection that carries it.
  static constexpr std::size_t kMaxLineBytes = std::size_t{64} << 20;

  // The line, ending in "\n". Nothing when the payload or the event is not exactly one JSON value
  // on one line: embedding it would break the framing for every other message on the connection.
  static std::optional<std::string> encode(const DoorLine& line);

  // The message of one line given without its "\n"; nothing when the line is not a JSON object
  // (or is longer than kMaxLineBytes, or nests absurdly deep). A member of the wrong type reads as
  // absent, as a missing dictionary entry would.
  static std::optional<DoorLine> decode(std::string_view line);
};

}  // namespace quillon::kit
