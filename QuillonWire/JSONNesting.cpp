#include "QuillonWire/JSONNesting.hpp"

#include <cstring>

namespace quillon::wire {

bool nestsDeeperThan(std::string_view text, std::size_t limit) {
  std::size_t depth = 0;
  bool inString = false;
  for (std::size_t i = 0; i < text.size(); ++i) {
    const char c = text[i];
    if (inString) {
      if (c == '\\')
        ++i;
      else if (c == '"')
        inString = false;
    } else if (c == '"') {
      inString = true;
    } else if (c == '[' || c == '{') {
      if (++depth > limit) return true;
    } else if ((c == ']' || c == '}') && depth > 0) {
      --depth;
    }
  }
  return false;
}

bool holdsNulByte(std::string_view text) { return std::memchr(text.data(), '\0', text.size()) != nullptr; }

}  // namespace quillon::wire
