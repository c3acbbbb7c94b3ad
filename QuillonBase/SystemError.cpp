#include "QuillonBase/SystemError.hpp"

#include <cerrno>
#include <cstring>

namespace quillon::base {

std::string systemError(std::string_view what, int error) {
  const char* text = std::strerror(error);
  std::string line;
  line.reserve(what.size() + 2 + std::strlen(text));
  line.append(what).append(": ").append(text);
  return line;
}

std::string systemError(std::string_view what) { return systemError(what, errno); }

}  // namespace quillon::base
