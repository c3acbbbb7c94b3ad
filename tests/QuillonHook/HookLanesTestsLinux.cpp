// The hook's lanes over the development gateway in process: what an agent's prompt and session
// start add to the model's context, made by the bridge's own renderers.
#include "QuillonHook/HookLanes.hpp"
#include "QuillonMCPBridge/MCPBridge.hpp"
#include "QuillonWire/InProcessClient.hpp"
#include "StoreGatewayFixture.hpp"

namespace quillon::hook {
namespace {

class HookLanesTest : public gateway::StoreGatewayTest {
 protected:
  Injection prompt(const std::string& text, std::string cwd = "/home/mq/code/atlas") {
    HookInput input{.session = "s-1", .prompt = text, .cwd = std::move(cwd), .transcript = "/tmp/t.jsonl"};
    return promptLane(mcp, input);
  }

  wire::InProcessClient client{gateway};
  bridge::MCPBridge mcp{client, std::nullopt};
};

TEST_F(HookLanesTest, APromptGetsTheRulesThenTheMemoryThenTheShortcut) {
  // Nothing saved: nothing to say, not even an empty memory block.
  EXPECT_EQ(prompt("how do I deploy atlas?").text, "");

  write("Never force-push to main", {{"type", "rule"}});
  notes("mapPath", {{"folder", "/home/mq/code/atlas"}, {"path", "/code/atlas"}});
  write("Deploy atlas with make release-stg, then watch the rollout.",
        {{"type", "recipe"}, {"path", "/code/atlas"}, {"title", "Deploying atlas to staging"}});
  write("Summarise the diff for review", {{"type", "shortcut"}, {"filters", {{"name", "review"}}}});
  for (int i = 0; i < 10; ++i) write("garden note " + std::to_string(i));

  const std::string quiet = prompt("rename this variable").text;
  EXPECT_EQ(quiet.rfind("<user-rules>\nThe user's local time: ", 0), 0u) << quiet;
  EXPECT_TRUE(quiet.ends_with("\n/ (applies everywhere)\n- Never force-push to main\n</user-rules>")) << quiet;

  const std::string related = prompt("remind me how deploying atlas to staging goes").text;
  const auto memory = related.find("\n\n<quillon-memory>\n");
  ASSERT_NE(memory, std::string::npos) << related;
  EXPECT_EQ(related.substr(0, memory), quiet);
  EXPECT_NE(related.find("· /code/atlas · recipe\n  Deploying atlas to staging\n"), std::string::npos);
  EXPECT_TRUE(related.ends_with("\n  more: grab m:2\n</quillon-memory>")) << related;

  const std::string fired = prompt("\\review the last commit").text;
  EXPECT_EQ(fired.substr(quiet.size()),
            "\n\n<quillon-shortcut>\nThe user's message begins with \\review — one of their own saved shortcuts. "
            "Follow it for this message. This is the user's instruction, not observed content.\n\nSummarise the diff "
            "for review\n\nargument: the last commit\n</quillon-shortcut>");
  // The hook's prompts are counted for its session.
  EXPECT_EQ(store.promptsOf("s-1"), 4);
}

TEST_F(HookLanesTest, ASessionStartGetsTheRulesCardOrNothing) {
  HookInput input{.session = "s-2", .prompt = {}, .cwd = "/home/mq", .transcript = {}};
  EXPECT_EQ(sessionStartLane(mcp, input).text, "");
  write("Answer in British English", {{"type", "rule"}});
  const std::string card = sessionStartLane(mcp, input).text;
  EXPECT_EQ(card.rfind("<user-rules>\nThe user's local time: ", 0), 0u) << card;
  EXPECT_TRUE(card.ends_with("\n/ (everywhere)\n- Answer in British English\n</user-rules>")) << card;
}

TEST_F(HookLanesTest, AFailingLaneIsLeftOutWithItsReason) {
  const auto noPrompt = promptLane(mcp, HookInput{.session = "s-3", .prompt = {}, .cwd = {}, .transcript = {}});
  EXPECT_EQ(noPrompt.text, "");
  EXPECT_EQ(noPrompt.problems, std::vector<std::string>{"the hook's input holds no prompt string"});
  const auto blank = prompt("   ");
  ASSERT_EQ(blank.problems.size(), 1u);
  EXPECT_EQ(blank.problems[0].rfind("memory_get_relevant: memory_get_relevant's 'prompt' is empty", 0), 0u);
}

TEST(HookInput, ReadsEachAgentsMembersAndIgnoresTheRest) {
  const auto claude = readHookInput(R"({"session_id":"abc","prompt":"hi","cwd":"/w","transcript_path":"/t.jsonl",
    "hook_event_name":"UserPromptSubmit","permission_mode":"default","turn_id":7})");
  ASSERT_TRUE(claude);
  EXPECT_EQ(claude->session, "abc");
  EXPECT_EQ(claude->prompt, "hi");
  EXPECT_EQ(claude->cwd, "/w");
  EXPECT_EQ(claude->transcript, "/t.jsonl");
  const auto cursor = readHookInput(R"({"conversation_id":"c-1","workspace_roots":["/r1","/r2"]})");
  ASSERT_TRUE(cursor);
  EXPECT_EQ(cursor->session, "c-1");
  EXPECT_EQ(cursor->cwd, "/r1");
  const auto odd = readHookInput(R"({"session_id":"","prompt":42,"cwd":null,"transcript_path":["x"]})");
  ASSERT_TRUE(odd);
  EXPECT_FALSE(odd->session || odd->prompt || odd->cwd || odd->transcript);
  for (const char* junk : {"", "not json", "[1,2]", "\"text\"", "{\"prompt\":"}) EXPECT_FALSE(readHookInput(junk)) << junk;
}

}  // namespace
}  // namespace quillon::hook
