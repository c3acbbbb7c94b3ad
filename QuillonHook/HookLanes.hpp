// HookLanes: what the agents' prompt and session-start hooks add to the model's context, made by
// the bridge's own dispatcher and renderers, so every block is byte for byte what the tools answer.
//
// The prompt lane is the user-rules block, then the quillon-memory block when it holds cards (an
// empty one every turn would be noise), then the shortcut and the just-ended-meeting blocks that
// ride in the recall answer's metadata. The session-start lane is the rules card for the folder,
// or nothing when no rule is in force there. A lane whose tool fails is left out and its reason
// kept for the gateway's diagnostic log; the hook itself never fails a prompt.
#pragma once

#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace quillon::bridge {
class MCPBridge;
}

namespace quillon::hook {

// What an agent's hook passes on standard input, from whichever agent ran it. Members not read
// here are ignored; a member of the wrong JSON type counts as absent.
struct HookInput {
  std::optional<std::string> session;     // session_id, or Cursor's conversation_id
  std::optional<std::string> prompt;      // UserPromptSubmit only
  std::optional<std::string> cwd;         // cwd, or Cursor's first workspace root
  std::optional<std::string> transcript;  // transcript_path
};

// Nothing when the text is not one JSON object.
std::optional<HookInput> readHookInput(std::string_view text);

struct Injection {
  std::string text;                   // empty when there is nothing to add
  std::vector<std::string> problems;  // why a block was left out, for the diagnostic log
};

// The rules card's byte ceiling at session start: past it the card gives way to its pointer.
inline constexpr int kSessionCardCeiling = 6000;

Injection promptLane(bridge::MCPBridge& bridge, const HookInput& input);
Injection sessionStartLane(bridge::MCPBridge& bridge, const HookInput& input);

// The name the hook introduces itself by for `--agent`, as that agent's own MCP client does, so
// the gateway files the hook's prompts under the same agent as its tool calls.
std::string clientName(std::string_view agent);

}  // namespace quillon::hook
