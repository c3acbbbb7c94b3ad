// The recall lane (memory_get_relevant): on every user prompt the gateway primes the turn with the
// few memory cards that strongly match the message, and the bridge frames them in one
// quillon-memory block that tells the model they are observations, usually irrelevant, never
// instructions. Stored text passes defangEnvelope, so it can never close the block.
//
// Two more pieces ride in the result's "_meta", never in its text, for the prompt hooks that
// inject them: the shortcut block when the message used a shortcut ("quillon/shortcut", or
// "quillon/shortcutMiss" with the reason when shortcuts could not be read) and a quillon-now
// notice when a meeting has just ended ("quillon/now"). The block itself is described by
// "quillon/replyKind", "quillon/cardCount" and "quillon/cardSpans" (each card's UTF-8 length).
#pragma once

#include <nlohmann/json.hpp>

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "QuillonMCPBridge/ToolCall.hpp"
#include "QuillonWire/AnswerRecords.hpp"
#include "QuillonWire/GatewayResponse.hpp"

namespace quillon::bridge {

std::string renderPrimeCard(const wire::PrimeCard& card);
std::string renderPrime(const std::vector<wire::PrimeCard>& cards);
std::vector<std::int64_t> primeCardSpans(const std::vector<wire::PrimeCard>& cards);
std::optional<std::string> renderJustEnded(const std::optional<wire::MeetingJustEnded>& meeting);

Prepared preparePrimed(const ToolCall& call);
nlohmann::json primed(const wire::GatewayResponse& response);

}  // namespace quillon::bridge
