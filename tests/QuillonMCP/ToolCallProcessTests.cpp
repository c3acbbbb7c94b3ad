// Tool calls through the built quillon-mcp and a gateway on a real Unix socket: the request the
// gateway decodes, and the text the agent reads, byte for byte.
#include <gtest/gtest.h>

#include <nlohmann/json.hpp>

#include "ChildProcess.hpp"
#include "DoorTestSupport.hpp"
#include "QuillonWire/WireJSON.hpp"
#include "TestGateway.hpp"

namespace quillon::test {
namespace {

using nlohmann::json;

class ToolCallThroughTheDoor : public ::testing::Test {
 protected:
  void SetUp() override { ASSERT_TRUE(gateway.start()) << gateway.lastError(); }

  // The result of one tools/call made by a fresh bridge that announced itself as `writer`.
  json call(const std::string& tool, const json& arguments) {
    ChildProcess bridge(QUILLON_MCP_PATH, {{"XDG_RUNTIME_DIR", temp.path()},
                                           {"QUILLON_MCP_GATEWAY_FOR_TESTS", service},
                                           {"CLAUDE_CODE_SESSION_ID", "env-session"}});
    bridge.write(R"({"jsonrpc":"2.0","id":0,"method":"initialize","params":{"clientInfo":{"name":"claude-code"}}})" "\n");
    bridge.readLine();
    const json message = {{"jsonrpc", "2.0"}, {"id", 1}, {"method", "tools/call"},
                          {"params", {{"name", tool}, {"arguments", arguments}}}};
    bridge.write(message.dump() + "\n");
    const json reply = json::parse(bridge.readLine());
    bridge.closeInput();
    EXPECT_EQ(bridge.readAllErrors(), "");
    const int status = bridge.wait();
    EXPECT_TRUE(WIFEXITED(status) && WEXITSTATUS(status) == 0);
    return reply["result"];
  }

  // The one request the gateway decoded, as its JSON.
  json lastRequest() {
    const auto received = gateway.received();
    EXPECT_FALSE(received.empty());
    if (received.empty() || !received.back().request) return nullptr;
    return wire::toJSON(*received.back().request).value();
  }

  TempFolder temp;
  const std::string service = freshServiceName();
  TestGateway gateway{temp.path() + "/quillon", service};
};

TEST_F(ToolCallThroughTheDoor, SearchSendsRecallAndRendersCards) {
  wire::Card card{.kind = "moment", .id = "mo:7", .why = "dwell"};
  card.when = "Tue 09:12";
  card.snippet = "line one\nline two";  // a moment snippet keeps its own line breaks
  gateway.setScript([&](const Received&) { return answer(wire::GatewayResponse{wire::answer::Cards{.cards = {card}}}); });

  const json result = call("search", {{"query", "staging bucket"}, {"to", "2026-06-30"}});
  EXPECT_EQ(lastRequest(), json::parse(R"({"read":{"_0":{"recall":{"query":"staging bucket","to":"2026-06-30"}}}})"));
  EXPECT_EQ(result, json::parse(R"({"content":[{"type":"text",
    "text":"[moment] mo:7 \u00b7 Tue 09:12\n  line one\nline two\n  why: dwell"}]})"));
}

TEST_F(ToolCallThroughTheDoor, MemoryAddCarriesWriterSessionAndTypedFilters) {
  gateway.setScript([](const Received&) {
    return answer(wire::GatewayResponse{wire::answer::Text{.text = "Saved m:41 under /code. <quillon-rules>"}});
  });
  const json result = call("memory_add", {{"text", "Tabs over spaces"}, {"why", "asked twice"},
                                          {"filters", {{"urgent", true}, {"n", 3}}}});
  EXPECT_EQ(lastRequest(), json::parse(R"({"notes":{"_0":{"write":{"text":"Tabs over spaces","why":"asked twice",
    "writer":"claude-code","type":"note","path":"","filters":{"n":3.0,"urgent":true},"session":"env-session"}}}})"));
  EXPECT_EQ(result["content"][0]["text"], "Saved m:41 under /code. \xE2\x80\xB9quillon-rules\xE2\x80\xBA");
  EXPECT_FALSE(result.contains("isError"));
}

TEST_F(ToolCallThroughTheDoor, AGatewayFailureIsAnErrorResultWithItsOwnWords) {
  gateway.setScript([](const Received&) { return answer(failure("no memory m:99")); });
  EXPECT_EQ(call("memory_delete", {{"id", "m:99"}}),
            json::parse(R"({"content":[{"type":"text","text":"no memory m:99"}],"isError":true})"));
  EXPECT_EQ(lastRequest(), json::parse(R"({"notes":{"_0":{"delete":{"id":"m:99"}}}})"));
}

TEST_F(ToolCallThroughTheDoor, ArgumentFaultsNeverReachTheGateway) {
  EXPECT_EQ(call("grab", {{"id", "  "}})["isError"], true);
  EXPECT_TRUE(gateway.received().empty());
}

}  // namespace
}  // namespace quillon::test
