// The relay carries notes to the gateway's log from its own thread, and drops what it cannot hold.
#include <gtest/gtest.h>

#include "DoorTestSupport.hpp"
#include "QuillonKit/DiagnosticRelay.hpp"
#include "QuillonKit/XPCClient.hpp"
#include "TestGateway.hpp"

namespace quillon::kit {
namespace {

using namespace std::chrono_literals;
using test::logRequest;

class DiagnosticRelayOverSocket : public ::testing::Test {
 protected:
  void SetUp() override {
    ::setenv("XDG_RUNTIME_DIR", temp.path().c_str(), 1);
    ASSERT_TRUE(gateway.start()) << gateway.lastError();
    client = std::make_unique<XPCClient>(
        service, SystemDoor::makeConnection, [] {}, [this] { return SystemDoor::serviceRegistered(service); },
        [] { return std::nullopt; }, DoorRedial{300ms, 50ms});
    relay = std::make_unique<DiagnosticRelay>("mcp", *client);
  }

  // The gateway goes first: a note it holds would otherwise keep the relay's thread waiting.
  void TearDown() override {
    gateway.stop();
    relay.reset();
    client.reset();
  }

  std::vector<wire::GatewayRequest> requests() const {
    std::vector<wire::GatewayRequest> all;
    for (const auto& message : gateway.received())
      if (message.request) all.push_back(*message.request);
    return all;
  }

  test::TempFolder temp;
  const std::string service = test::freshServiceName();
  test::TestGateway gateway{temp.path() + "/quillon", service};
  std::unique_ptr<XPCClient> client;
  std::unique_ptr<DiagnosticRelay> relay;
};

TEST_F(DiagnosticRelayOverSocket, NotesArriveAsDiagnosticLogRequestsInOrder) {
  relay->note("unparseable stdin frame — 8 bytes, dropped");
  relay->note("second");
  ASSERT_TRUE(gateway.awaitReceived(2));
  EXPECT_EQ(requests(), (std::vector{logRequest("unparseable stdin frame — 8 bytes, dropped", "mcp"),
                                     logRequest("second", "mcp")}));
}

TEST_F(DiagnosticRelayOverSocket, ABusyGatewayCostsTheCallerNothingAndExtraNotesAreDropped) {
  gateway.setScript([](const test::Received&) { return test::Hold{}; });
  relay->note("note 0");
  ASSERT_TRUE(gateway.awaitReceived(1));  // in flight, unanswered

  const auto start = std::chrono::steady_clock::now();
  for (int i = 1; i <= 40; ++i) relay->note("note " + std::to_string(i));
  EXPECT_LT(std::chrono::steady_clock::now() - start, 2s);

  gateway.setScript([](const test::Received&) { return test::answer(test::ok()); });
  gateway.release(test::answer(test::ok()));
  ASSERT_TRUE(gateway.awaitReceived(1 + DiagnosticRelay::kQueueLimit));
  relay.reset();  // waits for the note in flight, drops nothing more: all were sent
  const auto sent = requests();
  ASSERT_EQ(sent.size(), 1 + DiagnosticRelay::kQueueLimit);
  EXPECT_EQ(sent.back(), logRequest("note " + std::to_string(DiagnosticRelay::kQueueLimit), "mcp"));
}

}  // namespace
}  // namespace quillon::kit
