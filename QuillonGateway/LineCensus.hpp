// LineCensus: what the gateway learns of a door line before it builds the line's JSON: about how
// many values it holds, and the request's id.
//
// Building the DOM of a line costs far more memory than its bytes (a 16 MiB line of empty arrays
// takes hundreds of megabytes), so the gateway counts first and refuses a line over its budget,
// answering the id when the id can be read. One linear pass, no allocation; strings are skipped,
// so brackets and commas inside them never count. The text need not be valid JSON. Stateless.
#pragma once

#include <cstddef>
#include <cstdint>
#include <optional>
#include <string_view>

namespace quillon::gateway {

struct LineCensus {
  // Every array and object opened and every comma outside strings: a bound just above the
  // number of values the parser would build.
  std::size_t values = 0;
  // The top-level "id" member when it is an unsigned integer, as DoorFrame reads it.
  std::optional<std::uint64_t> id;

  static LineCensus of(std::string_view line);
};

}  // namespace quillon::gateway
