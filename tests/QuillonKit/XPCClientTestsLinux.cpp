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

// The faults' own texts, each pinned byte for byte by the DoorFault tests.
const std::string kAbsent = DoorFault(DoorFault::absent).message(), kRefused = DoorFault(DoorFault::refused).message(),
                  kSilent = DoorFault(DoorFault::silent).message(), kSkew = DoorFault(DoorFault::skew).message();

wire::GatewayResponse text(std::string value) { return wire::GatewayResponse{wire::answer::Text{.text = std::move(value)}}; }

std::chrono::milliseconds since(Clock::time_point start) {
  return std::chrono::duration_cast<std::chrono::milliseconds>(Clock::now() - start);
}

class DoorOverSocket : public ::testing::Test {
 protected:
  static constexpr DoorRedial kRedial{300ms, 50ms};

  void SetUp() override {
    ::setenv("XDG_RUNTIME_DIR", temp.path().c_str(), 1);
    client = makeClient();  // touching no socket yet
  }

  std::unique_ptr<XPCClient> makeClient(std::optional<ClientLineage> lineage = std::nullopt, DoorRedial redial = kRedial) {
    return std::make_unique<XPCClient>(
        service, SystemDoor::makeConnection, [this] { ++mismatches; },
        [this] { return SystemDoor::serviceRegistered(service); }, [lineage] { return lineage; }, redial);
  }

  // Every request on connection `number` meets `first`; later ones are answered `ok`.
  void onFirstConnection(Action first, int number = 1) {
    gateway.setScript([first, number](const Received& message) -> Action {
      if (message.connection == number) return first;
      if (message.isKnock()) return Reply{};
      return test::answer(ok());
    });
  }

  test::TempFolder temp;
  const std::string folder = temp.path() + "/quillon";
  const std::string service = test::freshServiceName();
  test::TestGateway gateway{folder, service};
  std::atomic<int> mismatches{0};
  std::unique_ptr<XPCClient> client;
};

// The same, with the test gateway listening from the start.
class ServedDoor : public DoorOverSocket {
 protected:
  void SetUp() override {
    DoorOverSocket::SetUp();
    ASSERT_TRUE(gateway.start()) << gateway.lastError();
  }
};

TEST_F(ServedDoor, TheRequestArrivesAsSentAndTheAnswerCarriesItsServingTime) {
  // Constructing the client touched no socket, and an unencodable request is never sent.
  const auto unencodable = wire::GatewayRequest{wire::request::Notes{wire::NotesRequest{wire::notes::EditFilters{
      .id = "m", .set = wire::Filters{{"x", wire::FilterValue::number(std::numeric_limits<double>::infinity())}}}}}};
  EXPECT_EQ(client->sendTimed(unencodable).response, failure("encode failed"));
  EXPECT_EQ(client->lastDoorFault(), std::nullopt);
  EXPECT_EQ(gateway.connectionsAccepted(), 0);

  gateway.setScript([](const Received&) {
    Reply reply = test::answer(text("hi"));
    reply.servedMs = 250;
    return reply;
  });
  // A large request arrives whole, its last character too.
  const std::string line = std::string(1 << 20, 'q') + "héllo";
  const wire::TimedResponse timed = client->sendTimed(logRequest(line));
  EXPECT_EQ(timed.response, text("hi"));
  EXPECT_EQ(timed.daemon, 250ms);
  EXPECT_EQ(client->lastDoorFault(), std::nullopt);

  const auto received = gateway.received();
  ASSERT_EQ(received.size(), 1u);
  EXPECT_EQ(received[0].request, logRequest(line));
  EXPECT_EQ(received[0].message.wire, 1u);
  EXPECT_TRUE(received[0].id.has_value());

  // A reply without a version is admitted (older gateways sent none), and has no serving time.
  gateway.setScript([](const Received&) { return test::answer(ok(), std::nullopt); });
  EXPECT_EQ(client->sendTimed(logRequest("again")).daemon, std::nullopt);
  EXPECT_EQ(client->send(logRequest("again")), ok());
  EXPECT_EQ(gateway.connectionsAccepted(), 1);
}

