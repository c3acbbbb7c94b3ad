#include "QuillonKit/XPCClient.hpp"

#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <condition_variable>
#include <cstdint>
#include <cstdio>
#include <random>
#include <thread>
#include <variant>

#include "QuillonWire/GatewayRequest.hpp"
#include "QuillonWire/GatewayWire.hpp"
#include "QuillonWire/WireCodec.hpp"
#include "QuillonWire/WireContract.hpp"

namespace quillon::kit {

namespace {

using Clock = std::chrono::steady_clock;

constexpr auto kWireVersion = static_cast<std::uint64_t>(wire::WireContract::version);

wire::GatewayResponse failure(std::string_view message) {
  return wire::GatewayResponse{wire::answer::Failure{.message = std::string(message)}};
}

// A token no other request of any process is likely to carry: 64 random bits drawn once per
// process, the process id, and a count. A gateway keeps tokens for an hour, so a clash would need
// two processes drawing the same bits within it.
std::string freshToken() {
  static const std::string prefix = [] {
    std::random_device device;
    const auto high = static_cast<std::uint64_t>(device()) << 32;
    char text[40];
    std::snprintf(text, sizeof text, "%016llx-%d-", static_cast<unsigned long long>(high | device()),
                  static_cast<int>(::getpid()));
    return std::string(text);
  }();
  static std::atomic<std::uint64_t> issued{0};
  return prefix + std::to_string(++issued);
}

// What a reply wait produced.
struct Reply {
  std::optional<std::string> payload;
  std::optional<std::uint64_t> wire;
  std::optional<std::chrono::milliseconds> served;
};
struct Silence {};
using Outcome = std::variant<Reply, TransportError, Silence>;

// One try on one connection: an answer (perhaps "bad reply"), or why there was none.
struct Answered {
  wire::GatewayResponse response;
  std::optional<std::chrono::milliseconds> daemon;
  std::optional<std::uint64_t> wire;
};
using Attempt = std::variant<Answered, TransportError, Silence>;

// The first caller of take() gets true, every later caller false.
class OneShot {
 public:
  bool take() {
    std::lock_guard guard(lock_);
    if (taken_) return false;
    taken_ = true;
    return true;
  }

 private:
  std::mutex lock_;
  bool taken_ = false;  // guarded by lock_
};

// Where one reply is awaited. The connection offers the reply; the asking thread takes it, or
// gives up at its deadline. OneShot makes exactly one of the two count, so a reply that arrives
// after the deadline is dropped here and never mistaken for another request's.
class ReplySlot {
 public:
  void offer(DoorReply reply) {
    if (!shot_.take()) return;
    {
      std::lock_guard guard(lock_);
      reply_ = std::move(reply);
    }
    arrived_.notify_all();
  }

  Outcome await(std::optional<Clock::time_point> deadline) {
    std::unique_lock guard(lock_);
    const auto hasReply = [this] { return reply_.has_value(); };
    if (deadline && !arrived_.wait_until(guard, *deadline, hasReply)) {
      guard.unlock();
      if (shot_.take()) return Silence{};
      guard.lock();  // the reply won the race and is being stored
    }
    arrived_.wait(guard, hasReply);
    if (auto* message = std::get_if<DoorMessage>(&*reply_)) {
      Reply reply{.payload = std::move(message->payload), .wire = message->wire, .served = std::nullopt};
      if (message->servedMs)
        reply.served = std::chrono::milliseconds(std::min<std::uint64_t>(*message->servedMs, INT64_MAX));
      return reply;
    }
    return std::get<TransportError>(std::move(*reply_));
  }

 private:
  OneShot shot_;
  std::mutex lock_;
  std::condition_variable arrived_;
  std::optional<DoorReply> reply_;  // guarded by lock_
};

Outcome exchange(DoorConnection& connection, DoorMessage message, std::optional<Clock::time_point> deadline) {
  auto slot = std::make_shared<ReplySlot>();
  connection.sendWithReply(std::move(message), [slot](DoorReply reply) { slot->offer(std::move(reply)); });
  return slot->await(deadline);
}

// Sends the request and reads the answer. A reply without a payload, or whose payload is not a
// GatewayResponse, is still an answer: the gateway spoke, so there is nothing to redial for.
Attempt roundTrip(DoorConnection& connection, const std::string& payload, const std::optional<std::string>& token,
                  std::optional<Clock::time_point> deadline) {
  DoorMessage message;
  message.payload = payload;
  message.wire = kWireVersion;
  message.token = token;
  Outcome outcome = exchange(connection, std::move(message), deadline);
  if (auto* error = std::get_if<TransportError>(&outcome)) return std::move(*error);
  if (std::holds_alternative<Silence>(outcome)) return Silence{};
  Reply& reply = std::get<Reply>(outcome);
  if (reply.payload) {
    if (auto decoded = wire::decodeResponse(*reply.payload))
      return Answered{std::move(decoded).value(), reply.served, reply.wire};
  }
  return Answered{failure(wire::GatewayWire::badReply), std::nullopt, reply.wire};
}

// Stands in when no connection could be made: every send fails as a broken connection would.
class DeadConnection final : public DoorConnection {
 public:
  explicit DeadConnection(std::string serviceName) : reason_("no connection could be made to " + serviceName) {}
  void resume(EventHandler) override {}
  void send(DoorMessage) override {}
  void sendWithReply(DoorMessage, ReplyHandler onReply) override { onReply(TransportError{reason_}); }
  void cancel() override {}

