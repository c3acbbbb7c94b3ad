#include <mach-o/dyld.h>

#include <climits>
#include <cstdlib>
#include <vector>

#include "QuillonBase/Process.hpp"

namespace quillon::base {

std::string executablePath() {
  uint32_t size = 0;
  _NSGetExecutablePath(nullptr, &size);
  std::vector<char> raw(size + 1, '\0');
  if (_NSGetExecutablePath(raw.data(), &size) != 0) return {};
  char resolved[PATH_MAX];
  if (::realpath(raw.data(), resolved) == nullptr) return std::string(raw.data());
  return std::string(resolved);
}

}  // namespace quillon::base
