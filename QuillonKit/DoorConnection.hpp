// DoorConnection: one connection to the gateway's service, the seam below the door client.
//
// It mirrors an XPC connection exchanging dictionaries: a message is a handful of optional
// entries, a request gets exactly one reply or the transport error, and what the gateway sends
// unasked (events, and the error that ends the connection) goes to the event handler. Everything
// the door decides (redial, knock, deadlines, faults, skew) lives above it in XPCClient, so the
// macOS connection (libxpc) and the Linux one (a Unix socket) only translate.
//
// Contract of every implementation:
//   - creating one touches nothing; the first send connects (as XPC does);
//   - `resume` is called once, before any send;
//   - every `sendWithReply` handler is called exactly once, with the reply or a TransportError,
//     from any thread (possibly the caller's, before sendWithReply returns);
//   - after a TransportError the connection is dead: later sends fail at once with it;
//   - `cancel` fails every outstanding reply; the event handler may still hear the error once;
//   - safe to use from several threads at once; handlers must return promptly.
#pragma once

#include <cstdint>
#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <variant>

namespace quillon::kit {

// The entries of one message. Keys on the wire: "payload", "wire", "served_ms", "subscribe",
// "event", "token".
struct DoorMessage {
  std::optional<std::string> payload{};      // JSON text of a GatewayRequest (out) or GatewayResponse (back)
  std::optional<std::uint64_t> wire{};       // the sender's wire version
  std::optional<std::uint64_t> servedMs{};   // how long the gateway took to serve the request
  std::optional<bool> subscribe{};           // true on the first message of a subscription
  std::optional<std::string> event{};        // JSON text of a GatewayEvent
  // Names one request that changes the store, the same on its retry after a redial, so a gateway
  // that already served it answers again without serving it twice. The Unix-socket door carries
  // it; the XPC door leaves it out.
  std::optional<std::string> token{};
  bool operator==(const DoorMessage&) const = default;
};

// The connection failed (XPC's error object). `reason` names the connection and the cause, for
// diagnostics; users are shown the door's fault texts instead.
struct TransportError {
  std::string reason{};
  bool operator==(const TransportError&) const = default;
};

using DoorReply = std::variant<DoorMessage, TransportError>;

class DoorConnection {
 public:
  using ReplyHandler = std::function<void(DoorReply)>;
  using EventHandler = std::function<void(DoorReply)>;

  virtual ~DoorConnection() = default;

  virtual void resume(EventHandler onEvent) = 0;
  // A message that expects no reply (the subscription's first).
  virtual void send(DoorMessage message) = 0;
  virtual void sendWithReply(DoorMessage message, ReplyHandler onReply) = 0;
  virtual void cancel() = 0;
};

// This platform's door: an XPC connection to a Mach service on macOS, a Unix socket in the door's
// namespace folder on Linux (docs/door.md).
struct SystemDoor {
  // A new, unconnected connection to `serviceName`; null when none can be made.
  static std::shared_ptr<DoorConnection> makeConnection(const std::string& serviceName);
  // Whether the service is there at all: what tells a stopped suite from one that refuses us.
  static bool serviceRegistered(const std::string& serviceName);
};

}  // namespace quillon::kit
