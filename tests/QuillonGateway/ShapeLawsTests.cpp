// The shape laws at their edges: the spellings they forgive, and the ones they refuse.
#include <gtest/gtest.h>

#include "QuillonGateway/ShapeLaws.hpp"

namespace quillon::gateway {
namespace {

using wire::FilterValue;

TEST(ShapeLaws, ScopesHaveOneSpelling) {
  EXPECT_EQ(ShapeLaws::scope("code/quillon/").value, "/code/quillon");
  EXPECT_EQ(ShapeLaws::scope(" /code//v2 ").value, "/code/v2");
  EXPECT_EQ(ShapeLaws::scope("").value, "/");
  EXPECT_EQ(ShapeLaws::scope("/").value, "/");
  EXPECT_EQ(ShapeLaws::scope("/a/b/c").value, "/a/b/c");
  EXPECT_FALSE(ShapeLaws::scope("/a/b/c/d").value);
  EXPECT_FALSE(ShapeLaws::scope("/code/my_project").value);
  EXPECT_FALSE(ShapeLaws::scope("/código").value);
}

TEST(ShapeLaws, FilterValuesAreOneShortTokenCountedInCharacters) {
  const std::string forty(40, 'x');
  EXPECT_FALSE(ShapeLaws::filters({{"commit", FilterValue::string(forty)}}));
  EXPECT_EQ(*ShapeLaws::filters({{"commit", FilterValue::string(forty + "x")}}),
            "Filter 'commit' is 41 characters long: a string value is ONE short token, no spaces, at most 40 "
            "characters — a status, an id, a date, a commit hash. Prose belongs in text, a name in title.");
  // Forty accented letters are forty characters, though eighty bytes.
  std::string accented;
  for (int i = 0; i < 40; ++i) accented += "é";
  EXPECT_FALSE(ShapeLaws::filters({{"name", FilterValue::string(accented)}}));
  // A no-break space is a space.
  EXPECT_TRUE(ShapeLaws::filters({{"status", FilterValue::string("on\u00A0hold")}}));
  EXPECT_FALSE(ShapeLaws::filters({{"stars", FilterValue::number(4.5)}, {"urgent", FilterValue::boolean(true)}}));
  EXPECT_FALSE(ShapeLaws::filters({{"due_date-2", FilterValue::string("2026-07-14")}}));
}

TEST(ShapeLaws, FoldersMustBeAbsoluteAndAreNormalised) {
  EXPECT_EQ(ShapeLaws::folder("/home/mq/code/./quillon/../quillon/").value, "/home/mq/code/quillon");
  EXPECT_EQ(ShapeLaws::folder("/").value, "/");
  EXPECT_FALSE(ShapeLaws::folder("code/quillon").value);
}

}  // namespace
}  // namespace quillon::gateway
