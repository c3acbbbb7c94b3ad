// Bounded line reading, as the door's two ends, the gateway and the bridge's standard input use it.
#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "QuillonBase/LineBuffer.hpp"

namespace quillon::base {
namespace {

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

TEST(LineBuffer, ALineOverTheLimitStopsTheFramingBeforeItsLineFeedArrives) {
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

TEST(LineBuffer, DroppingTheOverlongLineFramesWhatFollowsIt) {
  LineBuffer lines(4);
  lines.append("abcdefg\nok\nvwxyz");
  EXPECT_EQ(lines.next(), std::nullopt);
  ASSERT_TRUE(lines.overlong());
  const auto ended = lines.dropOverlong();
  EXPECT_TRUE(ended.ended);
  EXPECT_EQ(ended.bytes, 7u);
  EXPECT_EQ(lines.next(), "ok");
  // "vwxyz" passes the limit before its line feed: what came of it goes, the rest is the caller's.
  EXPECT_EQ(lines.next(), std::nullopt);
  ASSERT_TRUE(lines.overlong());
  const auto open = lines.dropOverlong();
  EXPECT_FALSE(open.ended);
  EXPECT_EQ(open.bytes, 5u);
  EXPECT_EQ(lines.buffered(), 0u);
  lines.append("next\n");
  EXPECT_EQ(lines.next(), "next");
  EXPECT_EQ(lines.dropOverlong().bytes, 0u);  // nothing to drop
  EXPECT_EQ(lines.next(), std::nullopt);
}

}  // namespace
}  // namespace quillon::base
