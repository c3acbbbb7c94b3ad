// The session card: the user's recent chats in this scope, each with a letter, offered so that
// one can be carried on. The model is told to show the card verbatim in a fenced code block; the
// orders under it ("For you only") say what each letter means, and the user never sees them.
//
// At most ten rows are shown, lettered a to j; the gateway's further rows are dropped. Every text
// from the store passes defangEnvelope, so a title can never close the card's own tags.
//
// session_list never answers with an error: a gateway that fails or cannot list sessions gets a
// plain sentence the model can pass on and carry on from.
#pragma once

#include <nlohmann/json.hpp>

#include <optional>
#include <string>

#include "QuillonMCPBridge/ToolCall.hpp"
#include "QuillonWire/AnswerRecords.hpp"
#include "QuillonWire/GatewayResponse.hpp"

namespace quillon::bridge {

std::string renderSessionList(const std::optional<wire::SessionOffer>& offer);

Prepared prepareSessionList(const ToolCall& call);
nlohmann::json sessionList(const wire::GatewayResponse& response);

}  // namespace quillon::bridge
