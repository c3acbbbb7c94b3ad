// Day reports: how much time went where on one day (day_get_hours_by_app), and the two time
// formats every time report of the bridge uses — `hms` for durations and `hhmm` for clock times.
//
// The gateway computes the figures and orders apps and intervals; the bridge prints them as they
// come. Names (day, apps, interval kinds) are stored text and pass defangEnvelope.
#pragma once

#include <nlohmann/json.hpp>

#include <cstdint>
#include <optional>
#include <string>

#include "QuillonWire/AnswerRecords.hpp"
#include "QuillonWire/GatewayResponse.hpp"

namespace quillon::bridge {

// 45s · 12m · 2h · 2h 5m: the largest units only, no seconds once a minute is reached. Anything
// below a minute, negative durations included, is printed in seconds (-5s).
std::string hms(std::int64_t seconds);

// The instant (seconds since 1970, UTC) as a 24-hour clock time, "09:05", in the user's time
// zone: the process's local zone (TZ, else the system's), read once as the C library does.
std::string hhmm(double epochSeconds);

// Without a focus app: one line per app with its attended and unattended time. With one (matched
// in any letter case): that app's totals and its timeline of intervals.
std::string renderPresence(const wire::DayPresence& day, const std::optional<std::string>& focusApp);

// The tool result for day_get_hours_by_app.
nlohmann::json presence(const wire::GatewayResponse& response);

}  // namespace quillon::bridge
