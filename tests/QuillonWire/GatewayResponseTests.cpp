// Answers and events as the bridge reads them: the shapes renderers rely on, records with only
// their required fields, enumerations by exact name, and byte strings as base64.
#include <gtest/gtest.h>

#include "QuillonWire/GatewayEvent.hpp"
#include "QuillonWire/GatewayResponse.hpp"
#include "WireTestSupport.hpp"

namespace quillon::wire {
namespace {

using namespace testing;

WireError responseError(std::string_view text) {
  const auto decoded = decodeResponse(text);
  EXPECT_FALSE(decoded.ok()) << text;
  return decoded ? WireError{} : decoded.error();
}

GatewayResponse decoded(std::string_view text) {
  auto result = decodeResponse(text);
  EXPECT_TRUE(result.ok()) << text << "\n" << (result ? "" : result.error().describe());
  return result ? result.value() : GatewayResponse{};
}

TEST(GatewayResponse, OkIsOneKeyAndTwoKeysAreRefused) {
  EXPECT_EQ(decoded(R"({"ok":{}})"), GatewayResponse{answer::Ok{}});
  EXPECT_EQ(responseError(R"({"ok":{},"text":{"_0":"x"}})").message, "Invalid number of keys found, expected one.");
  EXPECT_EQ(responseError("{}").message, "Invalid number of keys found, expected one.");
  EXPECT_EQ(responseError(R"({"ok":[]})").message, "expected an object, got an array");
}

TEST(GatewayResponse, FailureAndUnimplementedCarryTheirLabels) {
  EXPECT_EQ(jsonOf(GatewayResponse{answer::Failure{"m"}}), json::parse(R"({"failure":{"message":"m"}})"));
  EXPECT_EQ(jsonOf(GatewayResponse{answer::Unimplemented{"tally"}}), json::parse(R"({"unimplemented":{"verb":"tally"}})"));
}

TEST(GatewayResponse, PresenceWithoutAppHasNoAppKeyAndNullReadsAsAbsent) {
  const DayPresence day{.day = "2024-05-01",
                        .apps = {{.app = "Xcode",
                                  .attended = 3600,
                                  .unattended = 60,
                                  .active = 3660,
                                  .isBrowser = false,
                                  .intervals = {{.start = 1714550400.5, .end = 1714554000, .kind = "attended"}}}},
                        .active = 3660};
  const GatewayResponse withoutApp{answer::Presence{day}};
  const json written = jsonOf(withoutApp);
  EXPECT_FALSE(written["presence"].contains("app"));
  EXPECT_EQ(written["presence"]["_0"]["apps"][0]["intervals"][0]["start"], json(1714550400.5));

  json withNull = written;
  withNull["presence"]["app"] = nullptr;
  EXPECT_EQ(responseFromJSON(withNull).value(), withoutApp);

  const GatewayResponse withApp{answer::Presence{day, "Xcode"}};
  EXPECT_EQ(jsonOf(withApp)["presence"]["app"], json("Xcode"));
  EXPECT_EQ(overTheWire(withApp).value(), withApp);
}

TEST(GatewayResponse, NoteIDWithoutEchoHoldsOnlyItsID) {
  EXPECT_EQ(encode(GatewayResponse{answer::NoteID{"n1"}}).value(), R"({"noteID":{"_0":"n1"}})");
  const GatewayResponse echoed{answer::NoteID{"n1", std::vector<std::string>{"saved", "scope /a"}}};
  EXPECT_EQ(jsonOf(echoed), json::parse(R"({"noteID":{"_0":"n1","echo":["saved","scope /a"]}})"));
  EXPECT_EQ(overTheWire(echoed).value(), echoed);
}

TEST(GatewayResponse, CaseKeysAreCaseSensitive) {
  const auto error = responseError(R"({"NoteID":{"_0":"n1"}})");
  EXPECT_EQ(error.message, "Unknown GatewayResponse case: NoteID");
  // A field key in another case is just an unknown key: ignored, so echo stays absent.
  EXPECT_EQ(decoded(R"({"noteID":{"_0":"n1","Echo":["x"]}})"), GatewayResponse{answer::NoteID{"n1"}});
}

TEST(GatewayResponse, IconsTravelAsBase64) {
  const GatewayResponse icons{answer::Icons{{{"example.com", {0x00, 0x01, 0x02, 0xFF}}, {"empty.org", {}}}}};
  EXPECT_EQ(jsonOf(icons), json::parse(R"({"icons":{"_0":{"example.com":"AAEC/w==","empty.org":""}}})"));
  EXPECT_EQ(overTheWire(icons).value(), icons);

  for (const char* bad : {"AAEC/w=", "AAEC/w", "AA=C", "AAEC/w==\\n", "AAEC/x=="}) {
    const auto error = responseError(std::string(R"({"icons":{"_0":{"example.com":")") + bad + "\"}}}");
    EXPECT_EQ(error.message, "not valid base64") << bad;
    EXPECT_EQ(error.path, R"(icons._0["example.com"])");
  }
}

TEST(GatewayResponse, EnumerationsDecodeOnlyTheirExactNames) {
  EXPECT_EQ(decoded(R"({"frontState":{"_0":"titleOnly"}})"), GatewayResponse{answer::FrontState{FrontRecording::titleOnly}});
  for (const char* spelling : {"title_only", "TitleOnly", "titleonly", "TITLE_ONLY", " titleOnly"}) {
    const auto error = responseError(std::string(R"({"frontState":{"_0":")") + spelling + "\"}}");
    EXPECT_EQ(error.message, "\"" + std::string(spelling) +
                                 "\" is not a FrontRecording (one of full, titleOnly, blocked, unknown, none)");
  }
  EXPECT_EQ(responseError(R"({"frontState":{"_0":1}})").message, "expected a string naming a FrontRecording, got integer 1");
  EXPECT_EQ(jsonOf(GatewayResponse{answer::LineDelete{LineDeleteOutcome::staleWitness}}),
            json::parse(R"({"lineDelete":{"_0":"staleWitness"}})"));
  const GatewayResponse rules{answer::Rules{{Rule{"r1", RuleKind::site, "news.example", RuleTier::usageOnly, RuleOrigin::user, true}}}};
  EXPECT_EQ(jsonOf(rules), json::parse(R"({"rules":{"_0":[{"id":"r1","kind":"site","value":"news.example",
                                          "tier":"usageOnly","origin":"user","enabled":true}]}})"));
}

