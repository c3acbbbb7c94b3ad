#include <string>
#include <utility>

#include "QuillonBase/Process.hpp"
#include "QuillonWire/ClientInstance.hpp"

namespace quillon::wire {

// The XDG base-directory rule: a relative XDG_DATA_HOME is invalid and is ignored.
std::string ClientInstance::runbooksRootExpanded() {
  if (auto data = base::environmentVariable("XDG_DATA_HOME"); data && data->starts_with('/')) {
    std::string root = std::move(*data);
    while (!root.empty() && root.back() == '/') root.pop_back();  // no "//" in a path agents copy
    return root + "/quillon/runbooks";
  }
  std::string home = homeFolder();
  if (home == "/") home.clear();
  return home + "/.local/share/quillon/runbooks";
}

}  // namespace quillon::wire
