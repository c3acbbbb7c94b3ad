#include "QuillonMCPBridge/StdioLoop.hpp"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <unistd.h>

#include <nlohmann/json.hpp>
#include <thread>

#include "QuillonMCPBridge/ExitGate.hpp"
#include "QuillonMCPBridge/MCPBridge.hpp"
#include "QuillonMCPBridge/ToolCatalog.hpp"
#include "QuillonWire/JSONNesting.hpp"
#include "ScriptedGateway.hpp"

using nlohmann::json;
using namespace quillon::bridge;

namespace {

TEST(Utf8Repair, IllFormedPartsBecomeReplacementCharacters) {
  const std::string fffd = "\xEF\xBF\xBD";
  EXPECT_EQ(repairedUTF8("plain"), "plain");
  EXPECT_EQ(repairedUTF8("caf\xC3\xA9 \xF0\x9F\x98\x80"), "caf\xC3\xA9 \xF0\x9F\x98\x80");
  EXPECT_EQ(repairedUTF8("a\xFF" "b"), "a" + fffd + "b");
  EXPECT_EQ(repairedUTF8("\xC3"), fffd);                           // truncated at the end
  EXPECT_EQ(repairedUTF8("\xE2\x82" "x"), fffd + "x");             // one maximal part, one U+FFFD
  EXPECT_EQ(repairedUTF8("\xED\xA0\x80"), fffd + fffd + fffd);     // a surrogate is three parts
  EXPECT_EQ(repairedUTF8("\xC0\xAF"), fffd + fffd);                // overlong
  EXPECT_EQ(repairedUTF8("\xF4\x90\x80\x80"), fffd + fffd + fffd + fffd);  // beyond U+10FFFF
  // Repair is bounded as the raw line is: bad bytes triple.
  EXPECT_EQ(repairedUTF8Within("a\xFF\xFF", 7), "a" + fffd + fffd);
  EXPECT_EQ(repairedUTF8Within("a\xFF\xFF", 6), std::nullopt);
  EXPECT_EQ(repairedUTF8Within("abc", 2), std::nullopt);
}

TEST(Frames, OnlyJsonObjectsWithinTheDepthLimitAreMessages) {
  EXPECT_TRUE(parseFrame(R"({"id":1})"));
  EXPECT_FALSE(parseFrame("[1,2]"));
  EXPECT_FALSE(parseFrame(R"("str")"));
  EXPECT_FALSE(parseFrame("{"));
  EXPECT_FALSE(parseFrame("  "));
  EXPECT_FALSE(parseFrame(R"({"a":1} trailing)"));
  // A raw NUL ends nothing: the whole line must be the object.
  EXPECT_FALSE(parseFrame(std::string(R"({"id":1,"method":"ping"})" "\0junk", 29)));
  EXPECT_FALSE(parseFrame(std::string(R"({"id":1,"method":"ping"})" "\0", 25)));

  const std::string deep = "{\"id\":" + std::string(100000, '[') + std::string(100000, ']') + "}";
  EXPECT_FALSE(parseFrame(deep));
  const std::string fine = "{\"id\":" + std::string(100, '[') + std::string(100, ']') + "}";
  EXPECT_TRUE(parseFrame(fine));
  // Brackets inside strings do not nest.
  EXPECT_FALSE(quillon::wire::nestsDeeperThan("{\"a\":\"" + std::string(1000, '[') + "\\\"\"}", 512));
  EXPECT_EQ(unparseableNote(17), "unparseable stdin frame \xE2\x80\x94 17 bytes, dropped");
}

// Runs the loop over pipes on its own thread: feed `input`, close, and collect the output.
struct LoopRun {
  std::string output;
  std::vector<std::string> notes;
};

LoopRun runLoop(const std::string& input, MCPExitGate* gate = nullptr) {
  int in[2], out[2];
  EXPECT_EQ(::pipe(in), 0);
  EXPECT_EQ(::pipe(out), 0);
  quillon::test::ScriptedClient gateway;
  MCPBridge bridge(gateway.client, std::nullopt);
  MCPExitGate ownGate;
  LoopRun run;
  StdioLoop loop(in[0], out[1], bridge, gate ? *gate : ownGate, [&](std::string note) { run.notes.push_back(note); });
  std::thread writer([&] {
    std::size_t at = 0;
    while (at < input.size()) {
      const ssize_t n = ::write(in[1], input.data() + at, input.size() - at);
      if (n <= 0) break;
      at += static_cast<std::size_t>(n);
    }
    ::close(in[1]);
  });
  std::thread reader([&] {
    char buffer[65536];
    ssize_t n;
    while ((n = ::read(out[0], buffer, sizeof buffer)) > 0) run.output.append(buffer, static_cast<std::size_t>(n));
  });
  loop.run();
  ::close(out[1]);
  ::close(in[0]);  // unblocks the writer if the loop stopped early
  writer.join();
  reader.join();
  ::close(out[0]);
  return run;
}

std::vector<json> lines(const std::string& output) {
  std::vector<json> result;
  std::size_t start = 0;
  for (std::size_t end; (end = output.find('\n', start)) != std::string::npos; start = end + 1)
    result.push_back(json::parse(output.substr(start, end - start)));
  EXPECT_EQ(start, output.size()) << "output ends without a line feed";
  return result;
}

TEST(StdioLoop, AnswersInOrderAndDropsWhatIsNotAMessage) {
  const auto run = runLoop(
      "{\"id\":1,\"method\":\"ping\"}\n"
      "\n"
      "   \n"
      "[{\"id\":2,\"method\":\"ping\"}]\n"
      "{\"method\":\"notifications/initialized\"}\n"
      "\"hello\"\n"
      "{\"id\":3,\"method\":\"ping\"}\r\n"
      + std::string("{\"id\":9,\"method\":\"ping\"}\0junk\n", 30) +
      "{\"id\":4,\"method\":\"ping\"}");  // the last line needs no line feed
  const auto replies = lines(run.output);
  ASSERT_EQ(replies.size(), 3u);
  EXPECT_EQ(replies[0]["id"], 1);
  EXPECT_EQ(replies[1]["id"], 3);
  EXPECT_EQ(replies[2]["id"], 4);
  // The empty line is skipped silently; the blank line, the batch, the bare string and the ping
  // with a NUL and junk after it are noted, with every byte counted.
  EXPECT_EQ(run.notes, (std::vector<std::string>{unparseableNote(3), unparseableNote(26), unparseableNote(7),
                                                 unparseableNote(29)}));
}

TEST(StdioLoop, CatalogueRepliesGoOutWholeEachEndedByOneLineFeed) {
  // A catalogue reply is several times what a pipe writes in one atomic piece.
  const auto run = runLoop(
      "{\"id\":1,\"method\":\"tools/list\"}\n"
      "{\"id\":\"b\",\"method\":\"tools/list\"}\n"
      "{\"id\":3,\"method\":\"ping\"}\n");
  const std::string tools = R"(,"jsonrpc":"2.0","result":{"tools":)" + ToolCatalog::toolsJSONText() + "}}\n";
  EXPECT_EQ(run.output, R"({"id":1)" + tools + R"({"id":"b")" + tools + R"({"id":3,"jsonrpc":"2.0","result":{}})" "\n");
}

TEST(StdioLoop, InvalidUtf8IsRepairedBeforeParsing) {
  const auto run = runLoop("{\"id\":\"a\xFF\",\"method\":\"ping\"}\n");
  const auto replies = lines(run.output);
  ASSERT_EQ(replies.size(), 1u);
  EXPECT_EQ(replies[0]["id"], "a\xEF\xBF\xBD");
}

TEST(StdioLoop, ALoneSurrogateEscapeReadsAsAReplacementCharacter) {
  // What a writer produces when it cuts a string inside an emoji, and the pairs and escapes around it.
  EXPECT_EQ(withLoneSurrogatesReplaced(R"({"a":"x\ud83d","b":"\ud83d\ude00","c":"\\ud83d","d":"\udE00\u00e9"})"),
            R"({"a":"x\ufffd","b":"\ud83d\ude00","c":"\\ud83d","d":"\ufffd\u00e9"})");
  EXPECT_EQ(withLoneSurrogatesReplaced(R"({"\ud800":1,"e":"\uD83D\u0041"})"), R"({"\ufffd":1,"e":"\ufffd\u0041"})");
  const auto run = runLoop(R"({"id":"cut \ud83d","method":"ping"})" "\n");
  const auto replies = lines(run.output);
  ASSERT_EQ(replies.size(), 1u);
  EXPECT_EQ(replies[0]["id"], "cut \xEF\xBF\xBD");
}

TEST(StdioLoop, HugeAndDeepLinesAreSurvived) {
  std::string big = "{\"id\":1,\"method\":\"ping\",\"params\":{\"pad\":\"" + std::string(10u << 20, 'x') + "\"}}\n";
  big += "{\"id\":" + std::string(100000, '[') + std::string(100000, ']') + ",\"method\":\"ping\"}\n";
  big += "{\"id\":2,\"method\":\"ping\",\"params\":" + std::string(100000, '{') + "\n";
  big += "{\"id\":3,\"method\":\"ping\"}\n";
  const auto run = runLoop(big);
  const auto replies = lines(run.output);
  ASSERT_EQ(replies.size(), 2u);
  EXPECT_EQ(replies[0]["id"], 1);
  EXPECT_EQ(replies[1]["id"], 3);
  EXPECT_EQ(run.notes.size(), 2u);
}

TEST(StdioLoop, AnOverlongLineIsDroppedWithoutBeingKept) {
  std::string input(StdioLoop::kMaxLineBytes + 10, ' ');
  input += "\n{\"id\":9,\"method\":\"ping\"}\n";
  const auto run = runLoop(input);
  ASSERT_EQ(run.notes.size(), 1u);
  EXPECT_EQ(run.notes[0], unparseableNote(StdioLoop::kMaxLineBytes + 10));
  EXPECT_EQ(lines(run.output).size(), 1u);

  // Within the limit raw, past it once repaired: dropped, never tripled in memory.
  std::string invalid = "{\"id\":1,\"method\":\"ping\",\"params\":{\"pad\":\"" +
                        std::string(StdioLoop::kMaxLineBytes / 2, '\xFF') + "\"}}";
  const auto repaired = runLoop(invalid + "\n{\"id\":9,\"method\":\"ping\"}\n");
  EXPECT_EQ(repaired.notes, std::vector<std::string>{unparseableNote(invalid.size())});
  EXPECT_EQ(lines(repaired.output).size(), 1u);
}

TEST(StdioLoop, DeferredSkewEndsTheLoopAfterTheOwedReply) {
  MCPExitGate gate;
  // A skew reported while the first request is in flight: the loop writes its reply, then ends.
  gate.beginRequest();
  ASSERT_FALSE(gate.stopRequested());
  const auto run = runLoop("{\"id\":1,\"method\":\"ping\"}\n{\"id\":2,\"method\":\"ping\"}\n", &gate);
  const auto replies = lines(run.output);
  ASSERT_EQ(replies.size(), 1u);
  EXPECT_EQ(replies[0]["id"], 1);
}

TEST(StdioLoop, ANotificationStillPassesTheGate) {
  MCPExitGate gate;
  gate.beginRequest();
  gate.stopRequested();
  const auto run = runLoop("{\"method\":\"notifications/initialized\"}\n{\"id\":2,\"method\":\"ping\"}\n", &gate);
  EXPECT_TRUE(run.output.empty());
}

}  // namespace