TEST(GatewayResponse, CardNeedsOnlyKindIdAndWhy) {
  EXPECT_EQ(decoded(R"({"cards":{"_0":[{"kind":"memory","id":"m1","why":"asked","future":{"x":1}}]}})"),
            (GatewayResponse{answer::Cards{{Card{.kind = "memory", .id = "m1", .why = "asked"}}}}));
  const auto error = responseError(R"({"cards":{"_0":[{"kind":"memory","id":"m1","why":"a"},{"kind":"memory","id":"m2"}]}})");
  EXPECT_EQ(error.path, "cards._0[1].why");
  EXPECT_EQ(error.message, "missing required field \"why\"");
}

TEST(GatewayResponse, NestedRecordsAndCaseObjectsKeepTheirShape) {
  const GatewayResponse primed{answer::Primed{
      .cards = {PrimeCard{"9:14", "5 min ago", "Refactor", "gist", "evidence", "g1"}},
      .distilled = true,
      .shortcut = ShortcutInjection{shortcut::List{.rows = {{"deploy", "yesterday", 2}},
                                                   .card = ShortcutCard{"/repo", 3, 4, 5, std::nullopt, "b7"}}},
      .justEnded = std::nullopt}};
  const json written = jsonOf(primed);
  EXPECT_EQ(written["primed"]["shortcut"],
            json::parse(R"({"list":{"_0":[{"name":"deploy","when":"yesterday","duplicates":2}],
                                     "card":{"scope":"/repo","moments":3,"memories":4,"meetings":5,"build":"b7"}}})"));
  EXPECT_EQ(overTheWire(primed).value(), primed);

  json twoCases = written;
  twoCases["primed"]["shortcut"]["fired"] = json::parse(R"({"name":"n","body":"b"})");
  const auto error = responseFromJSON(twoCases).error();
  EXPECT_EQ(error.message, "Invalid number of keys found, expected one.");
  EXPECT_EQ(error.path, "primed.shortcut");
}

TEST(GatewayResponse, EmptyReportsAreValid) {
  EXPECT_EQ(decoded(R"({"stretches":{"_0":{"day":"today","focus":[],"runCount":0}}})"),
            GatewayResponse{answer::Stretches{DayStretchReport{.day = "today"}}});
  EXPECT_EQ(decoded(R"({"standingWalk":{}})"), GatewayResponse{answer::StandingWalk{}});
  EXPECT_EQ(decoded(R"({"thing":{"_0":null}})"), GatewayResponse{answer::Thing{}});
}

TEST(GatewayResponse, InstantsTakeAnyNumberAndCountsOnlyInt64Integers) {
  const auto presence = decoded(R"({"presence":{"_0":{"day":"d","active":0,"apps":[{"app":"a","attended":0,
      "unattended":0,"active":0,"isBrowser":false,"intervals":[{"start":1,"end":2.5,"kind":"k"}]}]}}})");
  EXPECT_EQ(std::get<answer::Presence>(presence.value).presence.apps[0].intervals[0].start, 1.0);
  EXPECT_EQ(responseError(R"({"reelStats":{"_0":{"meetings":1,"bytes":18446744073709551615}}})").message,
            "integer 18446744073709551615 is out of range");
}

TEST(GatewayEvent, DecodesOnlyItsOneCase) {
  EXPECT_EQ(decodeEvent(R"({"frontState":{"_0":"none"}})").value(), GatewayEvent{event::FrontState{FrontRecording::none}});
  EXPECT_EQ(decodeEvent(R"({"ok":{}})").error().message, "Unknown GatewayEvent case: ok");
}

}  // namespace
}  // namespace quillon::wire
