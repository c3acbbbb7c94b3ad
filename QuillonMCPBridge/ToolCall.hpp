// ToolCall: one tool call as the dispatcher hands it to a tool — the name, the arguments object
// and who is calling — with the readers every tool uses on its arguments, and Prepared, what a
// tool makes of them: the one gateway request to send, or its refusal.
//
// The JSON types each reader accepts are decided here once, so every tool reads alike:
//   - s:        a JSON string, the empty string included; anything else is absent.
//   - opt:      a JSON string that is not empty; anything else (including "") is absent.
//   - flag:     true only for the JSON boolean true. false, absent, null, 1 and "true" are all
//               false: a flag asks for more work from the gateway (the whole text, every match),
//               so it must be asked for plainly, and true is never confused with 1.
//   - integer:  a JSON integer that fits in 64 signed bits; anything else (2.5, "30", true,
//               null) is absent, which leaves the gateway's own default in force.
//   - given:    present and not null. Agents often send null for an optional parameter they
//               mean to omit; null is therefore read as "not given" everywhere.
//
// A ToolCall borrows the arguments object and lives only for the one call; it keeps no state
// between calls. The writer's name is read through `writerName` each time a request needs it,
// so it is read under the bridge's lock at the moment the request is built.
#pragma once

#include <nlohmann/json.hpp>

#include <cstdint>
#include <functional>
#include <optional>
#include <string>
#include <string_view>
#include <variant>

#include "QuillonMCPBridge/ScreenSeams.hpp"
#include "QuillonWire/GatewayRequest.hpp"
#include "QuillonWire/GatewayResponse.hpp"

namespace quillon::bridge {

struct ToolCall {
  std::string_view name;
  const nlohmann::json& arguments;  // an object (the bridge replaces anything else by {})
  std::optional<std::string> subagent;
  std::optional<std::string> session;      // the caller's session, as identified with the call
  std::optional<std::string> bridgeSession;  // the session the bridge was started in, if known
  std::function<std::optional<std::string>()> writerName;
  const ScreenSeams* screens = nullptr;  // the bridge's, which outlives the call; none in tests

  const nlohmann::json* given(std::string_view key) const;
  std::optional<std::string> s(std::string_view key) const;
  std::optional<std::string> opt(std::string_view key) const;
  bool flag(std::string_view key) const;
  std::optional<std::int64_t> integer(std::string_view key) const;
  // A required string of a catalogued tool, which the generic check has already vouched for.
  std::string required(std::string_view key) const;

  // The session a request carries: the "session_id" argument when it is a non-empty string,
  // else the caller's session, else the bridge's own.
  std::optional<std::string> sessionArg() const;
  // The writer's name, or the empty string when no agent has named itself yet.
  std::string writer() const;
};

// A tool's answer to arguments it cannot use: the message the model reads (an error result).
struct Refusal {
  std::string message;
};
// What a tool makes of its arguments: the one request to send, or the refusal.
using Prepared = std::variant<wire::GatewayRequest, Refusal>;

// The request envelopes, so a tool writes only its own case.
inline wire::GatewayRequest readRequest(wire::ReadRequest::Cases request) {
  return wire::GatewayRequest{wire::request::Read{wire::ReadRequest{std::move(request)}}};
}
inline wire::GatewayRequest notesRequest(wire::NotesRequest::Cases request) {
  return wire::GatewayRequest{wire::request::Notes{wire::NotesRequest{std::move(request)}}};
}

}  // namespace quillon::bridge
