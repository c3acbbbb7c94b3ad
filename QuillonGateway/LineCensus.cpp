#include "QuillonGateway/LineCensus.hpp"

#include <limits>

namespace quillon::gateway {

namespace {

bool isBlank(char c) { return c == ' ' || c == '\t' || c == '\r' || c == '\n'; }

// The unsigned integer after the ':' that follows a key ending at `at`; nothing when the key is
// a value rather than a key, or the number is negative, fractional or too large for 64 bits (the
// parser reads those as another kind of number, which is no id).
std::optional<std::uint64_t> numberAfterColon(std::string_view line, std::size_t at) {
  while (at < line.size() && isBlank(line[at])) ++at;
  if (at >= line.size() || line[at] != ':') return std::nullopt;
  ++at;
  while (at < line.size() && isBlank(line[at])) ++at;
  const std::size_t first = at;
  std::uint64_t number = 0;
  for (; at < line.size() && line[at] >= '0' && line[at] <= '9'; ++at) {
    const auto digit = static_cast<std::uint64_t>(line[at] - '0');
    if (number > (std::numeric_limits<std::uint64_t>::max() - digit) / 10) return std::nullopt;
    number = number * 10 + digit;
  }
  if (at == first || (line[first] == '0' && at - first > 1)) return std::nullopt;
  if (at < line.size() && !isBlank(line[at]) && line[at] != ',' && line[at] != '}') return std::nullopt;
  return number;
}

}  // namespace

LineCensus LineCensus::of(std::string_view line) {
  LineCensus census;
  std::size_t depth = 0;
  bool topIsObject = false;
  bool keyExpected = false;  // only a string right after '{' or a comma at depth 1 can be a member's key
  for (std::size_t at = 0; at < line.size(); ++at) {
    switch (line[at]) {
      case '"': {
        const std::size_t start = at + 1;
        for (++at; at < line.size() && line[at] != '"'; ++at)
          if (line[at] == '\\') ++at;
        if (at >= line.size()) return census;
        if (depth == 1 && topIsObject && keyExpected && !census.id && line.substr(start, at - start) == "id")
          census.id = numberAfterColon(line, at + 1);
        keyExpected = false;
        break;
      }
      case '{':
      case '[':
        ++census.values;
        if (depth++ == 0) topIsObject = line[at] == '{';
        keyExpected = line[at] == '{';
        break;
      case '}':
      case ']':
        if (depth > 0) --depth;
        keyExpected = false;
        break;
      case ',':
        ++census.values;
        keyExpected = depth == 1;
        break;
      default:
        if (!isBlank(line[at])) keyExpected = false;
        break;
    }
  }
  return census;
}

}  // namespace quillon::gateway
