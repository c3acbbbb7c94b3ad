#include "QuillonKit/Environment.hpp"

#include "QuillonBase/Process.hpp"

namespace quillon::kit {

Environment processEnvironment() {
  return base::environmentVariable;
}

Environment fixedEnvironment(std::map<std::string, std::string, std::less<>> variables) {
  return [variables = std::move(variables)](std::string_view name) -> std::optional<std::string> {
    const auto found = variables.find(name);
    if (found == variables.end()) return std::nullopt;
    return found->second;
  };
}

}  // namespace quillon::kit
