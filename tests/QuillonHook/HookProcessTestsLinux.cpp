// The built quillon-hook as an agent runs it: hook JSON in, context out, beside a real gateway;
// silence and status 0 whatever goes wrong; and the install into a fresh home.
#include <sys/wait.h>

#include <gtest/gtest.h>

#include <nlohmann/json.hpp>

#include <chrono>
#include <filesystem>
#include <fstream>
#include <sstream>
#include <thread>

#include "ChildProcess.hpp"
#include "DoorTestSupport.hpp"
#include "QuillonGateway/MemoryStore.hpp"
#include "QuillonGateway/StoreGateway.hpp"
#include "QuillonWire/GatewayRequest.hpp"
#include "QuillonWire/WireCodec.hpp"

namespace quillon::test {
namespace {

using namespace std::chrono_literals;
using nlohmann::json;

std::string contents(const std::string& path) {
  std::ifstream in(path);
  std::ostringstream text;
  text << in.rdbuf();
  return text.str();
}

class HookProcess : public ::testing::Test {
 protected:
  HookProcess() {
    std::filesystem::create_directory(runtime);
    std::filesystem::permissions(runtime, std::filesystem::perms::owner_all);
  }
  ~HookProcess() override {
    if (gateway) ::kill(gateway->pid(), SIGTERM);
  }

  std::map<std::string, std::string> environment(const std::string& serviceName) const {
    return {{"XDG_RUNTIME_DIR", runtime}, {"XDG_DATA_HOME", temp.path() + "/data"}, {"HOME", temp.path() + "/home"},
            {"QUILLON_MCP_GATEWAY_FOR_TESTS", serviceName}};
  }

  void startGateway() {
    gateway = std::make_unique<ChildProcess>(QUILLON_GATEWAY_PATH, environment(service));
    for (int i = 0; i < 500 && !std::filesystem::exists(runtime + "/quillon/" + service); ++i)
      std::this_thread::sleep_for(10ms);
    std::this_thread::sleep_for(50ms);
  }

  // Saves a memory straight into the gateway's store, as another bridge would.
  void save(const std::string& text, json extra = json::object()) {
    gateway::MemoryStore store(temp.path() + "/data/quillon/store.db");
    gateway::StoreGateway served(store, {}, gateway::StoreGateway::systemClock());
    json write = {{"text", text}, {"why", "w"}, {"writer", "test"}, {"type", ""}, {"path", ""}};
    write.update(extra);
    served.serve(wire::decodeRequest(json{{"notes", {{"_0", {{"write", write}}}}}}.dump()).value());
  }

  struct Run {
    std::string output, errors;
    int status;
  };
  Run hook(const std::vector<std::string>& arguments, const std::string& input, const std::string& serviceName = "") {
    ChildProcess process(QUILLON_HOOK_PATH, environment(serviceName.empty() ? service : serviceName),
                         ChildProcess::Inherit::nothing, arguments);
    process.write(input);
    process.closeInput();
    Run run;
    run.output = process.readRemainingOutput();
    run.errors = process.readAllErrors();
    run.status = process.wait();
    return run;
  }

