// Putting Quillon into agents' files and taking it out, in a temporary home: the user's own
// entries stay, a second install changes nothing, and uninstall gives back the very bytes.
#include "QuillonHook/AgentSetup.hpp"

#include <gtest/gtest.h>

#include <nlohmann/json.hpp>

#include <filesystem>
#include <fstream>
#include <sstream>

#include "DoorTestSupport.hpp"

namespace quillon::hook {
namespace {

using nlohmann::json;
namespace fs = std::filesystem;

class AgentSetupTest : public ::testing::Test {
 protected:
  test::TempFolder temp;
  SetupPaths paths{.home = temp.path(), .bridge = "/opt/q/quillon-mcp", .hook = "/opt/q/quillon-hook"};

  void put(const std::string& relative, const std::string& bytes) {
    fs::create_directories(fs::path(temp.path() + "/" + relative).parent_path());
    std::ofstream(temp.path() + "/" + relative, std::ios::binary) << bytes;
  }
  std::string get(const std::string& relative) {
    std::ifstream in(temp.path() + "/" + relative, std::ios::binary);
    std::ostringstream bytes;
    bytes << in.rdbuf();
    return bytes.str();
  }
  bool has(const std::string& relative) { return fs::exists(temp.path() + "/" + relative); }
  SetupReport run(SetupAction action, std::vector<std::string> agents, bool dryRun = false) {
    return setUp(action, agents, paths, dryRun);
  }
};

TEST_F(AgentSetupTest, ClaudeKeepsTheUsersOwnAndUninstallGivesBackTheBytes) {
  const std::string config = "{\n    \"numStartups\": 12,\n    \"mcpServers\": {\n        \"github\": {\n"
                             "            \"command\": \"gh-mcp\"\n        }\n    },\n    \"theme\": \"dark\"\n}\n";
  const std::string settings = R"({
  "model": "opus",
  "hooks": {
    "UserPromptSubmit": [{"hooks": [{"type": "command", "command": "~/bin/lint-prompt"}]}]
  }
})";
  put(".claude.json", config);
  put(".claude/settings.json", settings);

  const auto installed = run(SetupAction::install, {"claude"});
  EXPECT_FALSE(installed.failed);
  EXPECT_EQ(installed.lines, (std::vector<std::string>{"~/.claude.json: added mcpServers.quillon",
                                                       "~/.claude/settings.json: added the UserPromptSubmit hook, "
                                                       "added the SessionStart hook"}));
  const json claude = json::parse(get(".claude.json"));
  EXPECT_EQ(claude["mcpServers"]["github"]["command"], "gh-mcp");
  EXPECT_EQ(claude["mcpServers"]["quillon"],
            json::parse(R"({"type":"stdio","command":"/opt/q/quillon-mcp","args":[],"env":{}})"));
  EXPECT_EQ(get(".claude.json").substr(0, 26), "{\n    \"numStartups\": 12,\n ");  // order and indentation kept
  const json hooks = json::parse(get(".claude/settings.json"))["hooks"];
  EXPECT_EQ(hooks["UserPromptSubmit"][0]["hooks"][0]["command"], "~/bin/lint-prompt");
  EXPECT_EQ(hooks["UserPromptSubmit"][1]["hooks"][0],
            json::parse(R"({"type":"command","command":"/opt/q/quillon-hook prompt --agent claude","timeout":5})"));
  EXPECT_EQ(hooks["SessionStart"][0]["matcher"], "startup|resume|clear|compact");
  EXPECT_EQ(get(".claude.json.bak"), config);
  EXPECT_EQ(get(".claude/settings.json.bak"), settings);

  const std::string once = get(".claude.json") + get(".claude/settings.json");
  EXPECT_EQ(run(SetupAction::install, {"claude"}).lines,
            (std::vector<std::string>{"~/.claude.json: already set up", "~/.claude/settings.json: already set up"}));
  EXPECT_EQ(get(".claude.json") + get(".claude/settings.json"), once);

  // A newer build elsewhere: the entries move with it, in place.
  paths.hook = "/home/mq/quillon build/quillon-hook";
  EXPECT_EQ(run(SetupAction::install, {"claude"}).lines[1],
            "~/.claude/settings.json: updated the UserPromptSubmit hook, updated the SessionStart hook");
  EXPECT_EQ(json::parse(get(".claude/settings.json"))["hooks"]["UserPromptSubmit"][1]["hooks"][0]["command"],
            "'/home/mq/quillon build/quillon-hook' prompt --agent claude");

  EXPECT_FALSE(run(SetupAction::uninstall, {"claude"}, true).failed);  // a dry run writes nothing
  EXPECT_NE(get(".claude.json"), config);
  run(SetupAction::uninstall, {"claude"});
  EXPECT_EQ(get(".claude.json"), config);
  EXPECT_EQ(get(".claude/settings.json"), settings);
  EXPECT_FALSE(has(".claude.json.bak") || has(".claude/settings.json.bak"));
  EXPECT_EQ(run(SetupAction::uninstall, {"claude"}).lines[0], "~/.claude.json: nothing of Quillon's in it");
}

