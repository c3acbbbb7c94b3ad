#include "QuillonMCPBridge/ClientIdentification.hpp"

#include <nlohmann/json.hpp>

namespace quillon::bridge {

using nlohmann::json;

namespace {

constexpr std::string_view kSessionKey = "_quillon_session";
constexpr std::string_view kSubagentKey = "_quillon_subagent";
// Identity keys of earlier bridges: still removed, never read.
constexpr std::string_view kLegacyIdentityKeys[] = {"_quillon_agent"};

json take(json& arguments, std::string_view key) {
  const auto found = arguments.find(key);
  if (found == arguments.end()) return nullptr;
  json value = std::move(*found);
  arguments.erase(found);
  return value;
}

std::optional<std::string> callID(const json& value) {
  if (!isCallID(value)) return std::nullopt;
  return value.get<std::string>();
}

}  // namespace

bool isCallID(const json& candidate) {
  if (!candidate.is_string()) return false;
  const std::string_view value = candidate.get_ref<const std::string&>();
  if (value.empty() || value.size() > 40) return false;
  for (auto reserved : reservedCallIDs)
    if (value == reserved) return false;
  for (unsigned char c : value) {
    const bool ok = (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z') || (c >= '0' && c <= '9') ||
                    c == '_' || c == '-';
    if (!ok) return false;
  }
  return true;
}

CallIDs takeCallIDs(json& arguments) {
  if (!arguments.is_object()) return {};
  const json session = take(arguments, kSessionKey);
  const json subagent = take(arguments, kSubagentKey);
  for (auto key : kLegacyIdentityKeys) take(arguments, key);
  return {callID(session), callID(subagent)};
}

std::optional<CallIDs> codexTurn(const json& meta) {
  if (!meta.is_object()) return std::nullopt;
  const auto turn = meta.find("x-codex-turn-metadata");
  if (turn == meta.end() || !turn->is_object()) return std::nullopt;

  CallIDs ids;
  if (const auto s = turn->find("session_id"); s != turn->end() && s->is_string() && !s->get_ref<const std::string&>().empty())
    ids.session = s->get<std::string>();
  const auto source = turn->find("thread_source");
  const bool fromSubagent = source != turn->end() && source->is_string() && *source == "subagent";
  if (const auto thread = turn->find("thread_id"); fromSubagent && thread != turn->end())
    ids.subagent = callID(*thread);
  return ids;
}

bool isOpencodeCall(const json& meta) {
  if (!meta.is_object()) return false;
  const auto marker = meta.find("ai.opencode/sessionID");
  return marker != meta.end() && marker->is_string() && !marker->get_ref<const std::string&>().empty();
}

}  // namespace quillon::bridge
