// AgentSetup: puts Quillon into an agent's own files, and takes it out again.
//
// For each agent: the MCP server entry that starts quillon-mcp, and the hooks that run
// quillon-hook on every prompt and at session start, where that agent reads them:
//   claude    ~/.claude.json (mcpServers.quillon), ~/.claude/settings.json (UserPromptSubmit,
//             SessionStart command hooks)
//   codex     ~/.codex/config.toml ([mcp_servers.quillon]), ~/.codex/hooks.json (the same hooks)
//   cursor    ~/.cursor/mcp.json (mcpServers.quillon), ~/.cursor/hooks.json (sessionStart: its
//             prompt hook cannot add context)
//   opencode  ~/.config/opencode/opencode.json (mcp.quillon; it runs no command hooks)
//
// Every file is merged, never rewritten from scratch: the user's own keys, servers and hooks stay
// as they are and in their order, the file keeps its indentation, and a second install changes
// nothing. Hook entries are Quillon's when their command runs a program named quillon-hook.
// Before the first change a file's previous content is kept beside it as <file>.bak; uninstall
// removes exactly what install added, and when what is left is what the .bak holds it puts those
// very bytes back (and drops the .bak), so install and uninstall leave a file as it was. A file that does not parse is
// left untouched, and the run says so and fails.
#pragma once

#include <string>
#include <vector>

namespace quillon::hook {

struct SetupPaths {
  std::string home;    // the user's home folder
  std::string bridge;  // absolute path of quillon-mcp
  std::string hook;    // absolute path of quillon-hook
};

struct SetupReport {
  std::vector<std::string> lines;  // one per file: what changed, or would with a dry run
  std::vector<std::string> notes;  // what the person should know next (Codex asks to trust hooks)
  bool failed = false;             // some file could not be read, parsed or written
};

enum class SetupAction { install, uninstall };

// The agents `--agent` names; "all" stands for every one of them.
const std::vector<std::string>& knownAgents();

// Applies `action` for each of `agents` (names from knownAgents). With `dryRun` nothing is
// written and the lines say what would change.
SetupReport setUp(SetupAction action, const std::vector<std::string>& agents, const SetupPaths& paths, bool dryRun);

// The command line an agent runs for the hook: the program (quoted for a shell when it must be)
// and its arguments.
std::string hookCommand(const std::string& hookPath, const std::string& lane, const std::string& agent);

}  // namespace quillon::hook
