// The words of the door: fault texts, the stale-copy text, menu lines, the redial budget in
// seconds, and the lineage rule that picks the stale text.
#include <gtest/gtest.h>

#include "QuillonKit/ClientLineage.hpp"
#include "QuillonKit/DoorFault.hpp"
#include "QuillonKit/DoorRedial.hpp"

namespace quillon::kit {
namespace {

using namespace std::chrono_literals;

TEST(DoorFault, EachFaultHasItsExactText) {
  EXPECT_EQ(DoorFault(DoorFault::absent).message(), "Quillon isn't running — start it to access your memory.");
  EXPECT_EQ(DoorFault(DoorFault::refused).message(),
            "Quillon is running but refused this connection — this binary isn't signed with the "
            "daemon's expected identity (sign it: Scripts/sign.sh).");
  EXPECT_EQ(DoorFault(DoorFault::silent).message(),
            "Quillon is running but did not answer in 3s — it may be busy starting up; try again in a moment.");
  EXPECT_EQ(DoorFault(DoorFault::skew).message(),
            "Quillon updated; this session's bridge is older than the daemon, restart the session");
}

TEST(DoorFault, StaleRefusalNamesTheInstalledVersionWhenKnown) {
  EXPECT_EQ(DoorFault::staleRefusalMessage("2.4"),
            "Quillon updated to 2.4 — this session's connector is from before the update. "
            "Restart this session (or reconnect the MCP server) to continue. Nothing is wrong.");
  EXPECT_EQ(DoorFault::staleRefusalMessage(std::nullopt),
            "Quillon updated — this session's connector is from before the update. "
            "Restart this session (or reconnect the MCP server) to continue. Nothing is wrong.");
}

TEST(DoorFault, MenuLinesFollowTheProfile) {
  const wire::ClientProfile dev = wire::ClientProfile::dev, production = wire::ClientProfile::production;
  EXPECT_EQ(DoorFault(DoorFault::refused).menuLine(dev), DoorFault(DoorFault::refused).message());
  EXPECT_EQ(DoorFault(DoorFault::refused).menuLine(production),
            "Quillon is running but this menu needs a restart to reconnect.");
  for (const auto profile : {dev, production}) {
    EXPECT_EQ(DoorFault(DoorFault::absent).menuLine(profile), DoorFault(DoorFault::absent).message());
    EXPECT_EQ(DoorFault(DoorFault::silent).menuLine(profile), DoorFault(DoorFault::silent).message());
    EXPECT_EQ(DoorFault(DoorFault::skew).menuLine(profile),
              "Quillon is finishing an update — this window will reconnect by itself.");
  }
}

TEST(DoorFault, OnlyRefusalIsTerminal) {
  for (const auto value : {DoorFault::absent, DoorFault::refused, DoorFault::silent, DoorFault::skew})
    EXPECT_EQ(DoorFault(value).isTerminalForThisProcess(), value == DoorFault::refused);
  EXPECT_EQ(DoorFault::forDoubleFailure(true), DoorFault::refused);
  EXPECT_EQ(DoorFault::forDoubleFailure(false), DoorFault::absent);
}

TEST(DoorRedial, BudgetSecondsAreWholeAndAtLeastOne) {
  EXPECT_EQ(DoorRedial::standard.budgetSeconds(), 3);
  EXPECT_EQ((DoorRedial{500ms, 0ms}.budgetSeconds()), 1);
  EXPECT_EQ((DoorRedial{3900ms, 0ms}.budgetSeconds()), 3);
  EXPECT_EQ((DoorRedial{0ms, 0ms}.budgetSeconds()), 1);
  EXPECT_EQ((DoorRedial{-2000ms, 0ms}.budgetSeconds()), 1);
}

TEST(ClientLineage, StaleOnlyWhenReplacedByABundleOfTheSuite) {
  const ClientLineage stale24{ClientLineage::Stale{"2.4"}};
  EXPECT_EQ(ClientLineage::judge(true, "example.fernhollow.quillon", "2.4"), stale24);
  EXPECT_EQ(ClientLineage::judge(true, "example.fernhollow.quillon.menubar", "2.4"), stale24);
  EXPECT_EQ(ClientLineage::judge(true, "example.fernhollow.quillon", std::nullopt),
            (ClientLineage{ClientLineage::Stale{std::nullopt}}));

  EXPECT_EQ(ClientLineage::judge(false, "example.fernhollow.quillon", "2.4"), std::nullopt);
  EXPECT_EQ(ClientLineage::judge(true, std::nullopt, "2.4"), std::nullopt);
  // The family followed by letters without the dot is someone else's.
  EXPECT_EQ(ClientLineage::judge(true, "example.fernhollow.quillonx", "2.4"), std::nullopt);
  EXPECT_EQ(ClientLineage::judge(true, "example.fernhollow", "2.4"), std::nullopt);
  EXPECT_EQ(ClientLineage::judge(true, "org.other.app", "2.4"), std::nullopt);
}

}  // namespace
}  // namespace quillon::kit
