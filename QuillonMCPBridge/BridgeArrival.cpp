#include "QuillonMCPBridge/BridgeArrival.hpp"

#include <nlohmann/json.hpp>

#include <algorithm>
#include <set>

namespace quillon::bridge {

const std::vector<std::string>& BridgeArrival::identityVariables() {
  static const std::vector<std::string> names = {"CLAUDECODE", "CLAUDE_CODE_ENTRYPOINT", "CLAUDE_CODE_SESSION_ID",
                                                 "CLAUDE_CODE_CHILD_SESSION", "CLAUDE_AGENT_SDK_VERSION"};
  return names;
}

std::string BridgeArrival::redacted(std::string_view value) {
  return "<string:" + std::to_string(value.size()) + "B>";
}

std::string BridgeArrival::argv(const std::vector<std::string>& arguments) {
  std::string line;
  for (std::size_t i = 0; i < arguments.size(); ++i) {
    if (i > 0) line += ',';
    const auto& argument = arguments[i];
    line += argument.find('/') == std::string::npos ? argument : redacted(argument);
  }
  return line;
}

std::string BridgeArrival::claudeEnvironment(const std::map<std::string, std::string>& environment) {
  static const std::set<std::string> shown(identityVariables().begin(), identityVariables().end());
  std::string line;
  for (const auto& [name, value] : environment) {  // a map walks its names in sorted order
    if (name.rfind("CLAUDE", 0) != 0) continue;
    if (!line.empty()) line += ',';
    line += name + "=" + (shown.count(name) ? value : redacted(value));
  }
  return line.empty() ? "none" : line;
}

std::string BridgeArrival::json(const nlohmann::json& value) {
  // nlohmann keeps object keys sorted and never escapes "/"; only text that is not UTF-8 fails.
  try {
    return value.dump();
  } catch (const nlohmann::json::exception&) {
    return "<unserializable>";
  }
}

std::string BridgeArrival::start(const std::vector<std::string>& arguments,
                                 const std::map<std::string, std::string>& environment, long parentPID,
                                 std::string_view parentName) {
  return "arrival start argv=" + argv(arguments) + " env=" + claudeEnvironment(environment) +
         " parent=" + std::to_string(parentPID) + " parent_name=" + std::string(parentName);
}

std::optional<std::string> BridgeArrival::request(const nlohmann::json& message) {
  if (!message.is_object()) return std::nullopt;
  const auto method = message.find("method");
  if (method == message.end() || !method->is_string()) return std::nullopt;
  const auto params = message.find("params");
  const nlohmann::json none;

  if (*method == "initialize") return "arrival initialize params=" + json(params != message.end() ? *params : none);
  if (*method != "tools/call") return std::nullopt;

  const bool hasParams = params != message.end() && params->is_object();
  std::string name = "<none>";
  std::string args = "none";
  std::string meta = "absent";
  if (hasParams) {
    if (const auto n = params->find("name"); n != params->end() && n->is_string()) name = n->get<std::string>();
    if (const auto a = params->find("arguments"); a != params->end() && a->is_object() && !a->empty()) {
      args.clear();
      for (const auto& item : a->items()) {  // sorted: nlohmann objects keep their keys in order
        if (!args.empty()) args += ',';
        args += item.key();
      }
    }
    if (const auto m = params->find("_meta"); m != params->end()) meta = json(*m);
  }
  return "arrival tools/call name=" + name + " args=" + args + " meta=" + meta;
}

}  // namespace quillon::bridge
