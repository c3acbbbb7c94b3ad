// MCPGatewayName: the name of the gateway service the bridge dials.
//
// Normally the suite's gateway ("example.fernhollow.quillon.gateway"). Tests point a bridge at
// their own gateway through QUILLON_MCP_GATEWAY_FOR_TESTS, but only at a test service: the value,
// trimmed of white space and line breaks, is used only when it starts with the test prefix and
// has more after it, so a production bridge can never be redirected to anything else.
#pragma once

#include <string>
#include <string_view>

#include "QuillonKit/Environment.hpp"

namespace quillon::kit {

struct MCPGatewayName {
  static constexpr std::string_view overrideKey = "QUILLON_MCP_GATEWAY_FOR_TESTS";
  // The suite prefix followed by ".test.".
  static const std::string& testPrefix();

  static std::string resolve(const Environment& environment);
};

}  // namespace quillon::kit
