// Client: a client's view of the gateway daemon, whatever carries the messages (the XPC door or
// an in-process gateway).
//
// Both operations block until the answer is there and never throw: every failure (encoding,
// transport, a reply that does not decode) comes back as a `failure` answer whose message is
// meant to be shown. Implementations say whether they may be called from several threads.
#pragma once

#include <chrono>
#include <optional>

#include "QuillonWire/GatewayResponse.hpp"

namespace quillon::wire {

struct GatewayRequest;

// An answer, and how long the daemon took to serve it when that is known.
struct TimedResponse {
  GatewayResponse response;
  std::optional<std::chrono::milliseconds> daemon;
};

class Client {
 public:
  virtual ~Client() = default;

  virtual GatewayResponse send(const GatewayRequest& request) = 0;
  virtual TimedResponse sendTimed(const GatewayRequest& request) = 0;
};

}  // namespace quillon::wire
