// The generic required-argument check every tool call passes before anything is sent: each
// required string parameter of the tool's catalogue entry must be present, a string, and (unless
// the parameter allows blanks) not empty once format characters and white space are removed.
// The message names the tool and the parameter and quotes the start of its description, so the
// model knows how to call again.
#pragma once

#include <nlohmann/json_fwd.hpp>

#include <optional>
#include <string>
#include <string_view>

namespace quillon::bridge {

// The fault for the first failing parameter, or nothing (also for a tool not in the catalogue).
std::optional<std::string> requiredArgumentFault(std::string_view tool, const nlohmann::json& arguments);

}  // namespace quillon::bridge
