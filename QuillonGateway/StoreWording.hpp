// StoreWording: what every verb of the development gateway says the same way: memory ids, days,
// titles, filter lists, the two note card shapes, and the refusals about ids.
//
// The cards are what the bridge renders for the agent, so a memory reads the same whether it
// came back from a grab, a listing or a search. Stateless; thread-safe.
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "QuillonWire/AnswerRecords.hpp"
#include "QuillonWire/GatewayResponse.hpp"

namespace quillon::gateway {

struct Memory;

wire::GatewayResponse failure(std::string message);
wire::GatewayResponse text(std::string value);

std::string plural(std::int64_t count, std::string_view one, std::string_view many);
std::string commaJoined(const std::vector<std::string>& items);

std::string memoryID(std::int64_t id);
// "m:41" → 41; nothing for anything else (no sign, no blanks, no leading zeros beyond "m:0").
std::optional<std::int64_t> parseMemoryID(std::string_view id);
std::string notAnID(std::string_view id);
std::string noSuchMemory(std::string_view id);

// The local calendar day, as cards print it ("2026-11-21").
std::string day(double seconds);
// The day, and the day of the last edit when there was one.
std::string when(const Memory& memory);
// The text on one line (control characters and runs of blanks become one blank), cut at a word
// boundary with "…" when it holds more than `characters` characters.
std::string clipped(std::string_view text, std::size_t characters);
// The memory's own title, else one made from the first words of its text.
std::string displayTitle(const Memory& memory);

// "status=open · pinned", or "none".
std::string filterList(const std::vector<wire::FilterPair>& filters);
std::vector<wire::FilterPair> pairs(const wire::Filters& filters);

// The whole memory, as grab shows it.
wire::Card noteCard(const Memory& memory);
// The one row of a by-type listing: what the compact row prints, without the body.
wire::Card listedCard(const Memory& memory);

// Whose declared scope: the agent session when it has an id, else the agent program.
std::string sessionKey(const std::optional<std::string>& session, std::string_view writer);

}  // namespace quillon::gateway
