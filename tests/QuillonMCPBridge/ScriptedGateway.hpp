// A gateway for tests: records every request it is sent and answers from a script (by default,
// `unimplemented` naming nothing in particular). Used through wire::InProcessClient, so the
// requests it sees have passed through the same JSON as the door's.
#pragma once

#include <functional>
#include <vector>

#include "QuillonWire/Gateway.hpp"
#include "QuillonWire/GatewayRequest.hpp"
#include "QuillonWire/GatewayResponse.hpp"
#include "QuillonWire/InProcessClient.hpp"

namespace quillon::test {

class ScriptedGateway : public wire::Gateway {
 public:
  using Script = std::function<wire::GatewayResponse(const wire::GatewayRequest&)>;

  wire::GatewayResponse serve(const wire::GatewayRequest& request) override {
    requests.push_back(request);
    if (script) return script(request);
    return wire::GatewayResponse{wire::answer::Unimplemented{.verb = "scripted"}};
  }

  // Answers every request with `response` from now on.
  void answer(wire::GatewayResponse response) {
    script = [response](const wire::GatewayRequest&) { return response; };
  }

  Script script;
  std::vector<wire::GatewayRequest> requests;
};

// A bridge-ready client over a scripted gateway.
struct ScriptedClient {
  ScriptedGateway gateway;
  wire::InProcessClient client{gateway};
};

}  // namespace quillon::test
