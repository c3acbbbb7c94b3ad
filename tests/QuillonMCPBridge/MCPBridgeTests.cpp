#include "QuillonMCPBridge/MCPBridge.hpp"
#include "ScriptedGateway.hpp"

#include <gtest/gtest.h>

#include <nlohmann/json.hpp>

#include "QuillonMCPBridge/ToolResult.hpp"
#include "QuillonWire/ClientVersion.hpp"

using nlohmann::json;
using quillon::bridge::MCPBridge;

namespace {

json reply(MCPBridge& bridge, const json& message) {
  auto answer = bridge.handle(message);
  EXPECT_TRUE(answer.has_value()) << message;
  return answer.value_or(json());
}

TEST(MCPBridge, PingEchoesTheIdWithAnEmptyResult) {
  quillon::test::ScriptedClient gateway;
  MCPBridge bridge(gateway.client, std::nullopt);
  EXPECT_EQ(reply(bridge, json::parse(R"({"jsonrpc":"2.0","id":7,"method":"ping"})")),
            json::parse(R"({"jsonrpc":"2.0","id":7,"result":{}})"));
}

TEST(MCPBridge, EveryKindOfIdIsEchoedUnchanged) {
  quillon::test::ScriptedClient gateway;
  MCPBridge bridge(gateway.client, std::nullopt);
  for (const char* id : {"null", "0", "-3", "1.5", "\"abc\"", "true", "[1,{\"a\":2}]", "{\"x\":[null]}", "18446744073709551615"}) {
    const json message = {{"id", json::parse(id)}, {"method", "ping"}};
    const json answer = reply(bridge, message);
    EXPECT_EQ(answer["id"].dump(), json::parse(id).dump()) << id;
    EXPECT_EQ(answer["jsonrpc"], "2.0");
  }
}

TEST(MCPBridge, MessagesWithoutIdGetNoReply) {
  quillon::test::ScriptedClient gateway;
  MCPBridge bridge(gateway.client, std::nullopt);
  EXPECT_FALSE(bridge.handle(json::parse(R"({"jsonrpc":"2.0","method":"notifications/initialized"})")));
  EXPECT_FALSE(bridge.handle(json::parse(R"({"method":"ping"})")));
  // Even an initialize without id is not acted on: the writer stays unknown.
  EXPECT_FALSE(bridge.handle(json::parse(R"({"method":"initialize","params":{"clientInfo":{"name":"x"}}})")));
  EXPECT_FALSE(bridge.writer());
}

TEST(MCPBridge, UnknownOrMissingMethodIsTheOnlyJsonRpcError) {
  quillon::test::ScriptedClient gateway;
  MCPBridge bridge(gateway.client, std::nullopt);
  EXPECT_EQ(reply(bridge, json::parse(R"({"id":1,"method":"resources/list"})")),
            json::parse(R"({"jsonrpc":"2.0","id":1,"error":{"code":-32601,"message":"Method not found: resources/list"}})"));
  EXPECT_EQ(reply(bridge, json::parse(R"({"id":2})"))["error"]["message"], "Method not found: ");
  EXPECT_EQ(reply(bridge, json::parse(R"({"id":3,"method":42})"))["error"]["message"], "Method not found: ");
  // Methods are compared exactly.
  EXPECT_EQ(reply(bridge, json::parse(R"({"id":4,"method":"Ping"})"))["error"]["code"], -32601);
}

TEST(MCPBridge, InitializeAnswersOurProtocolAndRemembersTheWriter) {
  quillon::test::ScriptedClient gateway;
  MCPBridge bridge(gateway.client, std::nullopt);
  const json answer = reply(bridge, json::parse(
      R"({"id":1,"method":"initialize","params":{"protocolVersion":"2099-01-01","clientInfo":{"name":"claude-code","version":"2"}}})"));
  EXPECT_EQ(answer["result"], (json{{"protocolVersion", "2024-11-05"},
                                    {"capabilities", {{"tools", json::object()}}},
                                    {"serverInfo", {{"name", "quillon"}, {"version", quillon::wire::ClientVersion::current()}}}}));
  EXPECT_EQ(bridge.writer(), "claude-code");

  // A later initialize without a usable name keeps the writer; one with a name replaces it.
  reply(bridge, json::parse(R"({"id":2,"method":"initialize","params":{"clientInfo":{"name":5}}})"));
  EXPECT_EQ(bridge.writer(), "claude-code");
  reply(bridge, json::parse(R"({"id":3,"method":"initialize","params":"junk"})"));
  EXPECT_EQ(bridge.writer(), "claude-code");
  reply(bridge, json::parse(R"({"id":4,"method":"initialize","params":{"clientInfo":{"name":"codex"}}})"));
  EXPECT_EQ(bridge.writer(), "codex");
}

TEST(MCPBridge, OpencodeMarkerMakesOpencodeTheWriter) {
  quillon::test::ScriptedClient gateway;
  MCPBridge bridge(gateway.client, std::nullopt);
  reply(bridge, json::parse(R"({"id":1,"method":"initialize","params":{"clientInfo":{"name":"x"}}})"));
  reply(bridge, json::parse(R"({"id":2,"method":"tools/call","params":{"name":"search","_meta":{"ai.opencode/sessionID":""}}})"));
  EXPECT_EQ(bridge.writer(), "x");
  reply(bridge, json::parse(R"({"id":3,"method":"tools/call","params":{"name":"search","_meta":{"ai.opencode/sessionID":"s1"}}})"));
  EXPECT_EQ(bridge.writer(), "opencode");
}

TEST(MCPBridge, ToolsCallAlwaysAnswersWithAToolResult) {
  quillon::test::ScriptedClient gateway;
  MCPBridge bridge(gateway.client, std::nullopt);
  EXPECT_EQ(reply(bridge, json::parse(R"({"id":1,"method":"tools/call","params":{"name":"memory_frobnicate"}})"))["result"],
            quillon::bridge::errorContent("Unknown tool: memory_frobnicate"));
  // Params, arguments and name of the wrong type are treated as absent, never as a JSON-RPC error.
  for (const char* params : {R"("junk")", R"({"name":7,"arguments":[1]})", R"({"arguments":"x"})"}) {
    const json answer = reply(bridge, {{"id", 2}, {"method", "tools/call"}, {"params", json::parse(params)}});
    EXPECT_EQ(answer["result"], quillon::bridge::errorContent("Unknown tool: ")) << params;
  }
}

TEST(MCPBridge, ReplyLineSplicesTheSameCatalogueAsHandle) {
  quillon::test::ScriptedClient gateway;
  MCPBridge bridge(gateway.client, std::nullopt);
  for (const char* message : {R"({"id":"a/b","method":"tools/list"})", R"({"id":null,"method":"tools/list","params":{"cursor":"x"}})"}) {
    const json parsed = json::parse(message);
    const auto line = bridge.replyLine(parsed);
    ASSERT_TRUE(line);
    EXPECT_EQ(line->find('\n'), std::string::npos);
    EXPECT_EQ(json::parse(*line), *bridge.handle(parsed));
  }
  EXPECT_FALSE(bridge.replyLine(json::parse(R"({"method":"tools/list"})")));
}

TEST(ToolResult, WithMetaSetsReplacesAndRemovesKeys) {
  using quillon::bridge::withMeta;
  const json plain = quillon::bridge::textContent("hi");
  EXPECT_EQ(withMeta(plain, {}), plain);  // no entries: not even an empty "_meta"

  json result = withMeta(plain, {{"quillon/replyKind", json("cards")}, {"quillon/cardCount", json(2)}});
  EXPECT_EQ(result["_meta"], (json{{"quillon/replyKind", "cards"}, {"quillon/cardCount", 2}}));
  result = withMeta(result, {{"quillon/cardCount", std::nullopt}, {"quillon/replyKind", json("empty")}});
  EXPECT_EQ(result["_meta"], (json{{"quillon/replyKind", "empty"}}));
  EXPECT_EQ(result["content"], plain["content"]);

  json odd = plain;
  odd["_meta"] = "not an object";
  EXPECT_EQ(withMeta(odd, {{"k", json(true)}})["_meta"], (json{{"k", true}}));
}

}  // namespace
