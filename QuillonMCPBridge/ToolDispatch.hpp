// The tool dispatcher: where a tools/call becomes work. One call in, one tool result out.
//
// In order: the tool's record in the catalogue, by exact name (any other name is answered
// "Unknown tool: <name>"); the generic required-argument check (a fault answers at once, nothing
// is sent); the record's `prepare`, which may refuse the arguments with the tool's own message,
// or builds exactly one gateway request; the request sent; the record's `render` of the answer.
// Never throws: the client answers every connection fault as a `failure`, which renders as an
// error result.
//
// Stateless: safe to call for overlapping calls, as long as the client is.
#pragma once

#include <nlohmann/json.hpp>

#include "QuillonMCPBridge/ToolCall.hpp"
#include "QuillonWire/Client.hpp"

namespace quillon::bridge {

nlohmann::json dispatch(const ToolCall& call, wire::Client& client);

}  // namespace quillon::bridge
