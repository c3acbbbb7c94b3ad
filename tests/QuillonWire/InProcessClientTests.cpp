// InProcessClient carries requests and answers through the same JSON text as the door.
#include <gtest/gtest.h>

#include <limits>
#include <stdexcept>

#include "QuillonWire/GatewayRequest.hpp"
#include "QuillonWire/InProcessClient.hpp"
#include "WireTestSupport.hpp"

namespace quillon::wire {
namespace {

using namespace testing;

class ScriptedGateway final : public Gateway {
 public:
  GatewayResponse serve(const GatewayRequest& request) override {
    seen.push_back(request);
    if (throws) throw std::runtime_error("store is locked");
    return answer;
  }

  std::vector<GatewayRequest> seen;
  GatewayResponse answer{answer::Ok{}};
  bool throws = false;
};

GatewayResponse failure(std::string message) { return GatewayResponse{answer::Failure{std::move(message)}}; }

TEST(InProcessClient, GatewaySeesTheRequestAndClientTheAnswer) {
  ScriptedGateway gateway;
  gateway.answer = GatewayResponse{answer::Cards{{Card{.kind = "memory", .id = "m1", .why = "w", .src = 3}}}};
  InProcessClient client(gateway);
  const auto request = asRequest(ReadRequest{read::GetByType{
      .type = "decision", .filters = Filters{{"lang", FilterValue::string("swift")}, {"stars", FilterValue::number(4)}}}});

  const TimedResponse timed = client.sendTimed(request);
  ASSERT_EQ(gateway.seen.size(), 1u);
  EXPECT_EQ(gateway.seen[0], request);
  EXPECT_EQ(timed.response, gateway.answer);
  ASSERT_TRUE(timed.daemon.has_value());
  EXPECT_GE(timed.daemon->count(), 0);

  EXPECT_EQ(client.send(request), gateway.answer);
}

TEST(InProcessClient, UnencodableRequestNeverReachesTheGateway) {
  ScriptedGateway gateway;
  InProcessClient client(gateway);
  const auto request = asRequest(NotesRequest{notes::EditFilters{
      .id = "m", .set = Filters{{"x", FilterValue::number(std::numeric_limits<double>::infinity())}}}});
  const TimedResponse timed = client.sendTimed(request);
  EXPECT_EQ(timed.response, failure("encode failed"));
  EXPECT_FALSE(timed.daemon);
  EXPECT_TRUE(gateway.seen.empty());
}

TEST(InProcessClient, UnencodableAnswerIsABadReply) {
  ScriptedGateway gateway;
  gateway.answer = GatewayResponse{answer::Stretches{DayStretchReport{
      .day = "today", .focus = {{.start = std::numeric_limits<double>::quiet_NaN(), .end = 1, .seconds = 1}}}}};
  InProcessClient client(gateway);
  const TimedResponse timed = client.sendTimed(asRequest(ReadRequest{read::DayStretches{"today"}}));
  EXPECT_EQ(timed.response, failure("bad reply"));
  EXPECT_FALSE(timed.daemon);
}

TEST(InProcessClient, ThrowingGatewayBecomesAFailureAnswer) {
  ScriptedGateway gateway;
  gateway.throws = true;
  InProcessClient client(gateway);
  EXPECT_EQ(client.send(asRequest(ControlRequest{control::Pause{}})),
            failure("the in-process gateway failed: store is locked"));
}

}  // namespace
}  // namespace quillon::wire
