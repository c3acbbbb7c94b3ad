// Filter values as the model reads them, on the bridge's cards and in the gateway's echo lines.
#include <gtest/gtest.h>

#include "QuillonWire/FilterValue.hpp"

namespace quillon::wire {
namespace {

TEST(RenderFilterValue, WholeNumbersAsDigitsOthersInTheShortestRoundTripForm) {
  EXPECT_EQ(renderFilterValue(FilterValue::number(-42.0)), "-42");
  EXPECT_EQ(renderFilterValue(FilterValue::number(-0.0)), "0");
  EXPECT_EQ(renderFilterValue(FilterValue::number(999999999999999.0)), "999999999999999");
  EXPECT_EQ(renderFilterValue(FilterValue::number(1e15)), "1e+15");
  EXPECT_EQ(renderFilterValue(FilterValue::number(0.1)), "0.1");
  EXPECT_EQ(renderFilterValue(FilterValue::number(2.0 / 3.0)), "0.6666666666666666");
  // Plain where plain is the shortest text that reads back: not 1.2345675e+06.
  EXPECT_EQ(renderFilterValue(FilterValue::number(1234567.5)), "1234567.5");
  EXPECT_EQ(renderFilterValue(FilterValue::number(-0.25)), "-0.25");
  EXPECT_EQ(renderFilterValue(FilterValue::number(1e-7)), "1e-07");
  EXPECT_EQ(renderFilterValue(FilterValue::string("a=b")), "a=b");
  EXPECT_EQ(renderFilterValue(FilterValue::boolean(false)), "false");
}

}  // namespace
}  // namespace quillon::wire
