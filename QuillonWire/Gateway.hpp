// Gateway: the daemon's side of an exchange, one answer per request. Used in process, by
// InProcessClient and by tests that stand in for the daemon.
#pragma once

namespace quillon::wire {

struct GatewayRequest;
struct GatewayResponse;

class Gateway {
 public:
  virtual ~Gateway() = default;

  // Answers `unimplemented` for a verb it does not serve and `failure` when it fails.
  virtual GatewayResponse serve(const GatewayRequest& request) = 0;
};

}  // namespace quillon::wire
