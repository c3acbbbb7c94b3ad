// The tools that write to the user's memory store: save, edit, patch, change filters, delete,
// map a folder to a scope, set the session's scope, install a mod, set the user's own names, list
// the scopes. Each becomes one notes request.
//
// The bridge's share is checking the arguments with messages that teach the model how to call
// again (each tool's checks run in a fixed order, the first fault wins, and nothing is sent), and
// rendering the gateway's short confirmation. The generic required-argument check has run before
// any of these; their own checks stand behind it as each tool's guard.
#pragma once

#include <nlohmann/json.hpp>

#include "QuillonMCPBridge/ToolCall.hpp"
#include "QuillonWire/GatewayResponse.hpp"

namespace quillon::bridge {

Prepared prepareMemoryAdd(const ToolCall& call);
Prepared prepareMemoryEdit(const ToolCall& call);
Prepared prepareMemoryPatch(const ToolCall& call);
Prepared prepareMemoryEditFilters(const ToolCall& call);
Prepared prepareMemoryDelete(const ToolCall& call);
Prepared prepareScopeMapFolder(const ToolCall& call);
Prepared prepareScopeSetForSession(const ToolCall& call);
Prepared prepareModInstall(const ToolCall& call);
Prepared prepareSelfNames(const ToolCall& call);
Prepared prepareScopeListAll(const ToolCall& call);

// The gateway's text, cleaned as stored text. Every other case as `fallback`.
nlohmann::json noteWritten(const wire::GatewayResponse& response);
nlohmann::json noteText(const wire::GatewayResponse& response);
// As noteText, and noteID(id, echo) as "Updated <id>." followed by the echo lines.
nlohmann::json noteEdited(const wire::GatewayResponse& response);
// ok as "Deleted.".
nlohmann::json noteDeleted(const wire::GatewayResponse& response);

}  // namespace quillon::bridge
