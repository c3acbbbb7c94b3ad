// A gateway for tests that listens on a real Unix socket and speaks the Linux door contract
// (docs/door.md): one JSON line per message, replies paired by id, knocks, subscriptions.
//
// A script decides what happens to each message it is sent: answer (at once or after a delay,
// with any wire version, with or without a payload), stay silent, close the connection, hold the
// message until the test releases it, or write raw bytes. It records everything it receives, can
// refuse every connection (closing it at once, as a gateway does with a stranger), drop its open
// connections, stop and start again, and push events to subscribers.
//
// Each connection is served by its own thread; the script runs on it. Thread-safe.
#pragma once

#include <chrono>
#include <condition_variable>
#include <cstdint>
#include <functional>
#include <memory>
#include <mutex>
#include <optional>
#include <string>
#include <thread>
#include <variant>
#include <vector>

#include "QuillonKit/DoorConnection.hpp"
#include "QuillonWire/GatewayEvent.hpp"
#include "QuillonWire/GatewayRequest.hpp"
#include "QuillonWire/GatewayResponse.hpp"

namespace quillon::test {

// Answer the message: "payload" holds `payload` as embedded JSON when present.
struct Reply {
  std::optional<std::string> payload{};
  std::optional<std::uint64_t> wire = 1;
  std::optional<std::uint64_t> servedMs{};
  std::chrono::milliseconds delay{0};
};
struct Silence {};          // never answer
struct CloseConnection {};  // close the connection that carried the message, without a reply
struct Hold {};             // keep it until release()
struct RawLine {            // write these bytes instead of a reply
  std::string bytes;
};
using Action = std::variant<Reply, Silence, CloseConnection, Hold, RawLine>;

// A reply carrying `response`.
Reply answer(const wire::GatewayResponse& response, std::optional<std::uint64_t> wire = 1);

struct Received {
  int connection = 0;  // 1 for the first connection the gateway accepted, 2 for the next, …
  std::optional<std::uint64_t> id{};
  kit::DoorMessage message{};
  std::optional<wire::GatewayRequest> request{};  // the payload, decoded

  // A message carrying nothing but the wire version: a client probing which version we speak.
  bool isKnock() const { return !message.payload && !message.subscribe && message.wire.has_value(); }
};

class TestGateway {
 public:
  using Script = std::function<Action(const Received&)>;

  // Serves `serviceName` in `folder`, which is created with mode 0700 when missing.
  TestGateway(std::string folder, std::string serviceName);
  ~TestGateway();
  TestGateway(const TestGateway&) = delete;
  TestGateway& operator=(const TestGateway&) = delete;

  // Listens; false when the socket cannot be made (the reason in lastError()).
  bool start();
  // Closes the listener and every connection. Without `removeSocket`, the socket file stays
  // behind with no one listening, as after a crash.
  void stop(bool removeSocket = true);

  // Replaces the script. The default answers knocks with wire 1 and requests with `ok`.
  void setScript(Script script);
  void refuseEveryConnection(bool refuse);
  // Closes the open connections and keeps listening.
  void dropConnections();
  // Answers every held message as `action` says.
  void release(const Action& action);
  void push(const wire::GatewayEvent& event);

  std::vector<Received> received() const;
  // Waits until at least `count` messages have been received; false on timeout.
  bool awaitReceived(std::size_t count, std::chrono::milliseconds timeout = std::chrono::seconds(10)) const;
  int connectionsAccepted() const;
  const std::string& socketPath() const { return path_; }
  std::string lastError() const;

 private:
  struct Peer;
  struct Held {
    std::weak_ptr<Peer> peer;
    Received message;
  };

  void acceptLoop(int listener);
  void serve(std::shared_ptr<Peer> peer);
  void act(const std::shared_ptr<Peer>& peer, const Received& message, const Action& action);
  void write(Peer& peer, const std::string& bytes);

  const std::string folder_;
  const std::string path_;

  mutable std::mutex lock_;
  mutable std::condition_variable changed_;
  Script script_;                            // guarded by lock_
  bool refusing_ = false;                    // guarded by lock_
  bool stopping_ = false;                    // guarded by lock_
  int listener_ = -1;                        // guarded by lock_
  int accepted_ = 0;                         // guarded by lock_
  std::vector<std::shared_ptr<Peer>> peers_;  // guarded by lock_
  std::vector<Received> received_;           // guarded by lock_
  std::vector<Held> held_;                   // guarded by lock_
  std::vector<std::thread> delayed_;         // guarded by lock_: replies written after a delay
  std::string lastError_;                    // guarded by lock_
  std::thread acceptor_;
};

}  // namespace quillon::test
