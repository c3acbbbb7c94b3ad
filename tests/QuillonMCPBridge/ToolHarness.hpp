// Drives tool calls the way an agent does: a "tools/call" message through MCPBridge::handle, over
// an InProcessClient to a scripted gateway. Tests assert both sides: the request the gateway got
// (as its wire JSON) and the tool result the agent got.
#pragma once

#include <gtest/gtest.h>

#include <nlohmann/json.hpp>

#include <optional>
#include <string>

#include "QuillonMCPBridge/MCPBridge.hpp"
#include "QuillonMCPBridge/ToolResult.hpp"
#include "QuillonWire/WireJSON.hpp"
#include "ScriptedGateway.hpp"

namespace quillon::test {

class ToolHarness {
 public:
  explicit ToolHarness(std::optional<std::string> bridgeSession = std::nullopt)
      : bridge(scripted.client, std::move(bridgeSession)) {}

  // The tool result of one call; the requests of earlier calls are forgotten.
  nlohmann::json call(const std::string& name, nlohmann::json arguments = nlohmann::json::object(),
                      nlohmann::json meta = nullptr) {
    scripted.gateway.requests.clear();
    nlohmann::json params = {{"name", name}, {"arguments", std::move(arguments)}};
    if (!meta.is_null()) params["_meta"] = std::move(meta);
    const auto reply = bridge.handle({{"jsonrpc", "2.0"}, {"id", ++lastID}, {"method", "tools/call"}, {"params", params}});
    if (!reply) {
      ADD_FAILURE() << "tools/call got no reply";
      return nullptr;
    }
    return (*reply)["result"];
  }

  // The one request the last call sent, as wire JSON.
  nlohmann::json sent() const {
    const auto& requests = scripted.gateway.requests;
    if (requests.size() != 1) {
      ADD_FAILURE() << "expected one request, the gateway got " << requests.size();
      return nullptr;
    }
    auto encoded = wire::toJSON(requests.front());
    if (!encoded) {
      ADD_FAILURE() << encoded.error().describe();
      return nullptr;
    }
    return encoded.value();
  }
  bool nothingSent() const { return scripted.gateway.requests.empty(); }

  void answer(wire::GatewayResponse response) { scripted.gateway.answer(std::move(response)); }
  void answerText(std::string text) { answer(wire::GatewayResponse{wire::answer::Text{.text = std::move(text)}}); }

  void initialize(const std::string& clientName) {
    bridge.handle({{"id", ++lastID}, {"method", "initialize"}, {"params", {{"clientInfo", {{"name", clientName}}}}}});
  }

  ScriptedClient scripted;
  bridge::MCPBridge bridge;

 private:
  int lastID = 0;
};

inline nlohmann::json ok(std::string text) { return bridge::textContent(std::move(text)); }
inline nlohmann::json refused(std::string text) { return bridge::errorContent(std::move(text)); }

// Request JSON written in the test as it is on the wire.
inline nlohmann::json wireJSON(const char* text) { return nlohmann::json::parse(text); }

}  // namespace quillon::test
