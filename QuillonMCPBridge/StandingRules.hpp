// The standing-rules lane (rules_get): the user's rules for where the agent works, wrapped in one
// user-rules block that opens with a fixed preamble — how to treat the rules, where durable facts
// go, and the user's local time. Prompt hooks call it on every turn, so it stays one request and
// one pass of string assembly: no model, no second request.
//
// Two answers. A walk lists every level of the scope chain from "/" down with its rules. A card
// is the gateway's compact rules card, which a hook with a byte budget (the ceilings) may get
// replaced by the gateway's short pointer instead of a card it would have to cut.
//
// Every text from the gateway passes defangEnvelope. Hook metadata goes into "_meta":
// quillon/replyKind, quillon/rulesLane, quillon/indexSpan and quillon/card.
#pragma once

#include <nlohmann/json.hpp>

#include <cstdint>
#include <ctime>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "QuillonMCPBridge/ToolCall.hpp"
#include "QuillonWire/AnswerRecords.hpp"
#include "QuillonWire/GatewayResponse.hpp"

namespace quillon::bridge {

// A byte ceiling sent by a hook: only a whole JSON integer of at least 1 counts; 0, -5, 2.0, 1.5,
// true and "300" all mean no ceiling.
std::optional<std::int64_t> validCeiling(const nlohmann::json* value);

// "Tue 2026-03-03 · 9:41 AM" in the process's local zone (TZ, else the system's), worded from
// fixed English tables so that no locale can change it.
std::string clockFormat(std::time_t instant);

// Where the preamble's clock reads the time. Tests set a fixed instant; nullptr restores the
// system clock. Not synchronised: set it before calls are served.
using Now = std::time_t (*)();
void setRulesClock(Now now);

// The twelve preamble lines for the resolved scope `path`, with the time read now.
std::vector<std::string> preamble(std::string_view path);
// The preamble, note, onboarding and every level of the scope chain with its rules.
std::string renderWalk(const wire::RulesWalk& walk);

struct Composed {
  std::string text;
  std::optional<std::int64_t> span;
};
// The user-rules block around `lines` and then the card (defanged, outer newlines trimmed);
// `span` is the card's index tail.
Composed composed(std::string_view card, const std::vector<std::string>& lines);
// The UTF-8 length of the card's index tail, which starts one line above the first "<rules root="
// line (else the first "<mods " line), so the index's heading travels with it.
std::optional<std::int64_t> indexSpan(std::string_view card);

Prepared prepareStandingRules(const ToolCall& call);
// `askedForCard`: the call's card flag; the ceilings come from card_ceiling and card_head_ceiling.
nlohmann::json standingRules(const wire::GatewayResponse& response, bool askedForCard,
                             std::optional<std::int64_t> cardCeiling, std::optional<std::int64_t> cardHeadCeiling);

}  // namespace quillon::bridge
