#include "QuillonMCPBridge/RequiredArguments.hpp"

#include <gtest/gtest.h>

#include <nlohmann/json.hpp>

using nlohmann::json;
using quillon::bridge::requiredArgumentFault;

namespace {

const std::string kDash = " \xE2\x80\x94 ";

TEST(RequiredArguments, MissingWrongTypeAndBlankStrings) {
  EXPECT_EQ(requiredArgumentFault("search", json::object()),
            "search needs a string 'query'" + kDash + "What you're trying to remember.");
  EXPECT_EQ(requiredArgumentFault("search", json{{"query", 3}}),
            "search needs a string 'query'" + kDash + "What you're trying to remember.");
  EXPECT_EQ(requiredArgumentFault("search", json{{"query", "\xE2\x80\x8B"}}),  // a lone zero-width space
            "search's 'query' is empty" + kDash + "What you're trying to remember.");
  EXPECT_EQ(requiredArgumentFault("search", json{{"query", " \n\t"}}),
            "search's 'query' is empty" + kDash + "What you're trying to remember.");
  EXPECT_EQ(requiredArgumentFault("search", json{{"query", "x"}}), std::nullopt);
}

TEST(RequiredArguments, LongDescriptionsAreCutAtExactly120Characters) {
  const auto fault = requiredArgumentFault("memory_add", json{{"text", "t"}});
  // The why description is longer than 120 characters: the cut has no ellipsis.
  EXPECT_EQ(fault, "memory_add needs a string 'why'" + kDash +
                       "One line: why this is worth keeping (a rule's story/nuance lives here). Required \xE2\x80\x94 it "
                       "rides every recall card so the rea.");
  // A parameter without a description gets no suffix at all.
  EXPECT_EQ(requiredArgumentFault("entity_get", json::object()), "entity_get needs a string 'name'.");
}

TEST(RequiredArguments, OnlyRequiredStringsAreChecked) {
  EXPECT_EQ(requiredArgumentFault("screen_get", json{{"window", "w1"}}), std::nullopt);  // the integer id is not
  EXPECT_EQ(requiredArgumentFault("screen_open", json::object()), std::nullopt);
  EXPECT_EQ(requiredArgumentFault("memory_frobnicate", json::object()), std::nullopt);
  EXPECT_EQ(requiredArgumentFault("memory_patch", json{{"id", "m:1"}, {"find", "a"}, {"replace", ""}}), std::nullopt);
  // Parameters are walked in order; the first fault wins.
  EXPECT_EQ(requiredArgumentFault("memory_patch", json{{"id", ""}, {"find", ""}}),
            "memory_patch's 'id' is empty" + kDash + "The memory id to patch, e.g. m:41.");
}

}  // namespace
