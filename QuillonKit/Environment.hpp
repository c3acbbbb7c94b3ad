// Environment: how the door reads environment variables, the process's own or a fixed set that a
// test gives. Reading is cheap and never fails: a missing variable is nothing.
#pragma once

#include <functional>
#include <map>
#include <optional>
#include <string>
#include <string_view>

namespace quillon::kit {

using Environment = std::function<std::optional<std::string>(std::string_view name)>;

// The variables of this process, read at each call.
Environment processEnvironment();

// Exactly these variables and no others.
Environment fixedEnvironment(std::map<std::string, std::string, std::less<>> variables);

}  // namespace quillon::kit