 private:
  const std::string reason_;
};

}  // namespace

// Where pushed events go. Connections' handlers hold it, not the client.
struct XPCClient::EventRoute {
  std::mutex lock;
  EventCallback onEvent;         // guarded by lock
  std::uint64_t generation = 0;  // guarded by lock: the current subscription connection
  bool broken = false;           // guarded by lock: the current subscription connection failed

  void deliver(const std::string& json) {
    auto event = wire::decodeEvent(json);
    if (!event) return;
    EventCallback callback;
    {
      std::lock_guard guard(lock);
      callback = onEvent;
    }
    if (callback) callback(event.value());
  }

  // A connection's event handler: pushed events go to the subscriber. On a subscription
  // connection (`subscription` is its generation) an error marks it broken, and the next send
  // opens another; errors of the request connection need nothing, the next send redials.
  static DoorConnection::EventHandler handler(std::shared_ptr<EventRoute> route,
                                              std::optional<std::uint64_t> subscription) {
    return [route = std::move(route), subscription](DoorReply reply) {
      if (const auto* message = std::get_if<DoorMessage>(&reply)) {
        if (message->event) route->deliver(*message->event);
        return;
      }
      if (!subscription) return;
      std::lock_guard guard(route->lock);
      if (route->generation == *subscription) route->broken = true;
    };
  }
};

// Calls onWireMismatch the first time a gateway of another wire version is met, and never again.
struct XPCClient::SkewNotice {
  explicit SkewNotice(std::function<void()> callback) : onWireMismatch(std::move(callback)) {}

  void announce() {
    {
      std::lock_guard guard(lock);
      if (announced) return;
      announced = true;
    }
    if (onWireMismatch) onWireMismatch();
  }

