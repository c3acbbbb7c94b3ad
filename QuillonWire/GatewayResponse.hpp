// GatewayResponse: the daemon's one answer to a GatewayRequest.
//
// Renderers switch over `value` with std::visit; a case they do not expect for a verb falls back
// to the shared answer (a failure shows its message, unimplemented names the verb). Every client
// failure (encoding, transport, a reply that does not decode) is also a `failure` answer, so
// callers never see an exception. The records inside the cases are in AnswerRecords.hpp.
#pragma once

#include "QuillonWire/AnswerRecords.hpp"
#include "QuillonWire/WireCatalogue.hpp"

namespace quillon::wire {

// The three stats cases carry the record of the same name, hence the wire:: before their types.
// clang-format off
#define QUILLON_ANSWER_CASES(CASE)                                                                               \
  CASE(Cards, "cards", (Vec<Card>, cards, _0))                                                                   \
  CASE(KindCards, "kindCards", (String, scope), (Vec<Card>, cards))                                              \
  CASE(KindTypes, "kindTypes", (String, scope), (Vec<KindCount>, types))                                         \
  CASE(Primed, "primed", (Vec<PrimeCard>, cards, _0), (Bool, distilled), (Opt<ShortcutInjection>, shortcut),     \
       (Opt<MeetingJustEnded>, justEnded))                                                                       \
  CASE(StandingWalk, "standingWalk", (Opt<RulesWalk>, walk, _0))                                                 \
  CASE(Sessions, "sessions", (Opt<SessionOffer>, offer, _0))                                                     \
  CASE(RulesCard, "rulesCard", (String, scope), (Opt<Bool>, announce), (String, card), (Opt<String>, note),      \
       (Opt<String>, onboarding), (Opt<String>, pointer))                                                        \
  CASE(Thing, "thing", (Opt<Card>, card, _0))                                                                    \
  CASE(Presence, "presence", (DayPresence, presence, _0), (Opt<String>, app))                                    \
  CASE(SpanHours, "spanHours", (SpanHoursReport, report, _0))                                                    \
  CASE(AllTime, "allTime", (AllTimeTotals, totals, _0))                                                          \
  CASE(LongestChapter, "longestChapter", (Opt<LongestChapterReport>, report, _0))                                \
  CASE(Stretches, "stretches", (DayStretchReport, report, _0))                                                   \
  CASE(TopSessions, "topSessions", (TopSessionsReport, report, _0))                                              \
  CASE(Attention, "attention", (AttentionReport, report, _0))                                                    \
  CASE(Web, "web", (WebReport, report, _0))                                                                      \
  CASE(ScopeBoard, "scopeBoard", (Vec<ScopeBoardEntry>, entries, _0))                                            \
  CASE(ModBoard, "modBoard", (ModBoardAnswer, board, _0))                                                        \
  CASE(Text, "text", (String, text, _0))                                                                         \
  CASE(Image, "image", (String, base64), (String, mimeType))                                                     \
  CASE(Images, "images", (Vec<ScreenImage>, images, _0))                                                         \
  CASE(Rules, "rules", (Vec<Rule>, rules, _0))                                                                   \
  CASE(Icons, "icons", (Dict<Bytes>, icons, _0))                                                                 \
  CASE(Flag, "flag", (Bool, value, _0))                                                                          \
  CASE(FrontState, "frontState", (FrontRecording, recording, _0))                                                \
  CASE(Phrase, "phrase", (Vec<String>, words, _0))                                                               \
  CASE(TextBrowse, "textBrowse", (TextBrowseAnswer, answer, _0))                                                 \
  CASE(TextIndexAudit, "textIndexAudit", (TextIndexAuditAnswer, answer, _0))                                     \
  CASE(Transcript, "transcript", (MeetingTranscriptAnswer, answer, _0))                                          \
  CASE(LineDelete, "lineDelete", (LineDeleteOutcome, outcome, _0))                                               \
  CASE(Grants, "grants", (GrantsAnswer, answer, _0))                                                             \
  CASE(FrameStats, "frameStats", (wire::FrameStats, stats, _0))                                                  \
  CASE(ReelStats, "reelStats", (wire::ReelStats, stats, _0))                                                     \
  CASE(DiskUsed, "diskUsed", (wire::DiskUsed, used, _0))                                                         \
  CASE(Ok, "ok")                                                                                                 \
  CASE(NoteID, "noteID", (String, id, _0), (Opt<Vec<String>>, echo))                                             \
  CASE(Unimplemented, "unimplemented", (String, verb))                                                           \
  CASE(Failure, "failure", (String, message))
// clang-format on
QUILLON_FAMILY(GatewayResponse, answer, QUILLON_ANSWER_CASES);

}  // namespace quillon::wire
