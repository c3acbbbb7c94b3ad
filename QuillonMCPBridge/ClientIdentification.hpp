// Who is calling: the session and subagent ids that go with each tool call, read from the signs
// each agent program leaves — "_quillon_session"/"_quillon_subagent" tool arguments (any agent),
// Codex's turn metadata in "_meta", opencode's session marker in "_meta". Pure functions; none of
// them talks to the gateway. A value of the wrong JSON type counts as absent.
#pragma once

#include <nlohmann/json_fwd.hpp>

#include <optional>
#include <string>
#include <string_view>

namespace quillon::bridge {

// Words that name no session even though they are shaped like an id.
inline constexpr std::string_view reservedCallIDs[] = {"main", "unknown"};

// A JSON string of 1 to 40 ASCII letters, digits, "_" or "-", and not a reserved word.
bool isCallID(const nlohmann::json& value);

struct CallIDs {
  std::optional<std::string> session;
  std::optional<std::string> subagent;
};

// Removes the identity arguments (and the legacy "_quillon_agent") from `arguments` and returns
// the session and subagent they named, each only when it is a valid call id.
CallIDs takeCallIDs(nlohmann::json& arguments);

// Codex's turn metadata, when `meta` carries it. A present result replaces the ids taken from the
// arguments as a pair, even when both members are absent.
std::optional<CallIDs> codexTurn(const nlohmann::json& meta);

// True when `meta` carries opencode's non-empty session marker.
bool isOpencodeCall(const nlohmann::json& meta);

}  // namespace quillon::bridge
