#include "QuillonKit/DesktopOpener.hpp"

namespace quillon::kit {

DesktopOpener::DesktopOpener() : program_("xdg-open") {}

// xdg-open takes exactly one path. Every file gets its run even after a failure, so one broken
// association does not hide the others; the first failure is the one reported.
std::optional<std::string> DesktopOpener::open(const std::vector<std::string>& paths) const {
  std::optional<std::string> first;
  for (const auto& path : paths) {
    auto failed = run({path});
    if (failed && !first) first = std::move(failed);
  }
  return first;
}

}  // namespace quillon::kit
