// The count the gateway takes of a line before parsing it: the values it would build and the id
// it can answer, read without being fooled by strings.
#include <gtest/gtest.h>

#include "QuillonGateway/LineCensus.hpp"

namespace quillon::gateway {
namespace {

TEST(LineCensus, ReadsOnlyTheTopLevelIdAndCountsNothingInsideStrings) {
  EXPECT_EQ(LineCensus::of(R"({"id":42,"wire":1})").id, 42u);
  EXPECT_EQ(LineCensus::of(R"({ "wire" : 1 , "id" : 7 })").id, 7u);
  // An "id" that is a value, nested, inside a string, or not an unsigned integer is no id.
  EXPECT_EQ(LineCensus::of(R"({"wire":"id","payload":{"id":3}})").id, std::nullopt);
  EXPECT_EQ(LineCensus::of(R"({"text":"\",\"id\":9,","wire":1})").id, std::nullopt);
  EXPECT_EQ(LineCensus::of(R"([{"id":1}])").id, std::nullopt);
  EXPECT_EQ(LineCensus::of(R"({"id":-1})").id, std::nullopt);
  EXPECT_EQ(LineCensus::of(R"({"id":1.5})").id, std::nullopt);
  EXPECT_EQ(LineCensus::of(R"({"id":18446744073709551616})").id, std::nullopt);
  EXPECT_EQ(LineCensus::of(R"({"id":18446744073709551615})").id, 18446744073709551615u);

  EXPECT_EQ(LineCensus::of(R"({"id":1,"payload":[[],[],[]]})").values, 8u);  // 5 containers, 3 commas
  EXPECT_EQ(LineCensus::of(R"({"text":"[[[,,,]]] \"[,]\" {}"})").values, 1u);
}

}  // namespace
}  // namespace quillon::gateway
