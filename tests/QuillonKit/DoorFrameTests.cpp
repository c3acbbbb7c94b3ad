// One door message per line of JSON, both ways.
#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "QuillonKit/DoorFrame.hpp"
#include "QuillonKit/LineBuffer.hpp"

namespace quillon::kit {
namespace {

TEST(DoorFrame, RequestsRepliesKnocksAndSubscriptionsAreOneLineEach) {
  DoorLine request{.id = 7, .message = {.payload = R"({"diagnostic":{"_0":{"log":{"line":"é\n","source":"mcp"}}}})", .wire = 1,
                                        .token = "a\"b-1"}};
  const auto line = DoorFrame::encode(request);
  ASSERT_TRUE(line);
  EXPECT_EQ(*line, R"({"id":7,"wire":1,"token":"a\"b-1","payload":{"diagnostic":{"_0":{"log":{"line":"é\n","source":"mcp"}}}}})" "\n");
  EXPECT_EQ(DoorFrame::decode(std::string_view(*line).substr(0, line->size() - 1)), request);

  EXPECT_EQ(DoorFrame::encode({.id = 8, .message = {.wire = 1}}), R"({"id":8,"wire":1})" "\n");
  EXPECT_EQ(DoorFrame::encode({.id = std::nullopt, .message = {.wire = 1, .subscribe = true}}),
            R"({"wire":1,"subscribe":true})" "\n");

  const auto reply = DoorFrame::decode(R"({"payload":{"ok":{}},"served_ms":250,"wire":2,"id":18446744073709551615})");
  ASSERT_TRUE(reply);
  EXPECT_EQ(reply->id, 18446744073709551615u);
  EXPECT_EQ(reply->message, (DoorMessage{.payload = R"({"ok":{}})", .wire = 2, .servedMs = 250}));

  const auto event = DoorFrame::decode(R"({"event":{"frontState":{"_0":"full"}}})");
  ASSERT_TRUE(event);
  EXPECT_EQ(event->id, std::nullopt);
  EXPECT_EQ(event->message.event, R"({"frontState":{"_0":"full"}})");
}

TEST(DoorFrame, OnlyJSONObjectsAreMessages) {
  for (const std::string_view text : {"", "hello", "[1]", "\"x\"", "{\"id\":1", "{\"id\":1}{}", "{\"a\":\"\xFF\"}"})
    EXPECT_EQ(DoorFrame::decode(text), std::nullopt) << text;
  EXPECT_EQ(DoorFrame::decode(std::string(100000, '[')), std::nullopt);
  EXPECT_TRUE(DoorFrame::decode("{}"));
}

TEST(DoorFrame, MembersOfTheWrongTypeReadAsAbsent) {
  const auto line = DoorFrame::decode(R"({"id":-1,"wire":"2","served_ms":2.5,"subscribe":1,"token":5,"payload":null})");
  ASSERT_TRUE(line);
  EXPECT_EQ(line->id, std::nullopt);
  EXPECT_EQ(line->message.wire, std::nullopt);
  EXPECT_EQ(line->message.servedMs, std::nullopt);
  EXPECT_EQ(line->message.subscribe, std::nullopt);
  EXPECT_EQ(line->message.token, std::nullopt);
  EXPECT_EQ(line->message.payload, "null");  // present, and no GatewayResponse: a bad reply
}

TEST(DoorFrame, APayloadThatWouldBreakTheFramingIsNotSent) {
  EXPECT_EQ(DoorFrame::encode({.id = 1, .message = {.payload = "{\"a\":1}\n{\"b\":2}"}}), std::nullopt);
  EXPECT_EQ(DoorFrame::encode({.id = 1, .message = {.payload = "not json"}}), std::nullopt);
  EXPECT_EQ(DoorFrame::encode({.id = 1, .message = {.event = "{"}}), std::nullopt);
}

TEST(LineBuffer, LinesComeOutWholeHoweverTheBytesArrive) {
  LineBuffer lines(16);
  std::vector<std::string> seen;
  for (const std::string_view piece : {"{\"a\"", ":1}\n\n{", "}\n{\"b", "", "\"\n", "tail"}) {
    lines.append(piece);
    while (const auto line = lines.next()) seen.emplace_back(*line);
  }
  EXPECT_EQ(seen, (std::vector<std::string>{"{\"a\":1}", "", "{}", "{\"b\""}));
  EXPECT_EQ(lines.buffered(), 4u);  // "tail" waits for its line feed
  lines.shrink();
  lines.append("!\n");
  EXPECT_EQ(lines.next(), "tail!");
  EXPECT_EQ(lines.buffered(), 0u);
  EXPECT_FALSE(lines.overlong());
}

TEST(LineBuffer, ALineOverTheLimitEndsTheConnectionBeforeItsLineFeedArrives) {
  LineBuffer exact(4);
  exact.append("abcd\nabcde\nnext\n");
  EXPECT_EQ(exact.next(), "abcd");
  EXPECT_EQ(exact.next(), std::nullopt);
  EXPECT_TRUE(exact.overlong());
  EXPECT_EQ(exact.next(), std::nullopt);  // "next" is never framed after a broken line

  LineBuffer partial(4);
  partial.append("ok\nabc");
  EXPECT_EQ(partial.next(), "ok");
  EXPECT_EQ(partial.next(), std::nullopt);
  partial.append("de");
  EXPECT_EQ(partial.next(), std::nullopt);
  EXPECT_TRUE(partial.overlong());
  partial.append(std::string(1000, 'x') + "\n");
  EXPECT_LE(partial.buffered(), 5u);  // a peer that keeps sending cannot grow the buffer
}

}  // namespace
}  // namespace quillon::kit