  const std::function<void()> onWireMismatch;
  std::mutex lock;
  bool announced = false;  // guarded by lock
};

XPCClient::XPCClient(std::string machServiceName, MakeConnection makeConnection, std::function<void()> onWireMismatch,
                     std::function<bool()> serviceRegistered,
                     std::function<std::optional<ClientLineage>()> clientLineage, DoorRedial redial)
    : machServiceName_(std::move(machServiceName)),
      makeConnection_(std::move(makeConnection)),
      serviceRegistered_(std::move(serviceRegistered)),
      clientLineage_(std::move(clientLineage)),
      redial_(redial),
      route_(std::make_shared<EventRoute>()),
      skew_(std::make_shared<SkewNotice>(std::move(onWireMismatch))) {
  connection_ = dial(EventRoute::handler(route_, std::nullopt));
}

XPCClient::~XPCClient() {
  std::shared_ptr<DoorConnection> connection, subscription;
  {
    std::lock_guard guard(lock_);
    connection = std::move(connection_);
    subscription = std::move(subConnection_);
  }
  if (connection) connection->cancel();
  if (subscription) subscription->cancel();
}

wire::GatewayResponse XPCClient::send(const wire::GatewayRequest& request) { return sendTimed(request).response; }

wire::TimedResponse XPCClient::sendTimed(const wire::GatewayRequest& request) {
  ensureSubscribed();
  const wire::Encoded encoded = wire::encode(request);
  if (!encoded) {
    setFault(std::nullopt);
    return {failure(wire::GatewayWire::encodeFailed), std::nullopt};
  }
  const std::string& payload = encoded.value();
  // The retry below carries the same token, so a write the gateway committed before the
  // connection broke is answered again rather than made twice.
  const std::optional<std::string> token =
      wire::changesStore(request) ? std::optional<std::string>(freshToken()) : std::nullopt;

  const std::shared_ptr<DoorConnection> first = currentConnection();
  Attempt attempt = roundTrip(*first, payload, token, std::nullopt);

  if (std::holds_alternative<TransportError>(attempt)) {
    const auto [fresh, redialled] = redialAfter(first);
    // The knock never waits for its own reply: a gateway that leaves it unanswered still gets the
    // whole budget to answer the request itself, and one of another version is caught by either.
    if (redialled && history_.connected()) knock(*fresh);
    attempt = roundTrip(*fresh, payload, token, Clock::now() + redial_.budget);
  }

  if (auto* answered = std::get_if<Answered>(&attempt)) {
    history_.markConnected();
    // A reply without a version is admitted: older gateways did not send one.
    if (!answered->wire || *answered->wire == kWireVersion) {
      setFault(std::nullopt);
      return {std::move(answered->response), answered->daemon};
    }
    skew_->announce();
    setFault(DoorFault::skew);
    return {failure(wire::WireContract::mismatchMessage), std::nullopt};
  }

  if (std::holds_alternative<Silence>(attempt)) {
    setFault(DoorFault::silent);
    return {failure(DoorFault(DoorFault::silent).message()), std::nullopt};
  }

  const DoorFault fault = DoorFault::forDoubleFailure(serviceRegistered_ && serviceRegistered_());
  setFault(fault);
  if (fault == DoorFault::refused && clientLineage_) {
    if (const auto lineage = clientLineage_()) {
      if (const auto* stale = std::get_if<ClientLineage::Stale>(&lineage->value))
        return {failure(DoorFault::staleRefusalMessage(stale->installedVersion)), std::nullopt};
    }
  }
  return {failure(fault.message()), std::nullopt};
}

void XPCClient::subscribe(EventCallback onEvent) {
  {
    std::lock_guard guard(route_->lock);
    route_->onEvent = std::move(onEvent);
  }
  ensureSubscribed();
}

std::optional<DoorFault> XPCClient::lastDoorFault() const {
  std::lock_guard guard(lock_);
  return fault_;
}

int XPCClient::knocks() const {
  std::lock_guard guard(lock_);
  return knocks_;
}

std::shared_ptr<DoorConnection> XPCClient::dial(DoorConnection::EventHandler onEvent) {
  std::shared_ptr<DoorConnection> connection = makeConnection_ ? makeConnection_(machServiceName_) : nullptr;
  if (!connection) connection = std::make_shared<DeadConnection>(machServiceName_);
  connection->resume(std::move(onEvent));
  return connection;
}

std::shared_ptr<DoorConnection> XPCClient::currentConnection() {
  std::lock_guard guard(lock_);
  return connection_;
}

std::pair<std::shared_ptr<DoorConnection>, bool> XPCClient::redialAfter(const std::shared_ptr<DoorConnection>& failed) {
  std::shared_ptr<DoorConnection> retired, current;
  {
    std::lock_guard guard(lock_);
    // Requests that met the same broken connection find it already replaced and share the new one.
    if (connection_ == failed) {
      retired = std::move(connection_);
      connection_ = dial(EventRoute::handler(route_, std::nullopt));
    }
    current = connection_;
  }
  if (retired) retired->cancel();
  return {current, retired != nullptr};
}

void XPCClient::knock(DoorConnection& connection) {
  {
    std::lock_guard guard(lock_);
    ++knocks_;
  }
  std::this_thread::sleep_for(redial_.pause);
  DoorMessage probe;
  probe.wire = kWireVersion;
  connection.sendWithReply(std::move(probe), [skew = skew_](DoorReply reply) {
    // An error or a reply without a version tells nothing.
    if (const auto* message = std::get_if<DoorMessage>(&reply); message && message->wire && *message->wire != kWireVersion)
      skew->announce();
  });
}

void XPCClient::setFault(std::optional<DoorFault> fault) {
  std::lock_guard guard(lock_);
  fault_ = fault;
}

void XPCClient::ensureSubscribed() {
  std::shared_ptr<DoorConnection> retired, opened;
  {
    std::lock_guard guard(lock_);
    std::uint64_t generation = 0;
    {
      std::lock_guard routeGuard(route_->lock);
      if (!route_->onEvent) return;
      if (subConnection_ && !route_->broken) return;
      generation = ++route_->generation;
      route_->broken = false;
    }
    retired = std::move(subConnection_);
    subConnection_ = dial(EventRoute::handler(route_, generation));
    opened = subConnection_;
  }
  if (retired) retired->cancel();
  DoorMessage first;
  first.subscribe = true;
  first.wire = kWireVersion;
  opened->send(std::move(first));
}

}  // namespace quillon::kit
