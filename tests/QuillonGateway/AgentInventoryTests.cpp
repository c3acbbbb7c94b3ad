// The agent inventory over a home folder made up in a temporary folder: what the model reads,
// byte for byte, and that the disk's bad surprises (a FIFO, a link loop, a file that does not
// parse) become words rather than a hang or a throw.
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <gtest/gtest.h>

#include <cctype>
#include <cstdlib>
#include <ctime>
#include <filesystem>
#include <fstream>

#include "DoorTestSupport.hpp"
#include "QuillonGateway/AgentInventory.hpp"

namespace quillon::gateway {
namespace {

namespace fs = std::filesystem;

constexpr double kNow = 1800000000;  // 2027-01-15 08:00 UTC
constexpr double kDay = 86400;

class AgentInventoryTest : public ::testing::Test {
 protected:
  void SetUp() override {
    ::setenv("TZ", "UTC", 1);
    ::tzset();
  }

  std::string at(const std::string& relative) const { return home.path() + "/" + relative; }

  void put(const std::string& relative, const std::string& bytes, double modified = kNow) const {
    fs::create_directories(fs::path(at(relative)).parent_path());
    std::ofstream(at(relative), std::ios::binary) << bytes;
    const timespec times[2] = {{static_cast<time_t>(modified), 0}, {static_cast<time_t>(modified), 0}};
    ::utimensat(AT_FDCWD, at(relative).c_str(), times, 0);
  }

  std::string inventory() const {
    return agentInventory({.home = home.path(), .path = at("bin"), .codexHome = {}, .configHome = {}, .now = kNow});
  }

  test::TempFolder home;
};

TEST_F(AgentInventoryTest, ListsEachAgentsConnectionMemoryFilesAndProjects) {
  put("bin/claude", "");
  ::chmod(at("bin/claude").c_str(), 0755);
  put("bin/codex", "");  // not executable: no sign of Codex
  put(".claude.json", R"({"mcpServers": {"other": {"command": "npx"}, "quillon": {"command": "/opt/q/quillon-mcp"}}})");
  put(".claude/settings.json", R"({"hooks": {
      "UserPromptSubmit": [{"hooks": [{"type": "command", "command": "'/opt/my tools/quillon-hook' prompt"}]}],
      "Stop": [{"hooks": [{"command": "say"}]}]}})");
  put(".claude/CLAUDE.md", std::string(1234, 'x'), kNow - 40 * kDay);
  // The home itself holds dashes (quillon-door-test-…), as do the project names.
  std::string name = home.path() + "/code/";
  for (char& c : name) c = std::isalnum(static_cast<unsigned char>(c)) ? c : '-';
  put(".claude/projects/" + name + "my-app/a.jsonl", "{}", kNow - 3600);
  put(".claude/projects/" + name + "my-app/b.jsonl", "{}", kNow - 9 * kDay);
  put(".claude/projects/" + name + "tools-x-y/a.jsonl", "{}", kNow - 3 * kDay);
  put(".claude/projects/-nowhere-old-thing/a.jsonl", "{}", kNow - 100 * kDay);
  put(".claude/projects/-no-sessions/notes.txt", "");
  put("code/my-app/CLAUDE.md", "0123456789");
  put("code/my-app/.claude/CLAUDE.md", "0");
  fs::create_directories(at("code/tools/x.y"));
  // What the disk may hold in place of a project or a session: none of it may hang or count.
  ::mkfifo(at(".claude/projects/-fifo").c_str(), 0600);
  ::mkfifo(at(".claude/projects/" + name + "my-app/c.jsonl").c_str(), 0600);
  fs::create_directory_symlink("loop", at(".claude/projects/loop"));

