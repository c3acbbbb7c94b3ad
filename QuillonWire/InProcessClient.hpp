// InProcessClient: a Client whose gateway lives in the same process.
//
// Each request makes the same trip as through the door, in JSON text both ways: encoded here,
// decoded for the gateway, the gateway's answer encoded and decoded again. So in-process tests
// exercise the very bytes the daemon would see, and an asymmetry in the wire shows up at once:
//   - a request that does not encode answers "encode failed" and never reaches the gateway;
//   - one the gateway side cannot decode answers "malformed request", as the daemon would;
//   - an answer that does not encode or decode answers "bad reply";
//   - a gateway that throws answers a failure naming the exception (a daemon would not throw).
// sendTimed reports the time spent in Gateway::serve, in whole milliseconds (truncated, as the
// door's "served_ms"), or nothing when serve did not run.
//
// The gateway is borrowed and must outlive this client. Calls from several threads are as safe as
// the gateway's serve.
#pragma once

#include "QuillonWire/Client.hpp"
#include "QuillonWire/Gateway.hpp"

namespace quillon::wire {

class InProcessClient final : public Client {
 public:
  explicit InProcessClient(Gateway& gateway) : gateway_(gateway) {}

  GatewayResponse send(const GatewayRequest& request) override;
  TimedResponse sendTimed(const GatewayRequest& request) override;

 private:
  Gateway& gateway_;
};

}  // namespace quillon::wire
