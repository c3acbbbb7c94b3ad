// Sessions in the development gateway: the sessions its requests name, offered by scope for a new
// chat to carry on, grabbed whole with what their transcripts show, and how recall rode in them.
#include <sys/stat.h>

#include <fstream>

#include "QuillonGateway/Transcripts.hpp"
#include "StoreGatewayFixture.hpp"

namespace quillon::gateway {
namespace {

constexpr double kMinute = 60;

class SessionTest : public StoreGatewayTest {
 protected:
  SessionTest() {
    notes("mapPath", {{"folder", "/home/mq/quillon"}, {"path", "/code/quillon"}});
    notes("mapPath", {{"folder", "/home/mq/quillon/web"}, {"path", "/code/quillon/web"}});
    notes("mapPath", {{"folder", "/home/mq/atlas"}, {"path", "/code/atlas"}});
  }

  // One prompt of a session as its hook sends it, `minutesAgo` before the fixture's noon.
  json prompt(const std::string& session, const std::string& text, double minutesAgo, json extra = json::object()) {
    now = kNoon - minutesAgo * kMinute;
    json payload = {{"prompt", text}, {"session", session}, {"countsPrompt", true}, {"writer", "claude-code"}};
    payload.update(extra);
    json answer = read("primed", payload);
    now = kNoon;
    return answer;
  }
  json offer(const json& session, bool older = false) {
    json payload = {{"older", older}};
    if (!session.is_null()) payload["session"] = session;
    return read("sessionList", payload);
  }
  json grab(const std::string& id, json extra = json::object()) {
    extra.update({{"id", id}, {"full", false}});
    return read("grab", extra);
  }
  std::string file(const std::string& name, const std::string& content) {
    const std::string path = temp.path() + "/" + name;
    std::ofstream(path, std::ios::binary) << content;
    return path;
  }
  static json row(const std::string& id, const std::string& title, const std::string& when, json length, json turns) {
    json row = {{"id", id}, {"title", title}, {"when", when}};
    if (!length.is_null()) row["length"] = length;
    if (!turns.is_null()) row["turns"] = turns;
    return row;
  }
  static json offered(const std::string& scope, std::vector<json> rows) {
    return {{"sessions", {{"_0", {{"scope", scope}, {"rows", rows}}}}}};
  }
};

constexpr double kDayMinutes = 24 * 60;

TEST_F(SessionTest, OtherSessionsOfTheScopeAreOfferedMostRecentFirst) {
  const json atQuillon = {{"cwd", "/home/mq/quillon/src"}};
  // Thursday 09:00 to 10:12, titled by its first prompt's first line.
  prompt("a1", "  Fix the upload retry\nand add tests", 2 * kDayMinutes + 180, atQuillon);
  prompt("a1", "and the docs", 2 * kDayMinutes + 108, atQuillon);
  // Yesterday, one level down; a front-door "?" titles nothing.
  prompt("w1", "?", 18 * 60 + 40, {{"cwd", "/home/mq/quillon/web"}});
  prompt("w1", "Tidy the release notes", 18 * 60 + 20, {{"cwd", "/home/mq/quillon/web"}});
  prompt("b1", "Bump the version", 3 * kDayMinutes, atQuillon);
  prompt("b2", "Four days back", 4 * kDayMinutes, atQuillon);
  prompt("t1", "Another project", 60, {{"cwd", "/home/mq/atlas"}});
  // A declared scope outranks the folder the session runs in.
  now = kNoon - 10 * kDayMinutes * kMinute;
  notes("setPath", {{"path", "/code/quillon"}, {"writer", "codex"}, {"session", "s1"}});
  prompt("s1", "Declared elsewhere", 10 * kDayMinutes, {{"cwd", "/home/mq/atlas"}, {"writer", "codex"}});
  prompt("old", "From three weeks back", 20 * kDayMinutes, atQuillon);
  prompt("gone", "Too old to offer", 40 * kDayMinutes, atQuillon);
  // A session seen only through its tools, with no prompt and no transcript, has nothing to carry on.
  read("getByType", {{"type", "note"}, {"session", "quiet"}});
  prompt("me", "What was I doing?", 0, atQuillon);

  EXPECT_EQ(offer("me"), offered("/code/quillon", {row("w1", "Tidy the release notes", "yesterday 17:40", "20m", 2),
                                                   row("a1", "Fix the upload retry", "Thu 10:12", "1h 12m", 2),
                                                   row("b1", "Bump the version", "Wed 12:00", nullptr, 1)}));
  EXPECT_EQ(offer("me", true)["sessions"]["_0"]["rows"].size(), 6u);
  EXPECT_EQ(offer("me", true)["sessions"]["_0"]["rows"][4], row("s1", "Declared elsewhere", "11 Nov", nullptr, 1));
  // A caller never seen is offered from the root; no session at all, or a word that is no id, gets no offer.
  EXPECT_EQ(offer("never-seen")["sessions"]["_0"]["rows"][1]["id"], "t1");
  EXPECT_EQ(offer("never-seen")["sessions"]["_0"]["scope"], "/");
  for (const json& none : {json(nullptr), json("main"), json("has space")})
    EXPECT_EQ(offer(none), json::parse(R"({"sessions":{}})")) << none;
  prompt("other", "Over in atlas", 0, {{"cwd", "/home/mq/atlas/x"}});
  EXPECT_EQ(offer("other"), offered("/code/atlas", {row("t1", "Another project", "today 11:00", nullptr, 1)}));

  // Ninety days on, a new session makes the book forget the ones not seen since.
  now = kNoon + 91 * kDayMinutes * kMinute;
  read("primed", {{"prompt", "new quarter"}, {"session", "n1"}, {"countsPrompt", true}});
  EXPECT_EQ(grab("a1"), json::parse(R"({"thing":{}})"));
  EXPECT_EQ(store.promptsOf("n1"), 1);
}

TEST_F(SessionTest, AGrabOfASessionShowsWhatItEditedWroteAndSaidLast) {
  const auto edit = [](const std::string& tool, const std::string& key, const std::string& path) {
    return json{{"type", "assistant"},
                {"message", {{"content", {{{"type", "tool_use"}, {"name", tool}, {"input", {{key, path}}}}}}}}}
               .dump() + "\n";
  };
  const auto said = [](const std::string& type, const json& content, json extra = json::object()) {
    extra.update({{"type", type}, {"message", {{"role", type}, {"content", content}}}});
    return extra.dump() + "\n";
  };
  const std::string transcript = file(
      "a1.jsonl",
      R"({"type":"summary","summary":"x"})" "\nnot json at all\n" + said("user", "First ask") +
          edit("Write", "file_path", "/p/a.ts") + edit("Read", "file_path", "/p/only-read.ts") +
          edit("Edit", "file_path", "/p/b.ts") + edit("MultiEdit", "file_path", "/p/c.ts") +
          edit("NotebookEdit", "notebook_path", "/p/n.ipynb") + edit("Edit", "file_path", "/p/a.ts") +
          edit("Edit", "file_path", "/p/d.ts") + edit("Edit", "file_path", "/p/e.ts") +
          said("user", json::array({{{"type", "tool_result"}, {"content", "ok"}}})) +
          said("user", "<command-name>/clear</command-name>") + said("user", "meta", {{"isMeta", true}}) +
          said("user", "Now make the retry back off.\nPlease.") +
          said("assistant", json::array({{{"type", "text"},
                                          {"text", "I made the retry back off exponentially. It starts at 200 ms. "
                                                   "Then it doubles."}}})) +
          edit("Edit", "file_path", "/p/retry.ts"));
  const json at = {{"cwd", "/home/mq/quillon"}, {"transcript", transcript}};
  prompt("a1", "Fix the upload retry", 2 * kDayMinutes + 180, at);
  prompt("a1", "and the docs", 2 * kDayMinutes + 108, at);
  now = kNoon - (2 * kDayMinutes + 108) * kMinute;
  for (int i = 1; i <= 4; ++i) write("Ticket number " + std::to_string(i), {{"session", "a1"}, {"title", "T" + std::to_string(i)}});
  write("Another session's", {{"session", "a2"}});
  now = kNoon;

  EXPECT_EQ(grab("a1"), json::parse(R"({"thing":{"_0":{
    "kind":"session","id":"a1","snippet":"Fix the upload retry",
    "why":"claude-code chat in /code/quillon · 1h 12m · 2 turns","when":"Thu 10:12","locator":")" + transcript + R"(",
    "session":{"started":"Thu 09:00","lastActive":"Thu 10:12",
      "files":["/p/retry.ts","/p/e.ts","/p/d.ts","/p/a.ts","/p/n.ipynb"],"filesMore":2,
      "tickets":["m:4 · T4","m:3 · T3","m:2 · T2"],"ticketsMore":1,
      "tail":["You: Now make the retry back off. Please.",
              "Claude: I made the retry back off exponentially. It starts at 200 ms."]}}}})"));

