// CodexConfig: the quillon table of Codex's config.toml, added and removed as lines of text.
//
// The file is read with a TOML parser, so a file that is not TOML is refused and the table is
// found wherever the user's own layout put it; the change itself is made to the lines, so the
// user's comments, order and spacing stay exactly as they were (a TOML writer would drop them).
#pragma once

#include <optional>
#include <string>

namespace quillon::hook {

struct TomlChange {
  std::optional<std::string> text;  // the new file; nothing when it stays as it is
  std::string what;                 // what changed, for the person
  std::string problem;              // why the file was left alone; empty when it was not
};

// [mcp_servers.quillon] starting `bridge`: appended when missing, its lines replaced when the
// table says something else.
TomlChange withQuillonServer(const std::string& text, const std::string& bridge);
// The file without [mcp_servers.quillon] (and the blank line that was put before it).
TomlChange withoutQuillonServer(const std::string& text);

}  // namespace quillon::hook
