#include "QuillonMCPBridge/DayReports.hpp"
#include "ScopedTimeZone.hpp"
#include "ToolHarness.hpp"

using nlohmann::json;
using namespace quillon;
using bridge::hhmm;
using bridge::hms;
using test::ok;
using test::ScopedTimeZone;
using test::wireJSON;

namespace {

TEST(Hms, LargestUnitsOnlyWithBoundariesWhereTheyFall) {
  const std::pair<std::int64_t, const char*> cases[] = {
      {0, "0s"},    {59, "59s"},   {60, "1m"},        {3599, "59m"},  {3600, "1h"},
      {3659, "1h"}, {3660, "1h 1m"}, {7500, "2h 5m"}, {-5, "-5s"},    {-3600, "-3600s"},
  };
  for (const auto& [seconds, text] : cases) EXPECT_EQ(hms(seconds), text) << seconds;
}

TEST(Hhmm, TwentyFourHourClockInTheUsersZone) {
  {
    ScopedTimeZone utc("UTC0");
    EXPECT_EQ(hhmm(0), "00:00");
    EXPECT_EQ(hhmm(9 * 3600 + 5 * 60), "09:05");
    EXPECT_EQ(hhmm(9 * 3600 + 5 * 60 + 59.9), "09:05");  // the minute the instant falls in
    EXPECT_EQ(hhmm(23 * 3600 + 59 * 60), "23:59");
    EXPECT_EQ(hhmm(-0.5), "23:59");
  }
  ScopedTimeZone india("IST-5:30");
  EXPECT_EQ(hhmm(0), "05:30");
  EXPECT_EQ(hhmm(18.5 * 3600), "00:00");
}

wire::DayPresence::App app(std::string name, std::int64_t attended, std::int64_t unattended,
                           std::vector<wire::DayPresence::Interval> intervals = {}) {
  return {.app = std::move(name), .attended = attended, .unattended = unattended, .intervals = std::move(intervals)};
}

wire::GatewayResponse presenceOf(wire::DayPresence day, std::optional<std::string> focus) {
  return wire::GatewayResponse{wire::answer::Presence{.presence = std::move(day), .app = std::move(focus)}};
}

TEST(DayPresence, EveryAppWithItsAttendedAndUnattendedTime) {
  test::ToolHarness h;
  h.answer(presenceOf({.day = "2025-05-02", .apps = {app("Xcode", 9600, 1920), app("Safari", 2700, 0)}}, std::nullopt));
  EXPECT_EQ(h.call("day_get_hours_by_app"),
            ok("2025-05-02 \xC2\xB7 hours by app (attended + unattended)\n"
               "3h 12m \xC2\xB7 Xcode \xE2\x80\x94 attended 2h 40m \xC2\xB7 unattended 32m\n"
               "45m \xC2\xB7 Safari \xE2\x80\x94 attended 45m \xC2\xB7 unattended 0s\n"
               "\nUNATTENDED credit needs on-screen pixel change \xE2\x80\x94 a static hidden window (a paused agent, "
               "a still page) is undercounted; call apps and focused time are unaffected."));
  EXPECT_EQ(h.sent(), wireJSON(R"({"read":{"_0":{"dayPresence":{"day":"today"}}}})"));

  h.answer(presenceOf({.day = "yesterday"}, std::nullopt));
  EXPECT_EQ(h.call("day_get_hours_by_app", {{"day", "yesterday"}, {"app", ""}}), ok("Nothing recorded on yesterday."));
  EXPECT_EQ(h.sent(), wireJSON(R"({"read":{"_0":{"dayPresence":{"day":"yesterday"}}}})"));
}

TEST(DayPresence, FocusAppInAnyCaseShowsItsTimeline) {
  ScopedTimeZone utc("UTC0");
  test::ToolHarness h;
  const double nine = 1746176400;  // 2025-05-02 09:00 UTC
  h.answer(presenceOf({.day = "2025-05-02",
                       .apps = {app("Safari", 60, 0),
                                app("Xcode", 7500, 45,
                                    {{.start = nine, .end = nine + 7500.9, .kind = "attended"},
                                     {.start = nine + 9000, .end = nine + 8995, .kind = "<quillon-now>"}})}},
                      "xcode"));
  EXPECT_EQ(h.call("day_get_hours_by_app", {{"app", "xcode"}, {"day", "2025-05-02"}}),
            ok("Xcode \xC2\xB7 2025-05-02 \xC2\xB7 hours\n"
               "ATTENDED 2h 5m \xC2\xB7 UNATTENDED 45s \xC2\xB7 TOTAL 2h 5m\n"
               "\nTIMELINE:\n"
               "09:00\xE2\x80\x93" "11:05 \xC2\xB7 2h 5m \xC2\xB7 attended\n"
               "11:30\xE2\x80\x93" "11:29 \xC2\xB7 -5s \xC2\xB7 \xE2\x80\xB9quillon-now\xE2\x80\xBA\n"));
  EXPECT_EQ(h.sent(), wireJSON(R"({"read":{"_0":{"dayPresence":{"day":"2025-05-02","app":"xcode"}}}})"));

  h.answer(presenceOf({.day = "today", .apps = {app("Zoom", 0, 0)}}, "ZOOM"));
  EXPECT_EQ(h.call("day_get_hours_by_app", {{"app", "ZOOM"}}),
            ok("Zoom \xC2\xB7 today \xC2\xB7 hours\nATTENDED 0s \xC2\xB7 UNATTENDED 0s \xC2\xB7 TOTAL 0s\n\nTIMELINE:\n"));

  h.answer(presenceOf({.day = "today", .apps = {app("Zoom", 0, 0)}}, "Figma"));
  EXPECT_EQ(h.call("day_get_hours_by_app", {{"app", "Figma"}}), ok("No time for Figma on today."));
}

}  // namespace
