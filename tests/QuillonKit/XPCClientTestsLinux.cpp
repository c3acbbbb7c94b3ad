// The door client against a gateway on a real Unix socket: every fault produced by a real
// failure, the redial and its knock, the reply deadline, skew, and concurrent senders.
#include <sys/prctl.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/un.h>
#include <sys/wait.h>
#include <unistd.h>

#include <gtest/gtest.h>

#include <atomic>
#include <condition_variable>
#include <cstring>
#include <filesystem>
#include <future>
#include <set>
#include <limits>
#include <thread>

#include "DoorTestSupport.hpp"
#include "QuillonKit/DoorFrame.hpp"
#include "QuillonKit/DoorNamespace.hpp"
#include "QuillonKit/XPCClient.hpp"
#include "QuillonWire/WireCodec.hpp"
#include "TestGateway.hpp"

namespace quillon::kit {
namespace {

using namespace std::chrono_literals;
using test::Action;
using test::failure;
using test::logRequest;
using test::ok;
using test::Received;
using test::Reply;
using Clock = std::chrono::steady_clock;

const std::string kAbsent = "Quillon isn't running — start it to access your memory.";
const std::string kRefused =
    "Quillon is running but refused this connection — this binary isn't signed with the daemon's expected identity "
    "(sign it: Scripts/sign.sh).";
const std::string kSilent =
    "Quillon is running but did not answer in 3s — it may be busy starting up; try again in a moment.";
const std::string kSkew = "Quillon updated; this session's bridge is older than the daemon, restart the session";

wire::GatewayResponse text(std::string value) { return wire::GatewayResponse{wire::answer::Text{.text = std::move(value)}}; }

std::chrono::milliseconds since(Clock::time_point start) {
  return std::chrono::duration_cast<std::chrono::milliseconds>(Clock::now() - start);
}

class DoorOverSocket : public ::testing::Test {
 protected:
  static constexpr DoorRedial kRedial{300ms, 50ms};

  void SetUp() override { ::setenv("XDG_RUNTIME_DIR", temp.path().c_str(), 1); }

  std::unique_ptr<XPCClient> makeClient(std::optional<ClientLineage> lineage = std::nullopt, DoorRedial redial = kRedial) {
    return std::make_unique<XPCClient>(
        service, SystemDoor::makeConnection, [this] { ++mismatches; },
        [this] { return SystemDoor::serviceRegistered(service); }, [lineage] { return lineage; }, redial);
  }

  // Every request on the first connection meets `first`; later ones are answered `ok`.
  void onFirstConnection(Action first) {
    gateway.setScript([first](const Received& message) -> Action {
      if (message.connection == 1) return first;
      if (message.isKnock()) return Reply{};
      return test::answer(ok());
    });
  }

