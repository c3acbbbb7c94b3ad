// MCPBridge: the bridge's one long-lived object. `handle` takes one parsed JSON-RPC message and
// returns the reply to write, or nothing. It speaks MCP revision "2024-11-05" with the tools
// capability only: "initialize", "ping", "tools/list" and "tools/call"; every other method gets
// the -32601 error, and a message without "id" gets no reply at all.
//
// handle never throws. It runs on the read loop's thread, one message at a time; `lock_` exists
// because the writer's name is also read from inside tool calls.
#pragma once

#include <nlohmann/json_fwd.hpp>

#include "QuillonMCPBridge/ScreenSeams.hpp"
#include "QuillonWire/Client.hpp"

#include <mutex>
#include <optional>
#include <string>

namespace quillon::bridge {

class MCPBridge {
 public:
  // Borrows the client, which must outlive the bridge. Tool requests go through it. The screen
  // tools write and open frames through `screens`; without them they say no writer is wired.
  MCPBridge(wire::Client& client, std::optional<std::string> sessionID, ScreenSeams screens = {});
  MCPBridge(const MCPBridge&) = delete;
  MCPBridge& operator=(const MCPBridge&) = delete;

  std::optional<nlohmann::json> handle(const nlohmann::json& message);

  // The reply to `message` as one line of compact JSON (without the line feed), or nothing.
  // Same answers as handle; the catalogue is spliced in already serialised, so "tools/list"
  // costs a copy rather than a walk over the whole catalogue.
  std::optional<std::string> replyLine(const nlohmann::json& message);

  // The tool dispatcher: one tool call in, one tool result out.
  nlohmann::json call(const std::string& name, const nlohmann::json& arguments,
                      const std::optional<std::string>& subagent, const std::optional<std::string>& session);

  // The name of the agent program writing through this bridge, if known.
  std::optional<std::string> writer() const;

 private:
  nlohmann::json callTool(const nlohmann::json& params);

  wire::Client& client_;
  mutable std::mutex lock_;
  std::optional<std::string> writer_;  // guarded by lock_
  const std::optional<std::string> sessionID_;
  const ScreenSeams screens_;
};

}  // namespace quillon::bridge
