// Process: what the running program knows of itself from the operating system. The one place the
// modules above read their executable's path and their environment, so a port has one seam to fill.
#pragma once

#include <optional>
#include <string>
#include <string_view>

namespace quillon::base {

// The absolute path of the running executable with links resolved, or empty when unknown.
std::string executablePath();

// The variable's value, read now: empty when set to nothing, nothing when not set.
std::optional<std::string> environmentVariable(std::string_view name);

}  // namespace quillon::base