  test::TempFolder temp;
  const std::string folder = temp.path() + "/quillon";
  const std::string service = test::freshServiceName();
  test::TestGateway gateway{folder, service};
  std::atomic<int> mismatches{0};
};

TEST_F(DoorOverSocket, TheRequestArrivesAsSentAndTheAnswerCarriesItsServingTime) {
  ASSERT_TRUE(gateway.start()) << gateway.lastError();
  gateway.setScript([](const Received&) {
    Reply reply = test::answer(text("hi"));
    reply.servedMs = 250;
    return reply;
  });
  auto client = makeClient();
  const wire::TimedResponse timed = client->sendTimed(logRequest("héllo"));
  EXPECT_EQ(timed.response, text("hi"));
  EXPECT_EQ(timed.daemon, 250ms);
  EXPECT_EQ(client->lastDoorFault(), std::nullopt);

  const auto received = gateway.received();
  ASSERT_EQ(received.size(), 1u);
  EXPECT_EQ(received[0].request, logRequest("héllo"));
  EXPECT_EQ(received[0].message.wire, 1u);
  EXPECT_TRUE(received[0].id.has_value());

  // A reply without a version is admitted (older gateways sent none), and has no serving time.
  gateway.setScript([](const Received&) { return test::answer(ok(), std::nullopt); });
  EXPECT_EQ(client->sendTimed(logRequest("again")).daemon, std::nullopt);
  EXPECT_EQ(client->send(logRequest("again")), ok());
  EXPECT_EQ(gateway.connectionsAccepted(), 1);
}

TEST_F(DoorOverSocket, ConstructingTheClientTouchesNoSocketAndAnUnencodableRequestIsNeverSent) {
  ASSERT_TRUE(gateway.start());
  auto client = makeClient();
  const auto request = wire::GatewayRequest{wire::request::Notes{wire::NotesRequest{wire::notes::EditFilters{
      .id = "m", .set = wire::Filters{{"x", wire::FilterValue::number(std::numeric_limits<double>::infinity())}}}}}};
  EXPECT_EQ(client->sendTimed(request).response, failure("encode failed"));
  EXPECT_EQ(client->lastDoorFault(), std::nullopt);
  EXPECT_EQ(gateway.connectionsAccepted(), 0);
}

TEST_F(DoorOverSocket, NoGatewayIsAbsentAtOnce) {
  auto client = makeClient();
  const auto start = Clock::now();
  EXPECT_EQ(client->send(logRequest("x")), failure(kAbsent));  // not even the folder exists
  EXPECT_EQ(client->lastDoorFault(), DoorFault::absent);
  EXPECT_LT(since(start), 2s);

  // A socket file left behind by a gateway that died: nobody listens, so still absent.
  ASSERT_TRUE(gateway.start());
  gateway.stop(/*removeSocket=*/false);
  ASSERT_TRUE(std::filesystem::exists(gateway.socketPath()));
  EXPECT_EQ(client->send(logRequest("x")), failure(kAbsent));
}

TEST_F(DoorOverSocket, AGatewayThatDiesMidRequestIsAbsentWithoutWaiting) {
  ASSERT_TRUE(gateway.start());
  gateway.setScript([](const Received&) { return test::Hold{}; });
  auto client = makeClient();
  auto answer = std::async(std::launch::async, [&] { return client->send(logRequest("x")); });
  ASSERT_TRUE(gateway.awaitReceived(1));
  const auto stopped = Clock::now();
  gateway.stop();
  EXPECT_EQ(answer.get(), failure(kAbsent));
  EXPECT_LT(since(stopped), 2s);
}

TEST_F(DoorOverSocket, AGatewayThatHangsUpOnUsIsRefused) {
  ASSERT_TRUE(gateway.start());
  gateway.refuseEveryConnection(true);
  auto client = makeClient();
  EXPECT_EQ(client->send(logRequest("x")), failure(kRefused));
  EXPECT_EQ(client->lastDoorFault(), DoorFault::refused);

  // The same refusal, told to a bridge that an update replaced while it ran.
  auto replaced = makeClient(ClientLineage{ClientLineage::Stale{"2.4"}});
  EXPECT_EQ(replaced->send(logRequest("x")), failure(DoorFault::staleRefusalMessage("2.4")));
}

TEST_F(DoorOverSocket, AListenerOfAnotherUserIsNeverSpokenTo) {
  if (::geteuid() != 0) GTEST_SKIP() << "needs root to listen as another user";
  ASSERT_EQ(DoorNamespace::create(folder), std::nullopt);
  // A child binds the service as us, then listens as nobody: the listener's credentials are
  // those of the process that called listen().
  const pid_t child = ::fork();
  ASSERT_GE(child, 0);
  if (child == 0) {
    ::prctl(PR_SET_PDEATHSIG, SIGKILL);
    const int fd = ::socket(AF_UNIX, SOCK_STREAM, 0);
    sockaddr_un address{};
    address.sun_family = AF_UNIX;
    std::strncpy(address.sun_path, gateway.socketPath().c_str(), sizeof address.sun_path - 1);
    if (::bind(fd, reinterpret_cast<const sockaddr*>(&address), sizeof address) != 0 || ::setuid(65534) != 0 ||
        ::listen(fd, 16) != 0)
      ::_exit(1);
    for (;;) ::pause();
  }
  auto client = makeClient();
  std::string answer;
  for (int tries = 0; tries < 100; ++tries) {  // until the child listens
    answer = std::get<wire::answer::Failure>(client->send(logRequest("x")).value).message;
    if (answer != kAbsent) break;
    std::this_thread::sleep_for(20ms);
  }
  ::kill(child, SIGKILL);
  ::waitpid(child, nullptr, 0);
  EXPECT_EQ(answer, kRefused);
}

TEST_F(DoorOverSocket, ANamespaceFolderOthersCouldWriteToIsNeverDialled) {
  ASSERT_TRUE(gateway.start());
  auto client = makeClient();
  ASSERT_EQ(::chmod(folder.c_str(), 0777), 0);
  EXPECT_EQ(client->send(logRequest("x")), failure(kAbsent));

  ASSERT_EQ(::chmod(folder.c_str(), 0700), 0);
  if (::geteuid() == 0) {
    ASSERT_EQ(::chown(folder.c_str(), 65534, 65534), 0);
    EXPECT_EQ(client->send(logRequest("x")), failure(kAbsent));
    ASSERT_EQ(::chown(folder.c_str(), 0, 0), 0);
  }
  EXPECT_EQ(gateway.connectionsAccepted(), 0);
  EXPECT_EQ(client->send(logRequest("x")), ok());
}

TEST_F(DoorOverSocket, TheFirstAttemptWaitsForALiveGateway) {
  ASSERT_TRUE(gateway.start());
  gateway.setScript([](const Received&) {
    Reply reply = test::answer(ok());
    reply.delay = 3 * kRedial.budget;
    return reply;
  });
  auto client = makeClient();
  EXPECT_EQ(client->send(logRequest("x")), ok());
}

TEST_F(DoorOverSocket, SilenceAfterTheRedialIsSilentWithinTheBudget) {
  ASSERT_TRUE(gateway.start());
  gateway.setScript([](const Received& message) -> Action {
    if (message.connection == 1) return test::CloseConnection{};
    return test::Silence{};
  });
  auto client = makeClient();
  const auto start = Clock::now();
  EXPECT_EQ(client->send(logRequest("x")), failure(kSilent));
  const auto waited = since(start);
  EXPECT_GE(waited, kRedial.budget);
  EXPECT_LT(waited, 2s);
  EXPECT_EQ(client->lastDoorFault(), DoorFault::silent);
  EXPECT_EQ(client->knocks(), 0);  // never answered before: nothing to knock about
}

TEST_F(DoorOverSocket, AReplyAfterTheDeadlineIsDropped) {
  ASSERT_TRUE(gateway.start());
  gateway.setScript([](const Received& message) -> Action {
    if (message.connection == 1) return test::CloseConnection{};
    Reply late = test::answer(text("late"));
    late.delay = 2 * kRedial.budget;
    return late;
  });
  auto client = makeClient();
  EXPECT_EQ(client->send(logRequest("x")), failure(kSilent));
  gateway.setScript([](const Received&) { return test::answer(text("on time")); });
  std::this_thread::sleep_for(2 * kRedial.budget);  // the late reply lands meanwhile
  EXPECT_EQ(client->send(logRequest("y")), text("on time"));
  EXPECT_EQ(gateway.connectionsAccepted(), 2);
}

TEST_F(DoorOverSocket, SkewReplacesTheAnswerAndIsAnnouncedOnce) {
  ASSERT_TRUE(gateway.start());
  gateway.setScript([](const Received&) { return test::answer(ok(), 2); });
  auto client = makeClient();
  EXPECT_EQ(client->send(logRequest("x")), failure(kSkew));
  EXPECT_EQ(client->send(logRequest("y")), failure(kSkew));
  EXPECT_EQ(mismatches, 1);
  EXPECT_EQ(client->lastDoorFault(), DoorFault::skew);

  gateway.setScript([](const Received&) { return test::answer(ok()); });
  EXPECT_EQ(client->send(logRequest("z")), ok());
  EXPECT_EQ(client->lastDoorFault(), std::nullopt);
  EXPECT_EQ(mismatches, 1);
}

TEST_F(DoorOverSocket, AReplyWithoutAnAnswerIsABadReplyNotARedial) {
  ASSERT_TRUE(gateway.start());
  gateway.setScript([](const Received&) { return Reply{}; });
  auto client = makeClient();
  EXPECT_EQ(client->sendTimed(logRequest("x")).response, failure("bad reply"));
  gateway.setScript([](const Received&) { return Reply{.payload = R"({"nonsense":{}})", .servedMs = 5}; });
  const auto timed = client->sendTimed(logRequest("y"));
  EXPECT_EQ(timed.response, failure("bad reply"));
  EXPECT_EQ(timed.daemon, std::nullopt);
  EXPECT_EQ(client->lastDoorFault(), std::nullopt);
  EXPECT_EQ(gateway.connectionsAccepted(), 1);
}

TEST_F(DoorOverSocket, AStreamThatStopsMakingSenseIsRedialled) {
  ASSERT_TRUE(gateway.start());
  onFirstConnection(test::RawLine{"this is not JSON\n"});
  auto client = makeClient();
  EXPECT_EQ(client->send(logRequest("x")), ok());
  EXPECT_EQ(gateway.connectionsAccepted(), 2);
}

TEST_F(DoorOverSocket, AWriteCarriesOneTokenAcrossItsRetryAndReadsCarryNone) {
  ASSERT_TRUE(gateway.start());
  onFirstConnection(test::CloseConnection{});
  auto client = makeClient();
  const auto write = [](std::string text) {
    return wire::GatewayRequest{wire::request::Notes{wire::NotesRequest{
        wire::notes::Write{.text = std::move(text), .why = "w", .writer = "t", .type = "", .path = ""}}}};
  };
  EXPECT_EQ(client->send(write("first")), ok());
  EXPECT_EQ(client->send(write("second")), ok());
  EXPECT_EQ(client->send(logRequest("a diagnostic line changes no memory")), ok());

  const auto received = gateway.received();
  ASSERT_EQ(received.size(), 4u);
  const auto& [tried, retried, second, logged] = std::tie(received[0], received[1], received[2], received[3]);
  ASSERT_TRUE(tried.message.token.has_value());
  EXPECT_EQ(retried.connection, 2);
  EXPECT_EQ(retried.message.token, tried.message.token);
  EXPECT_NE(second.message.token, tried.message.token);
  EXPECT_TRUE(second.message.token.has_value());
  EXPECT_EQ(logged.message.token, std::nullopt);
}

TEST_F(DoorOverSocket, ALineOver64MiBIsRedialled) {
  ASSERT_TRUE(gateway.start());
  onFirstConnection(test::RawLine{std::string(DoorFrame::kMaxLineBytes + 1, ' ')});
  // The standard budget: moving 64 MiB about keeps a slow (sanitized) test gateway busy.
  auto client = makeClient(std::nullopt, DoorRedial::standard);
  EXPECT_EQ(client->send(logRequest("x")), ok());
  EXPECT_EQ(gateway.connectionsAccepted(), 2);
}

TEST_F(DoorOverSocket, AGatewayRestartedBetweenCallsIsRedialledWithAKnock) {
  ASSERT_TRUE(gateway.start());
  auto client = makeClient();
  EXPECT_EQ(client->send(logRequest("before")), ok());
  gateway.stop();
  ASSERT_TRUE(gateway.start());
  EXPECT_EQ(client->send(logRequest("after")), ok());
  EXPECT_EQ(client->knocks(), 1);

  const auto received = gateway.received();
  ASSERT_EQ(received.size(), 3u);
  EXPECT_TRUE(received[1].isKnock());
  EXPECT_EQ(received[1].connection, 2);
  EXPECT_EQ(received[2].request, logRequest("after"));
  EXPECT_EQ(received[2].connection, 2);
}

TEST_F(DoorOverSocket, AGatewayBackAsAnotherVersionIsCaughtByTheKnock) {
  ASSERT_TRUE(gateway.start());
  auto client = makeClient();
  EXPECT_EQ(client->send(logRequest("before")), ok());
  gateway.stop();
  gateway.setScript([](const Received& message) -> Action {
    if (message.isKnock()) return Reply{.wire = 2};
    return test::Silence{};  // a newer gateway that does not answer old requests
  });
  ASSERT_TRUE(gateway.start());
  EXPECT_EQ(client->send(logRequest("after")), failure(kSilent));
  EXPECT_EQ(mismatches, 1);
}

TEST_F(DoorOverSocket, AnUnansweredKnockLeavesTheRetryItsWholeBudget) {
  ASSERT_TRUE(gateway.start());
  // Each request is met first by a closed connection, then answered on the redial, a little
  // later each time; knocks are never answered.
  auto seen = std::make_shared<std::pair<std::mutex, std::set<std::string>>>();
  gateway.setScript([seen](const Received& message) -> Action {
    if (message.isKnock()) return test::Silence{};
    const std::string key = message.message.payload.value_or("");
    {
      std::lock_guard guard(seen->first);
      if (seen->second.insert(key).second) return test::CloseConnection{};
    }
    Reply reply = test::answer(ok());
    reply.delay = std::chrono::milliseconds(std::hash<std::string>{}(key) % 5 * 40);
    return reply;
  });
  auto client = makeClient();
  EXPECT_EQ(client->send(logRequest("warm")), ok());  // answered once: every later redial knocks
  for (int i = 0; i < 20; ++i) EXPECT_EQ(client->send(logRequest("call " + std::to_string(i))), ok()) << i;
  EXPECT_EQ(client->knocks(), 20);
}

TEST_F(DoorOverSocket, ConcurrentSendersThatMeetOneBrokenConnectionRedialOnce) {
  ASSERT_TRUE(gateway.start());
  auto client = makeClient();
  EXPECT_EQ(client->send(logRequest("first")), ok());
  onFirstConnection(test::Hold{});

  constexpr int kSenders = 6;
  std::vector<std::future<wire::GatewayResponse>> answers;
  for (int i = 0; i < kSenders; ++i)
    answers.push_back(std::async(std::launch::async, [&, i] { return client->send(logRequest(std::to_string(i))); }));
  ASSERT_TRUE(gateway.awaitReceived(1 + kSenders));
  gateway.dropConnections();
  for (auto& answer : answers) EXPECT_EQ(answer.get(), ok());

  EXPECT_EQ(gateway.connectionsAccepted(), 2);
  EXPECT_EQ(client->knocks(), 1);
}

TEST_F(DoorOverSocket, ALargeRequestArrivesWhole) {
  ASSERT_TRUE(gateway.start());
  auto client = makeClient();
  std::string line(1 << 20, 'q');
  line += "é";
  EXPECT_EQ(client->send(logRequest(line)), ok());
  const auto received = gateway.received();
  ASSERT_EQ(received.size(), 1u);
  EXPECT_EQ(received[0].request, logRequest(line));
}

TEST_F(DoorOverSocket, SubscribersHearPushedEvents) {
  ASSERT_TRUE(gateway.start());
  auto client = makeClient();
  std::mutex lock;
  std::condition_variable heard;
  std::vector<wire::GatewayEvent> events;
  client->subscribe([&](const wire::GatewayEvent& event) {
    std::lock_guard guard(lock);
    events.push_back(event);
    heard.notify_all();
  });
  ASSERT_TRUE(gateway.awaitReceived(1));
  const Received subscription = gateway.received()[0];
  EXPECT_EQ(subscription.message, (DoorMessage{.wire = 1, .subscribe = true}));
  EXPECT_EQ(subscription.id, std::nullopt);

  const wire::GatewayEvent event{wire::event::FrontState{wire::FrontRecording::titleOnly}};
  gateway.push(event);
  std::unique_lock guard(lock);
  ASSERT_TRUE(heard.wait_for(guard, 5s, [&] { return !events.empty(); }));
  EXPECT_EQ(events[0], event);
}

}  // namespace
}  // namespace quillon::kit