TEST_F(AgentSetupTest, EveryAgentInAnEmptyHomeAndOutAgainLeavesNoFile) {
  const auto dry = run(SetupAction::install, knownAgents(), true);
  EXPECT_EQ(dry.lines.size(), 7u);
  EXPECT_EQ(dry.lines[2], "~/.codex/config.toml (a dry run: not written): added [mcp_servers.quillon]");
  EXPECT_FALSE(has(".claude.json"));

  const auto installed = run(SetupAction::install, knownAgents());
  EXPECT_FALSE(installed.failed);
  EXPECT_EQ(installed.notes.size(), 2u);  // Claude Code rewrites its file; Codex asks to trust the hooks
  EXPECT_EQ(get(".codex/config.toml"), "[mcp_servers.quillon]\ncommand = \"/opt/q/quillon-mcp\"\nargs = []\n");
  EXPECT_EQ(json::parse(get(".codex/hooks.json"))["hooks"]["SessionStart"][0]["hooks"][0]["command"],
            "/opt/q/quillon-hook session-start --agent codex");
  EXPECT_EQ(json::parse(get(".cursor/hooks.json")),
            json::parse(R"({"version":1,"hooks":{"sessionStart":[
              {"command":"/opt/q/quillon-hook session-start --agent cursor"}]}})"));
  EXPECT_EQ(json::parse(get(".config/opencode/opencode.json")),
            json::parse(R"({"mcp":{"quillon":{"type":"local","command":["/opt/q/quillon-mcp"],"enabled":true}}})"));

  EXPECT_FALSE(run(SetupAction::uninstall, knownAgents()).failed);
  for (const std::string file : {".claude.json", ".claude/settings.json", ".codex/config.toml", ".codex/hooks.json",
                                 ".cursor/mcp.json", ".cursor/hooks.json", ".config/opencode/opencode.json"})
    EXPECT_FALSE(has(file) || has(file + ".bak")) << file;
}

TEST_F(AgentSetupTest, CodexConfigKeepsItsCommentsAndLayout) {
  const std::string config = "# my Codex settings\nmodel = \"o4\"  # fast\n\n[mcp_servers.docs]\ncommand = \"docs-mcp\"\n"
                             "\n[profiles.work]\napproval_policy = \"never\"\n";
  put(".codex/config.toml", config);
  run(SetupAction::install, {"codex"});
  EXPECT_EQ(get(".codex/config.toml"),
            config + "\n[mcp_servers.quillon]\ncommand = \"/opt/q/quillon-mcp\"\nargs = []\n");
  EXPECT_EQ(run(SetupAction::install, {"codex"}).lines[0], "~/.codex/config.toml: already set up");
  run(SetupAction::uninstall, {"codex"});
  EXPECT_EQ(get(".codex/config.toml"), config);
  EXPECT_FALSE(has(".codex/config.toml.bak"));

  // A quillon table of the user's own, mid-file: replaced where it stands.
  put(".codex/config.toml", "[mcp_servers.quillon]\ncommand = \"old\" # mine\n\n[profiles.work]\nx = 1\n");
  EXPECT_EQ(run(SetupAction::install, {"codex"}).lines[0], "~/.codex/config.toml: updated [mcp_servers.quillon]");
  EXPECT_EQ(get(".codex/config.toml"),
            "[mcp_servers.quillon]\ncommand = \"/opt/q/quillon-mcp\"\nargs = []\n\n[profiles.work]\nx = 1\n");
}

TEST_F(AgentSetupTest, AFileThatDoesNotParseIsLeftAsItIs) {
  put(".claude.json", "{\"mcpServers\": {");
  put(".codex/config.toml", "model = \n");
  put(".config/opencode/opencode.json", "{\n  // my servers\n  \"mcp\": {}\n}\n");
  const auto report = run(SetupAction::install, {"claude", "codex", "opencode"});
  EXPECT_TRUE(report.failed);
  EXPECT_EQ(report.lines[0], "~/.claude.json: left as it is: it does not parse as JSON");
  EXPECT_EQ(report.lines[2].substr(0, 62), "~/.codex/config.toml: left as it is: it does not parse as TOML");
  EXPECT_EQ(report.lines[4], "~/.config/opencode/opencode.json: left as it is: it holds comments, which rewriting it "
                             "would lose; make the change by hand");
  EXPECT_EQ(get(".claude.json"), "{\"mcpServers\": {");
  EXPECT_FALSE(has(".claude.json.bak"));
  EXPECT_EQ(report.lines[1], "~/.claude/settings.json: added the UserPromptSubmit hook, added the SessionStart hook");
}

TEST(HookCommand, QuotesAPathOnlyWhenAShellWouldSplitIt) {
  EXPECT_EQ(hookCommand("/usr/lib/quillon/quillon-hook", "prompt", "codex"),
            "/usr/lib/quillon/quillon-hook prompt --agent codex");
  EXPECT_EQ(hookCommand("/home/o'neil/q b/quillon-hook", "session-start", "claude"),
            "'/home/o'\\''neil/q b/quillon-hook' session-start --agent claude");
}

}  // namespace
}  // namespace quillon::hook
