#include "QuillonMCPBridge/MCPBridge.hpp"

#include <nlohmann/json.hpp>
#include <string_view>

#include "QuillonMCPBridge/ClientIdentification.hpp"
#include "QuillonMCPBridge/ToolCatalog.hpp"
#include "QuillonMCPBridge/ToolDispatch.hpp"
#include "QuillonMCPBridge/ToolResult.hpp"
#include "QuillonWire/ClientVersion.hpp"

namespace quillon::bridge {

using nlohmann::json;

namespace {

constexpr const char* kProtocolVersion = "2024-11-05";

const json& member(const json& object, const char* key) {
  static const json absent;
  if (!object.is_object()) return absent;
  const auto found = object.find(key);
  return found == object.end() ? absent : *found;
}

std::string methodOf(const json& message) {
  const json& method = member(message, "method");
  return method.is_string() ? method.get<std::string>() : std::string();
}

json reply(const json& id, json result) {
  json out = json::object();
  out["jsonrpc"] = "2.0";
  out["id"] = id;
  out["result"] = std::move(result);
  return out;
}

std::string serialise(const json& value) {
  return value.dump(-1, ' ', false, json::error_handler_t::replace);
}

}  // namespace

MCPBridge::MCPBridge(wire::Client& client, std::optional<std::string> sessionID, ScreenSeams screens)
    : client_(client), sessionID_(std::move(sessionID)), screens_(std::move(screens)) {}

std::optional<std::string> MCPBridge::writer() const {
  std::lock_guard guard(lock_);
  return writer_;
}

std::optional<json> MCPBridge::handle(const json& message) {
  if (!message.is_object()) return std::nullopt;
  const auto idAt = message.find("id");
  if (idAt == message.end()) return std::nullopt;  // a notification: neither answered nor acted on
  const json& id = *idAt;
  const std::string method = methodOf(message);
  const json& params = member(message, "params");

  if (method == "initialize") {
    if (const json& name = member(member(params, "clientInfo"), "name"); name.is_string()) {
      std::lock_guard guard(lock_);
      writer_ = name.get<std::string>();
    }
    json result = json::object();
    result["protocolVersion"] = kProtocolVersion;
    result["capabilities"] = {{"tools", json::object()}};
    result["serverInfo"] = {{"name", "quillon"}, {"version", wire::ClientVersion::current()}};
    return reply(id, std::move(result));
  }
  if (method == "ping") return reply(id, json::object());
  if (method == "tools/list") return reply(id, {{"tools", ToolCatalog::toolsJSON()}});
  if (method == "tools/call") return reply(id, callTool(params));

  json out = json::object();
  out["jsonrpc"] = "2.0";
  out["id"] = id;
  out["error"] = {{"code", -32601}, {"message", "Method not found: " + method}};
  return out;
}

std::optional<std::string> MCPBridge::replyLine(const json& message) {
  if (message.is_object() && message.contains("id") && methodOf(message) == "tools/list") {
    // Same object as handle's reply, keys in the serialiser's (sorted) order. Sized once, so the
    // ~30 KB catalogue is copied once rather than again each time the line outgrows its buffer.
    const std::string id = serialise(message["id"]);
    const std::string& tools = ToolCatalog::toolsJSONText();
    constexpr std::string_view head = R"({"id":)", middle = R"(,"jsonrpc":"2.0","result":{"tools":)", tail = "}}";
    std::string line;
    line.reserve(head.size() + id.size() + middle.size() + tools.size() + tail.size());
    line.append(head).append(id).append(middle).append(tools).append(tail);
    return line;
  }
  auto answer = handle(message);
  if (!answer) return std::nullopt;
  return serialise(*answer);
}

json MCPBridge::callTool(const json& params) {
  json arguments = member(params, "arguments");
  if (!arguments.is_object()) arguments = json::object();
  CallIDs ids = takeCallIDs(arguments);

  const json& meta = member(params, "_meta");
  if (auto codex = codexTurn(meta)) ids = std::move(*codex);
  if (isOpencodeCall(meta)) {
    std::lock_guard guard(lock_);
    writer_ = "opencode";
  }
  const json& name = member(params, "name");
  return call(name.is_string() ? name.get<std::string>() : std::string(), arguments, ids.subagent, ids.session);
}

json MCPBridge::call(const std::string& name, const json& arguments, const std::optional<std::string>& subagent,
                     const std::optional<std::string>& session) {
  const ToolCall toolCall{.name = name,
                          .arguments = arguments,
                          .subagent = subagent,
                          .session = session,
                          .bridgeSession = sessionID_,
                          .writerName = [this] { return writer(); },
                          .screens = &screens_};
  return dispatch(toolCall, client_);
}

}  // namespace quillon::bridge
