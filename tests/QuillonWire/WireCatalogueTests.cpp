// The catalogue as the daemon knows it: every case name, in order, and every case and record
// making the trip both ways.
#include <gtest/gtest.h>

#include <cmath>
#include <type_traits>

#include "QuillonWire/GatewayEvent.hpp"
#include "QuillonWire/GatewayRequest.hpp"
#include "QuillonWire/GatewayResponse.hpp"
#include "WireTestSupport.hpp"

namespace quillon::wire {
namespace {

using namespace testing;
using Names = std::vector<std::string>;

static_assert(std::variant_size_v<ReadRequest::Cases> == 58);
static_assert(std::variant_size_v<ControlRequest::Cases> == 24);
static_assert(std::variant_size_v<NotesRequest::Cases> == 11);
static_assert(std::variant_size_v<DiagnosticRequest::Cases> == 1);
static_assert(std::variant_size_v<GatewayResponse::Cases> == 38);

TEST(WireCatalogue, ReadRequestCasesAreTheDaemonsInItsOrder) {
  EXPECT_EQ(caseNames<ReadRequest>(),
            (Names{"recall", "primed", "standingRules", "search", "grep", "getByType", "listTypes", "grab", "getDay",
                   "dayCard", "dayPresence", "spanHours", "allTime", "dayLongestChapter", "dayStretches",
                   "dayTopSessions", "dayAttention", "dayWeb", "getMoment", "getChapter", "titleTrace", "meetingGet",
                   "meetingTranscript", "meetingSearch", "meetingList", "meetingStats", "meetingAt", "getEntity",
                   "sessionList", "tally", "storageStats", "recallStats", "health", "coverage", "browse",
                   "textBrowse", "textIndexAudit", "getScreen", "getThumbnail", "openScreens", "getRules",
                   "favicons", "recoveryState", "classifierStatus", "connectedApps", "frontState", "meetingLive",
                   "daemonBuild", "modsList", "modBoard", "diagnosticLoggingState", "frameKeepState", "frameStats",
                   "reelKeepState", "reelStats", "diskUsed", "grants", "configScan"}));
}

TEST(WireCatalogue, ControlNotesAndDiagnosticCasesAreTheDaemons) {
  EXPECT_EQ(caseNames<ControlRequest>(),
            (Names{"addRule", "removeRule", "toggleRule", "addConcept", "removeConcept", "forget", "deleteUtterance",
                   "deleteAll", "connectApp", "disconnectApp", "revealPhrase", "enterPhrase", "pause", "pauseFor",
                   "resume", "generatePhrase", "export", "shutdown", "setDiagnosticLogging", "setFrameKeep",
                   "setReelKeep", "logUpdate", "requestGrant", "storeKeyForMigration"}));
  EXPECT_EQ(caseNames<NotesRequest>(), (Names{"write", "delete", "edit", "patch", "editFilters", "listPaths", "mapPath",
                                              "setPath", "scopeBoard", "modInstall", "selfNames"}));
  EXPECT_EQ(caseNames<DiagnosticRequest>(), (Names{"log"}));
  EXPECT_EQ(caseNames<GatewayRequest>(), (Names{"read", "control", "notes", "diagnostic"}));
  EXPECT_EQ(caseNames<GatewayEvent>(), (Names{"frontState"}));
  EXPECT_EQ(caseNames<ShortcutInjection>(), (Names{"fired", "list", "unreadable"}));
}

TEST(WireCatalogue, GatewayResponseCasesAreTheDaemonsInItsOrder) {
  EXPECT_EQ(caseNames<GatewayResponse>(),
            (Names{"cards", "kindCards", "kindTypes", "primed", "standingWalk", "sessions", "rulesCard", "thing",
                   "presence", "spanHours", "allTime", "longestChapter", "stretches", "topSessions", "attention",
                   "web", "scopeBoard", "modBoard", "text", "image", "images", "rules", "icons", "flag", "frontState",
                   "phrase", "textBrowse", "textIndexAudit", "transcript", "lineDelete", "grants", "frameStats",
                   "reelStats", "diskUsed", "ok", "noteID", "unimplemented", "failure"}));
}

// Gives every field of a value a non-default content: optionals present, arrays and dictionaries
// with two entries, a family's case chosen by the seed. Walks records through the same field
// lists the coder uses, so a new field or case is covered without touching this test.
template <class T>
void fill(T& value, int seed);

template <class T>
struct IsVector : std::false_type {};
template <class T>
struct IsVector<std::vector<T>> : std::true_type {};
template <class T>
struct IsDict : std::false_type {};
template <class T>
struct IsDict<Dict<T>> : std::true_type {};
template <class T>
struct IsOptional : std::false_type {};
template <class T>
struct IsOptional<std::optional<T>> : std::true_type {};

template <class Cases, std::size_t... I>
void fillCase(Cases& cases, int seed, std::index_sequence<I...>) {
  const std::size_t chosen = static_cast<std::size_t>(seed) % sizeof...(I);
  (void)((I == chosen ? (fill(cases.template emplace<I>(), seed + 1), true) : false) || ...);
}

template <class T>
void fill(T& value, int seed) {
  if constexpr (std::is_same_v<T, String>) {
    value = "text " + std::to_string(seed) + " é✓";
  } else if constexpr (std::is_same_v<T, Bool>) {
    value = true;
  } else if constexpr (std::is_same_v<T, Int>) {
    value = 1'000'000'000'000LL + seed;
  } else if constexpr (std::is_same_v<T, Double>) {
    value = seed + 0.25;
  } else if constexpr (std::is_same_v<T, Bytes>) {
    value = {0, 0xFF, static_cast<std::uint8_t>(seed)};
  } else if constexpr (std::is_same_v<T, FilterValue>) {
    value = seed % 3 == 0 ? FilterValue::string("v") : seed % 3 == 1 ? FilterValue::number(seed) : FilterValue::boolean(false);
  } else if constexpr (std::is_enum_v<T>) {
    value = static_cast<T>(wireNames(value).size() - 1);
  } else if constexpr (IsOptional<T>::value) {
    fill(value.emplace(), seed);
  } else if constexpr (IsVector<T>::value) {
    value.resize(2);
    fill(value[0], seed + 1);
    fill(value[1], seed + 2);
  } else if constexpr (IsDict<T>::value) {
    fill(value["a"], seed + 1);
    fill(value["b.c"], seed + 2);
  } else if constexpr (requires { typename T::Cases; }) {
    fillCase(value.value, seed, std::make_index_sequence<std::variant_size_v<typename T::Cases>>{});
  } else {
    T::visitFields(value, [&](const char*, auto& field) { fill(field, seed++); });
  }
}

// Every case, once as built by default (the smallest payload) and once filled, is written under
// its own key and comes back equal.
template <class Family, class Wrap>
void expectEveryCaseRoundTrips(Wrap wrap) {
  using Cases = typename Family::Cases;
  [&]<std::size_t... I>(std::index_sequence<I...>) {
    const auto check = [&]<std::size_t N>(std::integral_constant<std::size_t, N>) {
      using Case = std::variant_alternative_t<N, Cases>;
      for (const bool filled : {false, true}) {
        Case chosen{};
        if (filled) fill(chosen, static_cast<int>(N));
        const auto message = wrap(Family{chosen});
        const json encoded = jsonOf(message);
        SCOPED_TRACE(encoded.dump());
        ASSERT_TRUE(encoded.dump().find("\"" + std::string(Case::wireName) + "\":{") != std::string::npos);
        const auto decoded = overTheWire(message);
        ASSERT_TRUE(decoded.ok()) << decoded.error().describe();
        EXPECT_EQ(decoded.value(), message);
      }
    };
    (check(std::integral_constant<std::size_t, I>{}), ...);
  }(std::make_index_sequence<std::variant_size_v<Cases>>{});
}

TEST(WireCatalogue, EveryRequestCaseRoundTrips) {
  const auto wrap = [](auto family) { return asRequest(std::move(family)); };
  expectEveryCaseRoundTrips<ReadRequest>(wrap);
  expectEveryCaseRoundTrips<ControlRequest>(wrap);
  expectEveryCaseRoundTrips<NotesRequest>(wrap);
  expectEveryCaseRoundTrips<DiagnosticRequest>(wrap);
}

TEST(WireCatalogue, EveryResponseCaseRoundTripsWithEveryRecordFilled) {
  expectEveryCaseRoundTrips<GatewayResponse>([](GatewayResponse response) { return response; });
}

TEST(WireCatalogue, EventRoundTrips) {
  const GatewayEvent event{event::FrontState{FrontRecording::titleOnly}};
  EXPECT_EQ(jsonOf(event), json::parse(R"({"frontState":{"_0":"titleOnly"}})"));
  const auto text = encode(event);
  ASSERT_TRUE(text.ok());
  const auto decoded = decodeEvent(text.value());
  ASSERT_TRUE(decoded.ok()) << decoded.error().describe();
  EXPECT_EQ(decoded.value(), event);
}

}  // namespace
}  // namespace quillon::wire
