// Standard base64 (RFC 4648 alphabet, with padding), the wire's text form of byte strings.
#pragma once

#include <cstdint>
#include <optional>
#include <span>
#include <string>
#include <string_view>
#include <vector>

namespace quillon::wire {

std::string base64Encode(std::span<const std::uint8_t> bytes);

// Nothing unless `text` is canonical base64: length a multiple of four, only the alphabet, "="
// only as one or two final characters, and no stray bits in the last group. No white space.
std::optional<std::vector<std::uint8_t>> base64Decode(std::string_view text);

}  // namespace quillon::wire
