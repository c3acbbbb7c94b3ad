#include "QuillonKit/DesktopOpener.hpp"

namespace quillon::kit {

DesktopOpener::DesktopOpener() : program_("/usr/bin/open") {}

// open takes every path at once and shows them together.
std::optional<std::string> DesktopOpener::open(const std::vector<std::string>& paths) const {
  if (paths.empty()) return std::nullopt;
  return run(paths);
}

}  // namespace quillon::kit
