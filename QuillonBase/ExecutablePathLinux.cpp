#include <unistd.h>

#include <climits>

#include "QuillonBase/Process.hpp"

namespace quillon::base {

std::string executablePath() {
  char buffer[PATH_MAX];
  const ssize_t length = ::readlink("/proc/self/exe", buffer, sizeof buffer);
  if (length <= 0 || static_cast<std::size_t>(length) >= sizeof buffer) return {};
  return std::string(buffer, static_cast<std::size_t>(length));
}

}  // namespace quillon::base