TEST_F(DoorOverSocket, NoGatewayIsAbsentAtOnce) {
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

TEST_F(ServedDoor, AGatewayThatDiesMidRequestIsAbsentWithoutWaiting) {
  gateway.setScript([](const Received&) { return test::Hold{}; });
  auto answer = std::async(std::launch::async, [&] { return client->send(logRequest("x")); });
  ASSERT_TRUE(gateway.awaitReceived(1));
  const auto stopped = Clock::now();
  gateway.stop();
  EXPECT_EQ(answer.get(), failure(kAbsent));
  EXPECT_LT(since(stopped), 2s);
}

TEST_F(ServedDoor, AGatewayThatHangsUpOnUsIsRefused) {
  gateway.refuseEveryConnection(true);
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

TEST_F(ServedDoor, ANamespaceFolderOthersCouldWriteToIsNeverDialled) {
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

TEST_F(ServedDoor, TheFirstAttemptWaitsForALiveGateway) {
  gateway.setScript([](const Received&) {
    Reply reply = test::answer(ok());
    reply.delay = 3 * kRedial.budget;
    return reply;
  });
  EXPECT_EQ(client->send(logRequest("x")), ok());
}

TEST_F(ServedDoor, SilenceAfterTheRedialIsSilentWithinTheBudgetAndALaterReplyIsDropped) {
  gateway.setScript([](const Received& message) -> Action {
    if (message.connection == 1) return test::CloseConnection{};
    Reply late = test::answer(text("late"));
    late.delay = 2 * kRedial.budget;
    return late;
  });
  const auto start = Clock::now();
  EXPECT_EQ(client->send(logRequest("x")), failure(kSilent));
  const auto waited = since(start);
  EXPECT_GE(waited, kRedial.budget);
  EXPECT_LT(waited, 2s);
  EXPECT_EQ(client->lastDoorFault(), DoorFault::silent);
  EXPECT_EQ(client->knocks(), 0);  // never answered before: nothing to knock about
  gateway.setScript([](const Received&) { return test::answer(text("on time")); });
  std::this_thread::sleep_for(2 * kRedial.budget);  // the late reply lands meanwhile
  EXPECT_EQ(client->send(logRequest("y")), text("on time"));
  EXPECT_EQ(gateway.connectionsAccepted(), 2);
}

TEST_F(ServedDoor, SkewReplacesTheAnswerAndIsAnnouncedOnce) {
  gateway.setScript([](const Received&) { return test::answer(ok(), 2); });
  EXPECT_EQ(client->send(logRequest("x")), failure(kSkew));
  EXPECT_EQ(client->send(logRequest("y")), failure(kSkew));
  EXPECT_EQ(mismatches, 1);
  EXPECT_EQ(client->lastDoorFault(), DoorFault::skew);

  gateway.setScript([](const Received&) { return test::answer(ok()); });
  EXPECT_EQ(client->send(logRequest("z")), ok());
  EXPECT_EQ(client->lastDoorFault(), std::nullopt);
  EXPECT_EQ(mismatches, 1);
}

TEST_F(ServedDoor, AReplyWithoutAnAnswerIsABadReplyNotARedial) {
  gateway.setScript([](const Received&) { return Reply{}; });
  EXPECT_EQ(client->sendTimed(logRequest("x")).response, failure("bad reply"));
  gateway.setScript([](const Received&) { return Reply{.payload = R"({"nonsense":{}})", .servedMs = 5}; });
  const auto timed = client->sendTimed(logRequest("y"));
  EXPECT_EQ(timed.response, failure("bad reply"));
  EXPECT_EQ(timed.daemon, std::nullopt);
  EXPECT_EQ(client->lastDoorFault(), std::nullopt);
  EXPECT_EQ(gateway.connectionsAccepted(), 1);
}

TEST_F(ServedDoor, AWriteCarriesOneTokenAcrossItsRetryAndReadsCarryNone) {
  onFirstConnection(test::CloseConnection{});
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

TEST_F(ServedDoor, AStreamThatStopsMakingSenseOrALineOver64MiBIsRedialled) {
  for (const std::string& bytes : {std::string("this is not JSON\n"), std::string(DoorFrame::kMaxLineBytes + 1, ' ')}) {
    const int before = gateway.connectionsAccepted();
    onFirstConnection(test::RawLine{bytes}, before + 1);
    // The standard budget: moving 64 MiB about keeps a slow (sanitized) test gateway busy.
    EXPECT_EQ(makeClient(std::nullopt, DoorRedial::standard)->send(logRequest("x")), ok());
    EXPECT_EQ(gateway.connectionsAccepted(), before + 2);
  }
}

TEST_F(ServedDoor, AGatewayRestartedBetweenCallsIsRedialledWithAKnockThatCatchesAnotherVersion) {
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

  // Back again as another version: the knock catches it.
  gateway.stop();
  gateway.setScript([](const Received& message) -> Action {
    if (message.isKnock()) return Reply{.wire = 2};
    return test::Silence{};  // a newer gateway that does not answer old requests
  });
  ASSERT_TRUE(gateway.start());
  EXPECT_EQ(client->send(logRequest("later")), failure(kSilent));
  EXPECT_EQ(mismatches, 1);
}

TEST_F(ServedDoor, AnUnansweredKnockLeavesTheRetryItsWholeBudget) {
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
  EXPECT_EQ(client->send(logRequest("warm")), ok());  // answered once: every later redial knocks
  for (int i = 0; i < 20; ++i) EXPECT_EQ(client->send(logRequest("call " + std::to_string(i))), ok()) << i;
  EXPECT_EQ(client->knocks(), 20);
}

TEST_F(ServedDoor, ConcurrentSendersThatMeetOneBrokenConnectionRedialOnce) {
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

TEST_F(ServedDoor, SubscribersHearPushedEvents) {
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
