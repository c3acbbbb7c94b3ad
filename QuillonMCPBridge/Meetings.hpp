// The five meeting tools: meeting_list, meeting_get, meeting_search, meeting_stats, meeting_at.
// Each becomes one meeting read (their records in the catalogue say which); the gateway writes
// the texts themselves (lists, transcripts, hits, talk shares) and the bridge passes them
// through unchanged.
//
// Arguments: the optional texts (day, person, app, speaker, from, to) count only when they are
// non-empty strings; the required ids, query and instant have passed the generic check already;
// `times` is a flag and `limit` an integer, read as every tool reads them (ToolCall.hpp).
#pragma once

#include <nlohmann/json.hpp>

#include "QuillonWire/GatewayResponse.hpp"

namespace quillon::bridge {

// The gateway's text unchanged; every other case as `fallback`.
nlohmann::json meetingText(const wire::GatewayResponse& response);

}  // namespace quillon::bridge