  TempFolder temp;
  const std::string runtime = temp.path() + "/run";
  const std::string service = freshServiceName();
  std::unique_ptr<ChildProcess> gateway;
};

TEST_F(HookProcess, APromptGetsRulesMemoryAndShortcutsAndTheRunbooksAreInPlace) {
  startGateway();
  save("Never force-push to main", {{"type", "rule"}});
  save("Deploy atlas with make release-stg, then watch the rollout.",
       {{"type", "recipe"}, {"title", "Deploying atlas to staging"}});
  save("Summarise the diff for review", {{"type", "shortcut"}, {"filters", {{"name", "review"}}}});
  for (int i = 0; i < 10; ++i) save("garden note " + std::to_string(i));

  const json input = {{"session_id", "s-7"}, {"prompt", "remind me how deploying atlas to staging goes"},
                      {"cwd", "/tmp"}, {"transcript_path", "/tmp/t.jsonl"}, {"hook_event_name", "UserPromptSubmit"}};
  const auto related = hook({"prompt", "--agent", "claude"}, input.dump());
  EXPECT_EQ(related.status, 0);
  EXPECT_EQ(related.errors, "");
  EXPECT_EQ(related.output.rfind("<user-rules>\n", 0), 0u) << related.output;
  EXPECT_NE(related.output.find("\n- Never force-push to main\n</user-rules>\n\n<quillon-memory>\n"), std::string::npos);
  EXPECT_NE(related.output.find("  Deploying atlas to staging\n"), std::string::npos);
  EXPECT_TRUE(related.output.ends_with("\n</quillon-memory>\n")) << related.output;

  json shortcut = input;
  shortcut["prompt"] = "\\review please";
  const auto fired = hook({"prompt", "--agent", "codex"}, shortcut.dump());
  EXPECT_NE(fired.output.find("</user-rules>\n\n<quillon-shortcut>\nThe user's message begins with \\review"),
            std::string::npos)
      << fired.output;

  const auto start = hook({"session-start", "--agent", "cursor"}, R"({"conversation_id":"c-1","workspace_roots":["/w"]})");
  const json cursor = json::parse(start.output);
  EXPECT_NE(cursor["additional_context"].get<std::string>().find("\n/ (everywhere)\n- Never force-push to main\n"),
            std::string::npos);

  for (const char* name : {"rules.md", "shortcuts.md", "mods.md", "scopes.md", "duplicates.md", "retrospective.md",
                           "optimize.md"})
    EXPECT_FALSE(contents(temp.path() + "/data/quillon/runbooks/" + name).empty()) << name;
}

TEST_F(HookProcess, ASecondSessionCarriesOnTheFirstThroughItsHooksAndTheBridge) {
  startGateway();
  const std::string transcript = temp.path() + "/first.jsonl";
  std::ofstream(transcript)
      << R"({"type":"user","message":{"role":"user","content":"Fix the upload retry"}})" "\n"
      << R"({"type":"assistant","message":{"content":[{"type":"tool_use","name":"Edit","input":{"file_path":"/p/retry.ts"}}]}})" "\n";
  const auto prompt = [&](const std::string& session, const std::string& text, const std::string& path) {
    json input = {{"session_id", session}, {"prompt", text}, {"cwd", "/tmp"}, {"hook_event_name", "UserPromptSubmit"}};
    if (!path.empty()) input["transcript_path"] = path;
    EXPECT_EQ(hook({"prompt", "--agent", "claude"}, input.dump()).status, 0);
  };
  prompt("s-a", "Fix the upload retry", transcript);
  prompt("s-a", "and its tests", transcript);
  prompt("s-b", "where was I?", "");

  auto environment = this->environment(service);
  environment["CLAUDE_CODE_SESSION_ID"] = "s-b";
  ChildProcess bridge(QUILLON_MCP_PATH, environment);
  bridge.write(R"({"jsonrpc":"2.0","id":0,"method":"initialize","params":{"clientInfo":{"name":"claude-code"}}})" "\n");
  bridge.readLine();
  const auto call = [&](const std::string& tool, const json& arguments) {
    bridge.write(json{{"jsonrpc", "2.0"}, {"id", 1}, {"method", "tools/call"},
                      {"params", {{"name", tool}, {"arguments", arguments}}}}
                     .dump() +
                 "\n");
    return json::parse(bridge.readLine())["result"]["content"][0]["text"].get<std::string>();
  };
  const std::string offer = call("session_list", json::object());
  EXPECT_NE(offer.find("Scope: /\n\n- Session: Fix the upload retry\n    today "), std::string::npos) << offer;
  EXPECT_NE(offer.find(" · 2 turns\n      ├ (a)  continue\n"), std::string::npos) << offer;
  EXPECT_NE(offer.find("(a) grab s-a; read the last 20 turns"), std::string::npos) << offer;
  const std::string card = call("grab", {{"id", "s-a"}});
  EXPECT_EQ(card.rfind("[session] s-a · today ", 0), 0u) << card;
  EXPECT_NE(card.find("\n  Fix the upload retry\n  when: started today "), std::string::npos) << card;
  EXPECT_NE(card.find("\n  files (1):\n    /p/retry.ts\n  tail:\n    You: Fix the upload retry\n  file: " +
                      transcript + "\n  why: claude-code chat in / · 2 turns"),
            std::string::npos)
      << card;
}

TEST_F(HookProcess, AnythingWrongIsSilenceAndStatusZeroWithTheReasonLogged) {
  // No gateway at all.
  const auto alone = hook({"prompt"}, R"({"session_id":"s","prompt":"hello"})", "example.fernhollow.quillon.test.none");
  EXPECT_EQ(alone.output + alone.errors, "");
  EXPECT_TRUE(WIFEXITED(alone.status) && WEXITSTATUS(alone.status) == 0);

  startGateway();
  for (const std::string junk : {"", "not json", R"({"prompt":42})", R"(["x"])"}) {
    const auto run = hook({"prompt", "--agent", "claude"}, junk);
    EXPECT_EQ(run.output + run.errors, "") << junk;
    EXPECT_TRUE(WIFEXITED(run.status) && WEXITSTATUS(run.status) == 0) << junk;
  }
  const std::string log = contents(temp.path() + "/data/quillon/diagnostic.log");
  EXPECT_NE(log.find("hook: prompt --agent claude: the hook's input is not a JSON object (8 bytes)"),
            std::string::npos)
      << log;
  EXPECT_NE(log.find("hook: prompt --agent claude: the hook's input holds no prompt string"), std::string::npos);
}

TEST_F(HookProcess, InstalledIntoAFreshHomeTheHookClaudeRunsBringsRulesAndMemory) {
  startGateway();
  save("Never force-push to main", {{"type", "rule"}});
  save("Deploy atlas with make release-stg, then watch the rollout.",
       {{"type", "recipe"}, {"title", "Deploying atlas to staging"}});
  for (int i = 0; i < 10; ++i) save("garden note " + std::to_string(i));

  const auto installed = hook({"install", "--agent", "claude"}, "");
  EXPECT_EQ(installed.status, 0) << installed.output << installed.errors;
  const std::string folder = std::filesystem::path(QUILLON_HOOK_PATH).parent_path().string();
  const json claude = json::parse(contents(temp.path() + "/home/.claude.json"));
  EXPECT_EQ(claude["mcpServers"]["quillon"]["command"], std::filesystem::canonical(folder + "/quillon-mcp").string());

  // The command as Claude Code runs it: through a shell, the hook JSON on its input.
  const json settings = json::parse(contents(temp.path() + "/home/.claude/settings.json"));
  const std::string command = settings["hooks"]["UserPromptSubmit"][0]["hooks"][0]["command"];
  ChildProcess shell("/bin/sh", environment(service), ChildProcess::Inherit::nothing, {"-c", command});
  shell.write(json{{"session_id", "s-9"}, {"prompt", "how does deploying atlas to staging go?"}, {"cwd", "/tmp"}}.dump());
  shell.closeInput();
  const std::string output = shell.readRemainingOutput();
  EXPECT_NE(output.find("- Never force-push to main\n</user-rules>\n\n<quillon-memory>\n"), std::string::npos) << output;
  EXPECT_NE(output.find("  Deploying atlas to staging\n"), std::string::npos) << output;

  EXPECT_EQ(hook({"uninstall", "--agent", "claude"}, "").status, 0);
  EXPECT_FALSE(std::filesystem::exists(temp.path() + "/home/.claude.json"));
  const auto unknown = hook({"install", "--agent", "emacs"}, "");
  EXPECT_TRUE(WIFEXITED(unknown.status) && WEXITSTATUS(unknown.status) == 2);
}

}  // namespace
}  // namespace quillon::test
