#include "QuillonBase/Process.hpp"

#include <cstdlib>

namespace quillon::base {

std::optional<std::string> environmentVariable(std::string_view name) {
  const char* value = std::getenv(std::string(name).c_str());
  if (value == nullptr) return std::nullopt;
  return std::string(value);
}

}  // namespace quillon::base
