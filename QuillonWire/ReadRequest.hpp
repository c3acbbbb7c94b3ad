// ReadRequest: the read verbs a client may send inside GatewayRequest's `read` case.
//
// The bridge's tools send about half of them; the menu, settings and companion windows send the
// rest, and all share this one list so that one daemon answers every client. A daemon that does
// not serve a verb answers `unimplemented`; one that fails answers `failure`.
//
// The list order is the order in which a decoder tries the case key. The ReadRequest decoder words
// its own errors, since the daemon reads requests from older and newer bridges:
// "ReadRequest expects exactly one case key, got N" and "Unknown ReadRequest case: KEY".
//
// `day` is a day as the tool passes it ("today" by default), resolved by the daemon; `from`/`to`
// and `span` are bounds and named spans passed through as text; `limit` and `offset` are counts,
// an absent `limit` leaving the default to the daemon; `writer`, `session`, `subagent`, `cwd` and
// `transcript` identify the calling agent.
#pragma once

#include "QuillonWire/FilterValue.hpp"
#include "QuillonWire/WireCatalogue.hpp"

namespace quillon::wire {

// One screen capture to open: a moment, and a window title (absent = the whole capture).
QUILLON_RECORD(ScreenRef, (Int, moment), (Opt<String>, window));

// clang-format off
#define QUILLON_READ_CASES(CASE)                                                                                     \
  CASE(Recall, "recall", (String, query), (Opt<String>, from), (Opt<String>, to))                                     \
  CASE(Primed, "primed", (String, prompt), (Opt<String>, cwd), (Opt<String>, writer), (Opt<String>, session),        \
       (Opt<String>, transcript), (Bool, countsPrompt))                                                               \
  CASE(StandingRules, "standingRules", (Opt<String>, cwd), (Opt<String>, writer), (Opt<String>, session),            \
       (Opt<String>, transcript), (Bool, card), (Opt<String>, scope))                                                 \
  CASE(Search, "search", (String, query), (Opt<Int>, limit))                                                          \
  CASE(Grep, "grep", (String, query), (Opt<String>, from), (Opt<String>, to))                                         \
  CASE(GetByType, "getByType", (String, type), (Opt<String>, path), (Opt<Filters>, filters), (Opt<String>, session)) \
  CASE(ListTypes, "listTypes", (Opt<String>, scope))                                                                  \
  CASE(Grab, "grab", (String, id), (Opt<String>, session), (Bool, full), (Opt<String>, subagent))                    \
  CASE(GetDay, "getDay", (String, day))                                                                               \
  CASE(DayCard, "dayCard", (String, day))                                                                             \
  CASE(DayPresence, "dayPresence", (String, day), (Opt<String>, app))                                                 \
  CASE(SpanHours, "spanHours", (String, from), (String, to))                                                          \
  CASE(AllTime, "allTime", (Bool, force))                                                                             \
  CASE(DayLongestChapter, "dayLongestChapter", (String, day))                                                         \
  CASE(DayStretches, "dayStretches", (String, day))                                                                   \
  CASE(DayTopSessions, "dayTopSessions", (String, day))                                                               \
  CASE(DayAttention, "dayAttention", (String, day))                                                                   \
  CASE(DayWeb, "dayWeb", (String, day))                                                                               \
  CASE(GetMoment, "getMoment", (String, id))                                                                          \
  CASE(GetChapter, "getChapter", (String, id))                                                                        \
  CASE(TitleTrace, "titleTrace", (String, id))                                                                        \
  CASE(MeetingGet, "meetingGet", (String, id), (Bool, times), (Opt<String>, session), (Opt<String>, subagent))       \
  CASE(MeetingTranscript, "meetingTranscript", (String, id))                                                          \
  CASE(MeetingSearch, "meetingSearch", (String, query), (Opt<String>, speaker), (Opt<String>, from),                 \
       (Opt<String>, to), (Opt<Int>, limit))                                                                          \
  CASE(MeetingList, "meetingList", (Opt<String>, day), (Opt<String>, person), (Opt<String>, app))                    \
  CASE(MeetingStats, "meetingStats", (String, id))                                                                    \
  CASE(MeetingAt, "meetingAt", (String, id), (String, at))                                                            \
  CASE(GetEntity, "getEntity", (String, name))                                                                        \
  CASE(SessionList, "sessionList", (Opt<String>, session), (Bool, older))                                             \
  CASE(Tally, "tally", (Opt<String>, entity), (Opt<String>, mode), (String, span))                                    \
  CASE(StorageStats, "storageStats", (Opt<Int>, days))                                                                \
  CASE(RecallStats, "recallStats", (Opt<Int>, days))                                                                  \
  CASE(Health, "health")                                                                                              \
  CASE(Coverage, "coverage", (Opt<String>, span))                                                                     \
  CASE(Browse, "browse", (Opt<String>, query), (Int, limit), (Int, offset))                                           \
  CASE(TextBrowse, "textBrowse", (Opt<String>, term), (Opt<String>, type), (Vec<String>, scopes), (Opt<Int>, limit), \
       (Opt<String>, kind), (Opt<String>, order), (Vec<FilterPair>, filters), (Int, offset))                          \
  CASE(TextIndexAudit, "textIndexAudit", (Bool, reindex))                                                             \
  CASE(GetScreen, "getScreen", (Int, momentID), (String, window))                                                     \
  CASE(GetThumbnail, "getThumbnail", (Int, momentID))                                                                 \
  CASE(OpenScreens, "openScreens", (Vec<ScreenRef>, screens, _0))                                                    \
  CASE(GetRules, "getRules")                                                                                          \
  CASE(Favicons, "favicons", (Vec<String>, hosts))                                                                    \
  CASE(RecoveryState, "recoveryState")                                                                                \
  CASE(ClassifierStatus, "classifierStatus")                                                                          \
  CASE(ConnectedApps, "connectedApps")                                                                                \
  CASE(FrontState, "frontState")                                                                                      \
  CASE(MeetingLive, "meetingLive")                                                                                    \
  CASE(DaemonBuild, "daemonBuild")                                                                                    \
  CASE(ModsList, "modsList")                                                                                          \
  CASE(ModBoard, "modBoard", (Opt<Int>, limit))                                                                       \
  CASE(DiagnosticLoggingState, "diagnosticLoggingState")                                                              \
  CASE(FrameKeepState, "frameKeepState")                                                                              \
  CASE(FrameStats, "frameStats")                                                                                      \
  CASE(ReelKeepState, "reelKeepState")                                                                                \
  CASE(ReelStats, "reelStats")                                                                                        \
  CASE(DiskUsed, "diskUsed")                                                                                          \
  CASE(Grants, "grants")                                                                                              \
  CASE(ConfigScan, "configScan")
// clang-format on
QUILLON_FAMILY(ReadRequest, read, QUILLON_READ_CASES);

}  // namespace quillon::wire
