#include "QuillonMCPBridge/ClientIdentification.hpp"

#include <gtest/gtest.h>

#include <nlohmann/json.hpp>

#include "QuillonMCPBridge/BridgeArrival.hpp"

using nlohmann::json;
using namespace quillon::bridge;

namespace {

TEST(CallIDs, ShapeAndLength) {
  EXPECT_TRUE(isCallID(json("a")));
  EXPECT_TRUE(isCallID(json("Ab_9-x")));
  EXPECT_TRUE(isCallID(json(std::string(40, 'z'))));
  EXPECT_FALSE(isCallID(json(std::string(41, 'z'))));
  EXPECT_FALSE(isCallID(json("")));
  EXPECT_FALSE(isCallID(json("a.b")));
  EXPECT_FALSE(isCallID(json("a b")));
  EXPECT_FALSE(isCallID(json("caf\xC3\xA9")));  // letters are ASCII letters only
  EXPECT_FALSE(isCallID(json("main")));
  EXPECT_FALSE(isCallID(json("unknown")));
  EXPECT_TRUE(isCallID(json("Main")));  // the reserved words are compared exactly
  EXPECT_FALSE(isCallID(json(12)));
  EXPECT_FALSE(isCallID(json(nullptr)));
  EXPECT_TRUE(isCallID(json("s1")));
}

TEST(CallIDs, TakenOutOfTheArgumentsWhetherValidOrNot) {
  json arguments = json::parse(
      R"({"query":"q","_quillon_session":"main","_quillon_subagent":"sub-1","_quillon_agent":"sub-2"})");
  const CallIDs ids = takeCallIDs(arguments);
  EXPECT_EQ(arguments, json::parse(R"({"query":"q"})"));
  EXPECT_FALSE(ids.session);  // "main" is reserved
  EXPECT_EQ(ids.subagent, "sub-1");

  json long_ = {{"_quillon_subagent", std::string(41, 'a')}, {"_quillon_session", 5}};
  const CallIDs none = takeCallIDs(long_);
  EXPECT_TRUE(long_.empty());
  EXPECT_FALSE(none.session);
  EXPECT_FALSE(none.subagent);

  json legacyOnly = {{"_quillon_agent", "abc"}};
  EXPECT_FALSE(takeCallIDs(legacyOnly).subagent);  // the legacy key never becomes the subagent
}

TEST(CodexTurn, ReadsSessionAndSubagentThreads) {
  const auto turn = [](const char* text) { return codexTurn(json::parse(text)); };
  EXPECT_FALSE(turn(R"({"other":1})"));
  EXPECT_FALSE(turn(R"({"x-codex-turn-metadata":"s"})"));
  EXPECT_FALSE(codexTurn(json("x")));

  auto ids = turn(R"({"x-codex-turn-metadata":{"session_id":"s1","thread_id":"t1","thread_source":"subagent"}})");
  ASSERT_TRUE(ids);
  EXPECT_EQ(ids->session, "s1");
  EXPECT_EQ(ids->subagent, "t1");

  ids = turn(R"({"x-codex-turn-metadata":{"session_id":"s1","thread_id":"t1","thread_source":"user"}})");
  EXPECT_EQ(ids->session, "s1");
  EXPECT_FALSE(ids->subagent);

  const std::string longThread = std::string(R"({"x-codex-turn-metadata":{"session_id":"s","thread_source":"subagent","thread_id":")") +
                                 std::string(41, 't') + "\"}}";
  ids = codexTurn(json::parse(longThread));
  EXPECT_EQ(ids->session, "s");
  EXPECT_FALSE(ids->subagent);

  // An empty session id is absent, but the pair is still present and replaces the arguments' pair.
  ids = turn(R"({"x-codex-turn-metadata":{"session_id":""}})");
  ASSERT_TRUE(ids);
  EXPECT_FALSE(ids->session);
}

TEST(OpencodeCall, NeedsANonEmptyMarker) {
  EXPECT_TRUE(isOpencodeCall(json::parse(R"({"ai.opencode/sessionID":"s"})")));
  EXPECT_FALSE(isOpencodeCall(json::parse(R"({"ai.opencode/sessionID":""})")));
  EXPECT_FALSE(isOpencodeCall(json::parse(R"({"ai.opencode/sessionID":1})")));
  EXPECT_FALSE(isOpencodeCall(json::parse(R"(["ai.opencode/sessionID"])")));
}

TEST(BridgeArrival, StartLineRedactsPathsAndUnknownClaudeValues) {
  EXPECT_EQ(BridgeArrival::argv({"/opt/quillon/bin/mcp1", "--stdio"}), "<string:21B>,--stdio");
  EXPECT_EQ(BridgeArrival::claudeEnvironment({{"CLAUDE_CODE_SESSION_ID", "abc"}, {"CLAUDE_X", "1234"}, {"HOME", "/root"}}),
            "CLAUDE_CODE_SESSION_ID=abc,CLAUDE_X=<string:4B>");
  EXPECT_EQ(BridgeArrival::start({"quillon-mcp"}, {{"HOME", "/root"}}, 41, "claude"),
            "arrival start argv=quillon-mcp env=none parent=41 parent_name=claude");
  EXPECT_EQ(BridgeArrival::redacted("\xC3\xA9"), "<string:2B>");  // bytes, not characters
}

TEST(BridgeArrival, RequestLinesNameWhatWasAsked) {
  EXPECT_EQ(BridgeArrival::request(json::parse(R"({"id":1,"method":"initialize","params":{"b":"x/y","a":1}})")),
            R"(arrival initialize params={"a":1,"b":"x/y"})");
  EXPECT_EQ(BridgeArrival::request(json::parse(
                R"({"id":2,"method":"tools/call","params":{"name":"search","arguments":{"query":"q","_quillon_session":"s"},"_meta":{"k":"v"}}})")),
            R"(arrival tools/call name=search args=_quillon_session,query meta={"k":"v"})");
  EXPECT_EQ(BridgeArrival::request(json::parse(R"({"id":3,"method":"tools/call","params":{"name":4,"arguments":{}}})")),
            "arrival tools/call name=<none> args=none meta=absent");
  EXPECT_FALSE(BridgeArrival::request(json::parse(R"({"id":4,"method":"ping"})")));
  EXPECT_FALSE(BridgeArrival::request(json::parse(R"({"id":5})")));
  EXPECT_EQ(BridgeArrival::json(json("text")), "\"text\"");
  EXPECT_EQ(BridgeArrival::json(json("bad \xFF")), "<unserializable>");
}

}  // namespace
