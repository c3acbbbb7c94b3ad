#include "QuillonMCPBridge/ExitGate.hpp"

#include <gtest/gtest.h>

#include <thread>

using quillon::bridge::BridgeEvent;
using quillon::bridge::BridgeLifetime;
using quillon::bridge::BridgeVerdict;
using quillon::bridge::MCPExitGate;

TEST(ExitGate, SkewWhileIdleStopsAtOnce) {
  MCPExitGate gate;
  EXPECT_TRUE(gate.stopRequested());
  // Nothing was deferred: a later request ends normally.
  gate.beginRequest();
  EXPECT_FALSE(gate.endRequest());
}

TEST(ExitGate, SkewDuringRequestWaitsForReply) {
  MCPExitGate gate;
  gate.beginRequest();
  EXPECT_FALSE(gate.stopRequested());
  EXPECT_FALSE(gate.stopRequested());  // a second ask while ending changes nothing
  EXPECT_TRUE(gate.endRequest());
}

TEST(ExitGate, SkewAfterTheReplyStopsAtOnce) {
  MCPExitGate gate;
  gate.beginRequest();
  EXPECT_FALSE(gate.endRequest());
  EXPECT_TRUE(gate.stopRequested());
}

TEST(ExitGate, DeferredEndingIsNeverForgotten) {
  MCPExitGate gate;
  gate.beginRequest();
  gate.stopRequested();
  EXPECT_TRUE(gate.endRequest());
  gate.beginRequest();
  EXPECT_TRUE(gate.endRequest());
}

TEST(ExitGate, SkewFromAnotherThreadIsEitherImmediateOrDeferred) {
  // Whatever the interleaving, exactly one side decides to stop: the skew handler (no reply owed)
  // or the loop's endRequest (reply owed). Never both, never neither.
  for (int round = 0; round < 200; ++round) {
    MCPExitGate gate;
    bool stopNow = false;
    gate.beginRequest();
    std::thread skew([&] { stopNow = gate.stopRequested(); });
    const bool endedByLoop = gate.endRequest();
    skew.join();
    EXPECT_NE(stopNow, endedByLoop);
  }
}

TEST(BridgeLifetime, OnlyADroppedChannelIsSurvived) {
  EXPECT_EQ(BridgeLifetime::verdict(BridgeEvent::channelDied), BridgeVerdict::carryOn);
  EXPECT_EQ(BridgeLifetime::verdict(BridgeEvent::contractSkew), BridgeVerdict::stop);
  EXPECT_EQ(BridgeLifetime::verdict(BridgeEvent::endOfInput), BridgeVerdict::stop);
}
