// The wire's JSON values, for code that already holds a parsed nlohmann::json: tests that compare
// shapes, and a development gateway that speaks JSON directly. Same rules as WireCodec.hpp; this
// header is apart so that the modules that only send requests never compile the JSON library.
#pragma once

#include <nlohmann/json.hpp>

#include "QuillonWire/GatewayEvent.hpp"
#include "QuillonWire/GatewayRequest.hpp"
#include "QuillonWire/GatewayResponse.hpp"
#include "QuillonWire/WireResult.hpp"

namespace quillon::wire {

WireResult<nlohmann::json> toJSON(const GatewayRequest& request);
WireResult<nlohmann::json> toJSON(const GatewayResponse& response);
WireResult<nlohmann::json> toJSON(const GatewayEvent& event);

Decoded<GatewayResponse> responseFromJSON(const nlohmann::json& json);

}  // namespace quillon::wire
