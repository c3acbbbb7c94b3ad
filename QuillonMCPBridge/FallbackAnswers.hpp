// The answers every tool renders alike: `fallback` for an answer case the tool does not expect,
// and `rendered` for the tools whose answer is the gateway's own text.
//
//   failure(message)      → an error result with the message as the gateway worded it;
//   unimplemented(verb)   → an error result "<verb> isn't available yet." (the gateway is older
//                           than the bridge and does not know the verb);
//   any other case        → the text "—".
//
// `rendered` with Defang::yes cleans the text as stored text is cleaned everywhere
// (defangEnvelope): used where the gateway quotes the user's screen history verbatim.
#pragma once

#include <nlohmann/json.hpp>

#include "QuillonWire/GatewayResponse.hpp"

namespace quillon::bridge {

enum class Defang { no, yes };

nlohmann::json fallback(const wire::GatewayResponse& response);
nlohmann::json rendered(const wire::GatewayResponse& response, Defang defang);

}  // namespace quillon::bridge
