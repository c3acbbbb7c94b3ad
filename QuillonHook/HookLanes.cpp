#include "QuillonHook/HookLanes.hpp"

#include <nlohmann/json.hpp>

#include "QuillonMCPBridge/MCPBridge.hpp"

namespace quillon::hook {

namespace {

using nlohmann::json;

std::optional<std::string> nonEmptyString(const json& object, const char* key) {
  const auto at = object.find(key);
  if (at == object.end() || !at->is_string() || at->get_ref<const std::string&>().empty()) return std::nullopt;
  return at->get<std::string>();
}

// The identity every lane passes, as a prompt hook sends it: the session, its transcript and the
// folder, so the gateway knows the prompt and where it was typed.
json identity(const HookInput& input) {
  json arguments = json::object();
  if (input.cwd) arguments["cwd"] = *input.cwd;
  if (input.session) arguments["session_id"] = *input.session;
  if (input.transcript) arguments["transcript_path"] = *input.transcript;
  return arguments;
}

std::string textOf(const json& result) {
  const auto& content = result.value("content", json::array());
  if (content.empty() || !content[0].is_object()) return {};
  return content[0].value("text", std::string());
}

std::string metaString(const json& result, const char* key) {
  const auto meta = result.find("_meta");
  if (meta == result.end() || !meta->is_object()) return {};
  const auto at = meta->find(key);
  return at != meta->end() && at->is_string() ? at->get<std::string>() : std::string();
}

// The result's text when the lane answered with something to show, else nothing; an error is
// kept as a problem.
std::optional<std::string> shown(const json& result, std::string_view lane, std::string_view kind,
                                 std::vector<std::string>& problems) {
  if (result.value("isError", false)) {
    problems.push_back(std::string(lane) + ": " + textOf(result));
    return std::nullopt;
  }
  if (metaString(result, "quillon/replyKind") != kind) return std::nullopt;
  return textOf(result);
}

void append(std::string& text, const std::string& block) {
  if (block.empty()) return;
  if (!text.empty()) text += "\n\n";
  text += block;
}

}  // namespace

std::optional<HookInput> readHookInput(std::string_view text) {
  const json parsed = json::parse(text, nullptr, false);
  if (!parsed.is_object()) return std::nullopt;
  HookInput input{.session = nonEmptyString(parsed, "session_id"),
                  .prompt = {},
                  .cwd = nonEmptyString(parsed, "cwd"),
                  .transcript = nonEmptyString(parsed, "transcript_path")};
  if (const auto prompt = parsed.find("prompt"); prompt != parsed.end() && prompt->is_string())
    input.prompt = prompt->get<std::string>();
  if (!input.session) input.session = nonEmptyString(parsed, "conversation_id");
  if (const auto roots = parsed.find("workspace_roots");
      !input.cwd && roots != parsed.end() && roots->is_array() && !roots->empty() && (*roots)[0].is_string())
    input.cwd = (*roots)[0].get<std::string>();
  return input;
}

Injection promptLane(bridge::MCPBridge& bridge, const HookInput& input) {
  Injection injection;
  if (!input.prompt) {
    injection.problems.push_back("the hook's input holds no prompt string");
    return injection;
  }
  const json rules = bridge.call("rules_get", identity(input), std::nullopt, input.session);
  if (auto block = shown(rules, "rules_get", "rules", injection.problems)) append(injection.text, *block);
  json arguments = identity(input);
  arguments["prompt"] = *input.prompt;
  const json recalled = bridge.call("memory_get_relevant", arguments, std::nullopt, input.session);
  if (auto block = shown(recalled, "memory_get_relevant", "cards", injection.problems))
    append(injection.text, *block);
  append(injection.text, metaString(recalled, "quillon/shortcut"));
  append(injection.text, metaString(recalled, "quillon/now"));
  return injection;
}

Injection sessionStartLane(bridge::MCPBridge& bridge, const HookInput& input) {
  Injection injection;
  json arguments = identity(input);
  arguments["card"] = true;
  arguments["card_ceiling"] = kSessionCardCeiling;
  const json rules = bridge.call("rules_get", arguments, std::nullopt, input.session);
  if (auto block = shown(rules, "rules_get", "rules", injection.problems)) append(injection.text, *block);
  return injection;
}

std::string clientName(std::string_view agent) {
  if (agent == "claude") return "claude-code";
  return std::string(agent);
}

}  // namespace quillon::hook
