// The built quillon-mcp through real pipes, as an agent runs it.
#include <gtest/gtest.h>

#include <nlohmann/json.hpp>

#include "ChildProcess.hpp"

using nlohmann::json;
using quillon::test::ChildProcess;

namespace {

// Exit status 0, and never a byte on standard error.
void expectCleanExit(ChildProcess& bridge) {
  EXPECT_EQ(bridge.readAllErrors(), "");
  const int status = bridge.wait();
  ASSERT_TRUE(WIFEXITED(status)) << "status " << status;
  EXPECT_EQ(WEXITSTATUS(status), 0);
}

TEST(BridgeProcess, EmptyInputExitsZeroWritingNothing) {
  ChildProcess bridge(QUILLON_MCP_PATH);
  bridge.closeInput();
  EXPECT_EQ(bridge.readRemainingOutput(), "");
  expectCleanExit(bridge);
}

TEST(BridgeProcess, AnswersEachRequestBeforeTheNextIsSent) {
  ChildProcess bridge(QUILLON_MCP_PATH);
  bridge.write(R"({"jsonrpc":"2.0","id":1,"method":"initialize","params":{"protocolVersion":"2025-06-18","clientInfo":{"name":"e2e"}}})" "\n");
  const json init = json::parse(bridge.readLine());
  EXPECT_EQ(init["id"], 1);
  EXPECT_EQ(init["result"]["protocolVersion"], "2024-11-05");
  EXPECT_EQ(init["result"]["serverInfo"]["name"], "quillon");
  // The build places VERSION beside the executable; initialize reports it.
  EXPECT_NE(init["result"]["serverInfo"]["version"], "0");

  bridge.write(R"({"jsonrpc":"2.0","method":"notifications/initialized"})" "\n");
  bridge.write(R"({"jsonrpc":"2.0","id":"p","method":"ping"})" "\n");
  EXPECT_EQ(bridge.readLine(), R"({"id":"p","jsonrpc":"2.0","result":{}})");

  bridge.write(R"({"jsonrpc":"2.0","id":2,"method":"tools/list"})" "\n");
  const json list = json::parse(bridge.readLine());
  EXPECT_EQ(list["result"]["tools"].size(), 34u);

  bridge.write("not json\n" R"({"jsonrpc":"2.0","id":3,"method":"prompts/list"})" "\n");
  EXPECT_EQ(json::parse(bridge.readLine())["error"], (json{{"code", -32601}, {"message", "Method not found: prompts/list"}}));

  bridge.write(R"({"jsonrpc":"2.0","id":4,"method":"tools/call","params":{"name":"nope","arguments":{}}})" "\n");
  EXPECT_EQ(json::parse(bridge.readLine())["result"],
            json::parse(R"({"content":[{"type":"text","text":"Unknown tool: nope"}],"isError":true})"));

  bridge.closeInput();
  EXPECT_EQ(bridge.readRemainingOutput(), "");
  expectCleanExit(bridge);
}

TEST(BridgeProcess, AnswersVersionAndHelpAndIgnoresAnAgentsOwnArguments) {
  ChildProcess version(QUILLON_MCP_PATH, {}, ChildProcess::Inherit::everything, {"--version"});
  const std::string said = version.readLine();
  EXPECT_TRUE(said.starts_with("quillon-mcp ") && said != "quillon-mcp 0") << said;
  EXPECT_EQ(version.readRemainingOutput(), "");
  expectCleanExit(version);

  // Asked by hand, it explains itself instead of waiting for JSON-RPC.
  ChildProcess help(QUILLON_MCP_PATH, {}, ChildProcess::Inherit::everything, {"--help"});
  const std::string usage = help.readRemainingOutput();
  EXPECT_TRUE(usage.starts_with("quillon-mcp: the Quillon MCP server.")) << usage;
  for (const char* named : {"XDG_RUNTIME_DIR", "CLAUDE_CODE_SESSION_ID", "README.md"})
    EXPECT_NE(usage.find(named), std::string::npos) << named;
  expectCleanExit(help);

  ChildProcess served(QUILLON_MCP_PATH, {}, ChildProcess::Inherit::everything, {"--stdio", "serve"});
  served.write(R"({"jsonrpc":"2.0","id":1,"method":"ping"})" "\n");
  EXPECT_EQ(served.readLine(), R"({"id":1,"jsonrpc":"2.0","result":{}})");
  served.closeInput();
  expectCleanExit(served);
}

TEST(BridgeProcess, HostileLinesAreDroppedAndTheSessionGoesOn) {
  ChildProcess bridge(QUILLON_MCP_PATH);
  bridge.write("{\"id\":" + std::string(100000, '[') + std::string(100000, ']') + ",\"method\":\"ping\"}\n");
  bridge.write(std::string(1, '\xFF') + "\x00\x01{\n");
  bridge.write("[" R"({"id":1,"method":"ping"})" "]\n");
  // A ping followed by a NUL and junk is not a ping.
  bridge.write(std::string(R"({"id":0,"method":"ping"})" "\0junk\n", 30));
  bridge.write(R"({"id":"\u00e9","method":"ping"})" "\n");
  EXPECT_EQ(json::parse(bridge.readLine())["id"], "\xC3\xA9");
  bridge.closeInput();
  EXPECT_EQ(bridge.readRemainingOutput(), "");
  expectCleanExit(bridge);
}

TEST(BridgeProcess, AnAgentThatStopsReadingEndsTheBridgeQuietly) {
  ChildProcess bridge(QUILLON_MCP_PATH);
  bridge.closeOutput();
  bridge.write(R"({"id":1,"method":"ping"})" "\n");
  expectCleanExit(bridge);
}

}  // namespace
