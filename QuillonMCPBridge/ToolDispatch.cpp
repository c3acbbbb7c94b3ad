#include "QuillonMCPBridge/ToolDispatch.hpp"

#include "QuillonMCPBridge/RequiredArguments.hpp"
#include "QuillonMCPBridge/ToolCatalog.hpp"
#include "QuillonMCPBridge/ToolResult.hpp"

namespace quillon::bridge {

nlohmann::json dispatch(const ToolCall& call, wire::Client& client) {
  const ToolSpec* tool = ToolCatalog::find(call.name);
  if (tool == nullptr) return errorContent("Unknown tool: " + std::string(call.name));
  if (auto fault = requiredArgumentFault(call.name, call.arguments)) return errorContent(std::move(*fault));
  Prepared prepared = tool->prepare(call);
  if (auto* refusal = std::get_if<Refusal>(&prepared)) return errorContent(std::move(refusal->message));
  const wire::GatewayResponse response = client.send(std::get<wire::GatewayRequest>(prepared));
  return tool->render(response, call);
}

}  // namespace quillon::bridge