  put(".codex/config.toml", "model = \"o3\"\n\n[mcp_servers.quillon]\ncommand = \"/opt/q/quillon-mcp\"\nargs = []\n");
  put(".codex/AGENTS.md", "12345");
  const std::string meta = R"({"timestamp":"t","type":"session_meta","payload":{"id":"i","cwd":")";
  put(".codex/sessions/2027/01/15/rollout-2027-01-15T07-00-00-a.jsonl", meta + at("code/my-app") + "\"}}\n{}\n",
      kNow - 7200);
  // A first line longer than what is read: its cwd still counts.
  put(".codex/sessions/2027/01/14/rollout-2027-01-14T07-00-00-b.jsonl",
      meta + at("code/atlas") + R"(","instructions":")" + std::string(100000, 'i') + "\"}}\n", kNow - kDay);
  put(".codex/sessions/2027/01/14/rollout-2027-01-14T06-00-00-c.jsonl", "not json\n", kNow - kDay);
  put("code/atlas/AGENTS.md", "abc");

  put(".cursor/mcp.json", "{\"mcpServers\": {");
  put(".cursor/hooks.json", R"({"version": 1, "hooks": {"sessionStart": [{"command": "/q/quillon-hook start"}]}})");
  put(".cursor/rules/style.mdc", "tabs");

  EXPECT_EQ(inventory(),
            "AI tools on this machine — read-only: the agents' settings and the first line of Codex's session files "
            "were read; memory files were only looked at, never opened.\n"
            "\nClaude Code — installed (~/bin/claude on PATH, ~/.claude) · connected to Quillon: MCP yes "
            "(~/.claude.json, server quillon), hooks yes (~/.claude/settings.json: UserPromptSubmit)\n"
            "  1. Home-level memory files:\n"
            "     ~/.claude/CLAUDE.md · 1,234 bytes · modified 2026-12-06\n"
            "  2. Projects its sessions reveal, newest first:\n"
            "     ~/code/my-app · last session today · CLAUDE.md 10 bytes · .claude/CLAUDE.md 1 byte\n"
            "     ~/code/tools/x.y · last session 3 days ago\n"
            "     -nowhere-old-thing · folder gone · last session on 2026-10-07\n"
            "\nCodex — installed (~/.codex) · connected to Quillon: MCP yes (~/.codex/config.toml, server quillon), "
            "hooks no (no ~/.codex/hooks.json)\n"
            "  1. Home-level memory files:\n"
            "     ~/.codex/AGENTS.md · 5 bytes · modified 2027-01-15\n"
            "  2. Projects its sessions reveal, newest first (1 session named no folder):\n"
            "     ~/code/my-app · last session today\n"
            "     ~/code/atlas · last session yesterday · AGENTS.md 3 bytes\n"
            "\nCursor — installed (~/.cursor) · connected to Quillon: MCP unknown (~/.cursor/mcp.json does not parse "
            "as JSON), hooks yes (~/.cursor/hooks.json: sessionStart)\n"
            "  1. Home-level memory files — Cursor keeps its user rules in its settings, not in a file:\n"
            "     ~/.cursor/rules/style.mdc · 4 bytes · modified 2027-01-15\n"
            "  2. Projects: no session store read here.\n"
            "\nopencode: not installed (no opencode on PATH, no ~/.config/opencode).\n"
            "\nSection 1's files are the home-level ones duplicates.md cleans up; section 2's per-project memory files "
            "are listed so they are left alone.");
}

TEST_F(AgentInventoryTest, SettingsThatCannotBeReadAreSaidSoAndNothingInstalledIsOneLineEach) {
  EXPECT_EQ(inventory(),
            "AI tools on this machine — read-only: the agents' settings and the first line of Codex's session files "
            "were read; memory files were only looked at, never opened.\n"
            "\nClaude Code: not installed (no claude on PATH, no ~/.claude).\n"
            "\nCodex: not installed (no codex on PATH, no ~/.codex).\n"
            "\nCursor: not installed (no cursor or cursor-agent on PATH, no ~/.cursor).\n"
            "\nopencode: not installed (no opencode on PATH, no ~/.config/opencode).\n"
            "\nNo AI tool found: none of their programs is on PATH and none of their folders exists.");

  fs::create_directories(at(".claude/projects"));
  ASSERT_EQ(::mkfifo(at(".claude.json").c_str(), 0600), 0);
  put(".claude/settings.json", "");
  ASSERT_EQ(::truncate(at(".claude/settings.json").c_str(), 9 << 20), 0);
  ASSERT_EQ(::symlink("CLAUDE.md", at(".claude/CLAUDE.md").c_str()), 0);
  put(".codex/config.toml", "[mcp_servers.quillon\ncommand = 1\n");
  put(".config/opencode/opencode.json",
      "{\n  // ours, switched off\n  \"mcp\": {\"q\": {\"command\": [\"/q/quillon-mcp\"], \"enabled\": false}}\n}");
  const std::string text = inventory();
  for (const auto* line :
       {"MCP unknown (~/.claude.json is not a regular file, so it was not read), hooks unknown "
        "(~/.claude/settings.json is over 8 MiB, so it was not read)\n",
        "     ~/.claude/CLAUDE.md cannot be looked at (Too many levels of symbolic links)\n",
        "  2. Projects its sessions reveal: none (~/.claude/projects holds no session).\n",
        "MCP unknown (~/.codex/config.toml does not parse as TOML: ",
        "  2. Projects its sessions reveal: none (no ~/.codex/sessions).\n",
        "opencode — installed (~/.config/opencode) · connected to Quillon: MCP off (~/.config/opencode/opencode.json, "
        "server q is disabled), no hooks (opencode runs no command hooks)\n"
        "  1. Home-level memory files: none (looked for ~/.config/opencode/AGENTS.md).\n"}) {
    EXPECT_NE(text.find(line), std::string::npos) << line << "\nin:\n" << text;
  }
}

}  // namespace
}  // namespace quillon::gateway
