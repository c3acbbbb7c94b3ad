// The filters of a memory as an agent passes them: a flat JSON object of key → scalar
// ({"status":"queued","urgent":true,"priority":2}), read into typed filter values, and each
// value's text as cards print it.
//
// Only the shape is checked here (an object of scalars). The gateway enforces the rest of the
// shape law (single lowercase-word keys, one short token per string value).
#pragma once

#include <nlohmann/json.hpp>

#include <optional>
#include <string>
#include <string_view>
#include <variant>

#include "QuillonMCPBridge/ToolCall.hpp"
#include "QuillonWire/FilterValue.hpp"

namespace quillon::bridge {

// A JSON string becomes a string value, a JSON boolean a bool value (true never becomes 1), any
// other JSON number a number value. Anything else refuses the call with a message naming the key.
std::variant<wire::Filters, Refusal> parseFilters(const nlohmann::json& value);

// The filters argument `key` of a call, through parseFilters when it is given: fills `out` and
// returns nothing, or returns the refusal.
std::optional<Refusal> readFilters(const ToolCall& call, std::string_view key, std::optional<wire::Filters>& out);

}  // namespace quillon::bridge
