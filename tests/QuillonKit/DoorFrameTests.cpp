// One door message per line of JSON, both ways.
#include <gtest/gtest.h>

#include <string>

#include "QuillonKit/DoorFrame.hpp"

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
  // Only the payload is present, and no GatewayResponse: a bad reply.
  EXPECT_EQ(line->message, (DoorMessage{.payload = "null"}));
}

TEST(DoorFrame, APayloadThatWouldBreakTheFramingIsNotSent) {
  EXPECT_EQ(DoorFrame::encode({.id = 1, .message = {.payload = "{\"a\":1}\n{\"b\":2}"}}), std::nullopt);
  EXPECT_EQ(DoorFrame::encode({.id = 1, .message = {.payload = "not json"}}), std::nullopt);
  EXPECT_EQ(DoorFrame::encode({.id = 1, .message = {.event = "{"}}), std::nullopt);
}

}  // namespace
}  // namespace quillon::kit
