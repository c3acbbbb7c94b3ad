// AgentInventory: the AI agents on this machine, as the model reads it before cleaning up
// duplicate or clashing memory (runbooks/duplicates.md).
//
// For Claude Code, Codex, Cursor and opencode, in that order: whether it is installed (its program
// on PATH, or its home folder), whether it is connected to Quillon (an MCP server that runs
// quillon-mcp, hooks that run quillon-hook), then 1. the home-level memory files that exist and
// 2. the projects its own session store reveals, newest first, each with the memory file the
// project keeps. Memory files are only stat'ed, never opened: the inventory reads the agents'
// settings and the first line of Codex's session files, and writes nothing.
//
// Every bad thing the disk can hold (a config that does not parse, a FIFO, a symlink loop, a
// huge folder, a file it may not read) becomes a few words in the text; nothing throws for it and
// every read and every folder walk is bounded. The text is deterministic for a given disk and
// moment: sorted, no timing. Stateless; safe from any thread (dates are local time).
#pragma once

#include <optional>
#include <string>

namespace quillon::gateway {

// Where to look, and when "today" is.
struct InventoryPlaces {
  std::string home;                       // the user's home folder
  std::string path;                       // PATH: the folders the agents' programs are looked for in
  std::optional<std::string> codexHome;   // CODEX_HOME when set (else ~/.codex)
  std::optional<std::string> configHome;  // XDG_CONFIG_HOME when set and absolute (else ~/.config)
  double now = 0;                         // seconds since the epoch
};

std::string agentInventory(const InventoryPlaces& places);

}  // namespace quillon::gateway
