#include "QuillonMCPBridge/DayReports.hpp"

#include <cmath>
#include <cstdio>
#include <ctime>
#include <limits>

#include "QuillonMCPBridge/FallbackAnswers.hpp"
#include "QuillonMCPBridge/TextCleaning.hpp"
#include "QuillonMCPBridge/ToolResult.hpp"
#include "QuillonMCPBridge/UnicodeText.hpp"

namespace quillon::bridge {

using nlohmann::json;

namespace {

constexpr std::string_view kDot = " \xC2\xB7 ";  // " · "

// The gateway's figures are trusted for meaning, not for range: sums saturate instead of wrapping.
std::int64_t total(std::int64_t a, std::int64_t b) {
  std::int64_t sum = 0;
  if (!__builtin_add_overflow(a, b, &sum)) return sum;
  return a > 0 ? std::numeric_limits<std::int64_t>::max() : std::numeric_limits<std::int64_t>::min();
}

// end − start truncated to whole seconds, clamped to what an Int holds.
std::int64_t wholeSeconds(double span) {
  constexpr double kLimit = 9.2e18;
  if (std::isnan(span)) return 0;
  if (span >= kLimit) return std::numeric_limits<std::int64_t>::max();
  if (span <= -kLimit) return std::numeric_limits<std::int64_t>::min();
  return static_cast<std::int64_t>(span);
}

}  // namespace

std::string hms(std::int64_t seconds) {
  if (seconds < 60) return std::to_string(seconds) + "s";
  if (seconds < 3600) return std::to_string(seconds / 60) + "m";
  const std::int64_t rest = seconds % 3600;
  std::string out = std::to_string(seconds / 3600) + "h";
  if (rest >= 60) out += " " + std::to_string(rest / 60) + "m";
  return out;
}

std::string hhmm(double epochSeconds) {
  // The clock shows the minute the instant falls in, so round down, before 1970 as after.
  const double floored = std::floor(epochSeconds);
  constexpr double kLimit = 1e15;  // far beyond any year the C library can name
  if (!(floored > -kLimit && floored < kLimit)) return "\xE2\x80\x94";
  const auto instant = static_cast<std::time_t>(floored);
  std::tm local{};
  if (localtime_r(&instant, &local) == nullptr) return "\xE2\x80\x94";
  char text[8];
  std::snprintf(text, sizeof text, "%02d:%02d", local.tm_hour, local.tm_min);
  return text;
}

std::string renderPresence(const wire::DayPresence& day, const std::optional<std::string>& focusApp) {
  const std::string dayName = defangEnvelope(day.day);
  if (!focusApp || focusApp->empty()) {
    if (day.apps.empty()) return "Nothing recorded on " + dayName + ".";
    std::string out = dayName + " \xC2\xB7 hours by app (attended + unattended)\n";
    for (const auto& app : day.apps) {
      out += hms(total(app.attended, app.unattended));
      out += kDot;
      out += defangEnvelope(app.app);
      out += " \xE2\x80\x94 attended " + hms(app.attended);
      out += kDot;
      out += "unattended " + hms(app.unattended) + "\n";
    }
    out += "\nUNATTENDED credit needs on-screen pixel change \xE2\x80\x94 a static hidden window (a paused agent, a "
           "still page) is undercounted; call apps and focused time are unaffected.";
    return out;
  }

  const std::string wanted = unicode::lowercased(*focusApp);
  const wire::DayPresence::App* match = nullptr;
  for (const auto& app : day.apps) {
    if (unicode::lowercased(app.app) == wanted) {
      match = &app;
      break;
    }
  }
  if (match == nullptr) return "No time for " + defangEnvelope(*focusApp) + " on " + dayName + ".";

  std::string out = defangEnvelope(match->app);
  out += kDot;
  out += dayName + " \xC2\xB7 hours\n";
  out += "ATTENDED " + hms(match->attended);
  out += kDot;
  out += "UNATTENDED " + hms(match->unattended);
  out += kDot;
  out += "TOTAL " + hms(total(match->attended, match->unattended)) + "\n";
  out += "\nTIMELINE:\n";
  for (const auto& interval : match->intervals) {
    out += hhmm(interval.start) + "\xE2\x80\x93" + hhmm(interval.end);  // en dash
    out += kDot;
    out += hms(wholeSeconds(interval.end - interval.start));
    out += kDot;
    out += defangEnvelope(interval.kind) + "\n";
  }
  return out;
}

json presence(const wire::GatewayResponse& response) {
  const auto* report = std::get_if<wire::answer::Presence>(&response.value);
  if (report == nullptr) return fallback(response);
  return textContent(renderPresence(report->presence, report->app));
}

}  // namespace quillon::bridge