  // Codex's rollouts: its patches name the files, its own context blocks are not the person's words.
  const TranscriptGist codex = transcriptGist(
      R"({"type":"session_meta","payload":{"id":"x","cwd":"/p"}}
{"type":"response_item","payload":{"type":"message","role":"user","content":[{"type":"input_text","text":"<environment_context>/p</environment_context>"}]}}
{"type":"response_item","payload":{"type":"message","role":"user","content":[{"type":"input_text","text":"Rename the flag"}]}}
{"type":"response_item","payload":{"type":"function_call","name":"shell","arguments":"{\"command\":[\"apply_patch\",\"*** Begin Patch\\n*** Update File: src/flag.rs\\n@@\\n*** Add File: src/new.rs\\n*** End Patch\"]}"}}
{"type":"response_item","payload":{"type":"custom_tool_call","name":"apply_patch","input":"*** Begin Patch\n*** Update File: src/lib.rs\n*** End Patch"}}
{"type":"event_msg","payload":{"type":"agent_message","message":"Renamed it! Tests pass. Anything else?"}})");
  EXPECT_EQ(codex.files, (std::vector<std::string>{"src/lib.rs", "src/new.rs", "src/flag.rs"}));
  EXPECT_EQ(codex.tail, (std::vector<std::string>{"You: Rename the flag", "Codex: Renamed it! Tests pass."}));
}

