// The tool dispatcher: where a tools/call becomes work. One call in, one tool result out.
//
// In order: the generic required-argument check (a fault answers at once, nothing is sent); the
// tool's own route, by exact name, which may refuse its arguments with its own message, or builds
// exactly one gateway request, sends it and renders the answer; the meeting tools; and for any
// other name the error result "Unknown tool: <name>". Never throws: the client answers every
// connection fault as a `failure`, which renders as an error result.
//
// Stateless: safe to call for overlapping calls, as long as the client is.
#pragma once

#include <nlohmann/json.hpp>

#include "QuillonMCPBridge/ToolCall.hpp"
#include "QuillonWire/Client.hpp"

namespace quillon::bridge {

nlohmann::json dispatch(const ToolCall& call, wire::Client& client);

}  // namespace quillon::bridge
