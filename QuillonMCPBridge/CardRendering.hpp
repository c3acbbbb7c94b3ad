// Memory cards as the model reads them: the hit lists of search and grep, the one card of grab,
// the per-type listing and the type inventory.
//
// Layout is part of the product: field order, the " · " separator, two-blank and four-blank
// indents, "—" for an absent snippet. Lines are joined with LF.
//
// Two layouts. A "note" card (a memory an agent wrote) shows every piece through defangEnvelope:
// its text came from agents and the screen. Every other kind gets the general layout, whose own
// fields (kind, id, when, chapter, locator, excerpt, why) the gateway writes itself and sends clean;
// the session body, moment body and trail under it hold stored text and are defanged.
//
// Renderers never fail: absent fields are skipped or replaced by fixed words. Each card is built
// by appending to one string, and text is cleaned field by field, never on the joined result.
#pragma once

#include <nlohmann/json.hpp>

#include <optional>
#include <string>
#include <string_view>

#include "QuillonWire/AnswerRecords.hpp"
#include "QuillonWire/GatewayResponse.hpp"

namespace quillon::bridge {

// One full card, in the note or the general layout.
std::string renderCard(const wire::Card& card);
std::string renderNoteCard(const wire::Card& card);
// One line of a memory_get_by_type listing: id, title, filters, when.
std::string renderCompactRow(const wire::Card& card);

// The indented blocks under a card; each starts with a line break, or is empty.
std::string renderSessionBody(const wire::SessionBody& body);
std::string renderMomentBody(const wire::MomentBody& body, std::string_view id);
std::string renderTrail(const std::optional<wire::SessionLink>& startedBy,
                        const std::optional<wire::SessionLink>& mainChat);

// Tool results. `windowed`: the search carried a from or to bound, which changes what an empty
// list says. `type`: the type name the caller asked for.
nlohmann::json cards(const wire::GatewayResponse& response, bool windowed);
nlohmann::json thing(const wire::GatewayResponse& response);
nlohmann::json byType(const wire::GatewayResponse& response, std::string_view type);
nlohmann::json listTypes(const wire::GatewayResponse& response);

}  // namespace quillon::bridge
