// Trimming and digit grouping, as cards and the gateway's answers print them.
#include <gtest/gtest.h>

#include <cstdint>

#include "QuillonBase/Text.hpp"

namespace quillon::base {
namespace {

TEST(Text, TrimsBlanksTabsAndLineBreaksOnly) {
  EXPECT_EQ(trimmed(" \t\r\n a \t b \n"), "a \t b");
  EXPECT_EQ(trimmed(" \n\t\r"), "");
  EXPECT_EQ(trimmed(""), "");
  // Vertical tab, form feed and Unicode blanks are text to the gateway's laws.
  EXPECT_EQ(trimmed("\v x\f"), "\v x\f");
  EXPECT_EQ(trimmed("\xC2\xA0x "), "\xC2\xA0x");
}

TEST(Text, GroupsDigitsInThrees) {
  EXPECT_EQ(grouped(0), "0");
  EXPECT_EQ(grouped(999), "999");
  EXPECT_EQ(grouped(16000), "16,000");
  EXPECT_EQ(grouped(1234567), "1,234,567");
  EXPECT_EQ(grouped(-1234), "-1,234");
  EXPECT_EQ(grouped(INT64_MIN), "-9,223,372,036,854,775,808");
}

}  // namespace
}  // namespace quillon::base