TEST_F(SessionTest, ATranscriptIsReadOnlyWhenItIsAFileOfOursAndOnlyItsEnd) {
  // What lies beyond the last few megabytes is not read: the early edit stays unseen.
  const std::string early = R"({"type":"assistant","message":{"content":[{"type":"tool_use","name":"Edit","input":{"file_path":"/p/early.ts"}}]}})";
  const std::string late = R"({"type":"assistant","message":{"content":[{"type":"tool_use","name":"Edit","input":{"file_path":"/p/late.ts"}}]}})";
  std::string big = early + "\n";
  while (big.size() < kTailBytes + 4096) big += std::string(1000, 'x') + "\n";
  const std::string large = file("large.jsonl", big + late + "\n");
  EXPECT_EQ(readTranscript(large)->files, std::vector<std::string>{"/p/late.ts"});

  const std::string fifo = temp.path() + "/fifo.jsonl";
  ASSERT_EQ(::mkfifo(fifo.c_str(), 0600), 0);
  for (const std::string& path : {fifo, temp.path(), std::string("/proc/self/status"), temp.path() + "/missing.jsonl",
                                  std::string("relative.jsonl"), std::string()})
    EXPECT_FALSE(readTranscript(path)) << path;
  if (::geteuid() != 0) {
    const std::string link = temp.path() + "/theirs.jsonl";
    ASSERT_EQ(::symlink("/etc/passwd", link.c_str()), 0);
    EXPECT_FALSE(readTranscript(link));
  }
  // The card still shows what the gateway recorded.
  prompt("f1", "Through a fifo", 5, {{"transcript", fifo}});
  const json card = grab("f1")["thing"]["_0"];
  EXPECT_EQ(card["locator"], fifo);
  EXPECT_EQ(card["session"]["files"], json::array());
  EXPECT_EQ(card["session"]["tail"], json::array());
}

TEST_F(SessionTest, RecallStatsCountWhatRodeAndWhatWasOpened) {
  EXPECT_EQ(read("recallStats"), text("No prompts reached recall yet. Recall counts the prompts an agent's prompt "
                                      "hook sends (quillon-hook install sets it up)."));
  write("The retry_backoff_ms setting is 200");
  for (int i = 0; i < 10; ++i) write("filler number " + std::to_string(i));
  write("Summarise yesterday", {{"type", "shortcut"}, {"filters", {{"name", "standup"}}}});
  prompt("s1", "what is retry_backoff_ms now", 2 * kDayMinutes, {{"cwd", "/home/mq/quillon"}});
  prompt("s1", "hello there", 2 * kDayMinutes);
  prompt("s1", "\\standup", 30);
  // Opened: a grab in the session the card rode in, by the conversation or by a subagent; a grab
  // elsewhere, or without a session, is no opening.
  grab("m:1", {{"session", "s1"}});
  grab("m:1", {{"session", "s1"}, {"subagent", "sub-1"}});
  grab("m:1", {{"session", "s2"}});
  grab("m:1");
  EXPECT_EQ(read("recallStats"),
            text("Only 3 prompts so far, under the fifty it takes to judge recall: read these counts as early "
                 "signs.\n\nRecall since the first prompt (2026-11-19), counts only:\n"
                 "- prompts: 3 · with cards: 1 (33%) · cards shown: 1 · distinct memories: 1\n"
                 "- opened (grabbed in the session the card rode in): 1 of 1 (100%) by the main conversation · 1 by "
                 "subagents\n"
                 "- shortcuts fired: 1\n- shown most: m:1 (1)\n- asked from: / (2) · /code/quillon (1)"));
  EXPECT_EQ(read("recallStats", {{"days", 1}}),
            text("Only 1 prompt in the last day, under the fifty it takes to judge recall: read these counts as "
                 "early signs.\n\nRecall over the last day (since 2026-11-20), counts only:\n"
                 "- prompts: 1 · with cards: 0 (0%) · cards shown: 0 · distinct memories: 0\n"
                 "- opened (grabbed in the session the card rode in): 0 of 0 by the main conversation · 0 by "
                 "subagents\n"
                 "- shortcuts fired: 1\n- asked from: / (1)\n- 2026-11-21: 1 prompt, 0 with cards, 0 cards"));
  EXPECT_EQ(read("recallStats", {{"days", 0}}),
            failure("days must be a whole number from 1 to 36500 — leave it out for every prompt since the first."));
}

}  // namespace
}  // namespace quillon::gateway
