// The records inside the gateway's answers, field by field in declaration order.
//
// The daemon fills them and the bridge's renderers show them. Every field is a JSON key of the
// same name; `Opt` fields may be missing (or null) and are left out when absent; keys the record
// does not know are ignored, so a newer daemon can add fields without breaking older clients.
// The records that the protocol nests inside another (`RulesWalk.Level`, `DayPresence.App`, …) are
// defined before their parent under a longer name and aliased inside it, so `RulesWalk::Level`
// names them; nesting the definitions would make clang reject `Opt` of them (a nested class with
// member initialisers is not default-constructible until its parent is complete).
//
// Units are in the names: whole seconds in `seconds` and the `…Seconds` fields, milliseconds in
// `cpuMs` and `cpuWallMs`, bytes in `bytes`, `storageBytes` and `bytesRemaining`. The instants
// (`start`, `end`, `startedAt`, `endedAt`, `at`) are Doubles.
#pragma once

#include "QuillonWire/FilterValue.hpp"
#include "QuillonWire/WireCatalogue.hpp"

namespace quillon::wire {

// Payload-less enumerations, written as the bare case name; any other spelling fails to decode.
QUILLON_ENUM(RuleKind, app, site, word, phrase, topic);
QUILLON_ENUM(RuleOrigin, shipped, user);
QUILLON_ENUM(RuleTier, usageOnly, never);
QUILLON_ENUM(FrontRecording, full, titleOnly, blocked, unknown, none);
QUILLON_ENUM(LineDeleteOutcome, deleted, staleWitness, notFound);

// Cards, things and recall.
QUILLON_RECORD(SessionLink, (String, id), (Opt<String>, name));
QUILLON_RECORD(MomentBody, (String, text), (Int, hidden), (String, source), (Bool, cleaned),
               (Opt<String>, sessionArtifact), (Opt<SessionLink>, startedBy), (Opt<SessionLink>, mainChat));
QUILLON_RECORD(SessionBody, (Opt<String>, started), (Opt<String>, lastActive), (Vec<String>, files), (Int, filesMore),
               (Vec<String>, tickets), (Int, ticketsMore), (Vec<String>, tail), (Opt<String>, continuesFrom),
               (Opt<SessionLink>, startedBy), (Opt<SessionLink>, mainChat));
QUILLON_RECORD(Card, (String, kind), (String, id), (Opt<String>, state), (Opt<String>, snippet), (String, why),
               (Opt<Int>, src), (Opt<String>, when), (Opt<String>, chapter), (Opt<String>, excerpt),
               (Opt<String>, locator), (Opt<String>, filed), (Opt<String>, memoryKind),
               (Opt<Vec<FilterPair>>, filters), (Opt<String>, title), (Opt<SessionBody>, session),
               (Opt<MomentBody>, body), (Opt<String>, subagent));
QUILLON_RECORD(FilterKeyCount, (String, key), (Int, count));
QUILLON_RECORD(KindCount, (String, kind), (Int, count), (Opt<Vec<FilterKeyCount>>, filters));
QUILLON_RECORD(PrimeCard, (String, when), (String, whenRelative), (String, chapter), (String, gist),
               (String, evidence), (String, grabId));
QUILLON_RECORD(ShortcutRow, (String, name), (String, when), (Int, duplicates));
QUILLON_RECORD(ShortcutCard, (String, scope), (Int, moments), (Int, memories), (Int, meetings),
               (Opt<String>, version), (Opt<String>, build));
QUILLON_RECORD(ShortcutDetail, (String, name), (Opt<String>, when), (String, body), (Int, duplicates));

// What a shortcut typed into the prompt did: fired one, listed them, or could not read them.
#define QUILLON_SHORTCUT_CASES(CASE)                                                                  \
  CASE(Fired, "fired", (String, name), (String, body), (Opt<String>, argument))                      \
  CASE(List, "list", (Vec<ShortcutRow>, rows, _0), (Opt<ShortcutCard>, card), (Opt<ShortcutDetail>, detail)) \
  CASE(Unreadable, "unreadable", (String, reason))
QUILLON_FAMILY(ShortcutInjection, shortcut, QUILLON_SHORTCUT_CASES);

QUILLON_RECORD(MeetingJustEnded, (String, key), (Opt<String>, title), (Vec<String>, speakers), (String, started),
               (String, ended), (Opt<Bool>, askSelfName));

// Rules and scopes.
QUILLON_RECORD(RulesWalkLevel, (String, path), (Vec<String>, rules));
struct RulesWalk {
  using Level = RulesWalkLevel;
  QUILLON_FIELDS(RulesWalk, (String, path), (Vec<Level>, levels), (Int, overflow), (Opt<Bool>, announce),
                 (Opt<String>, note), (Opt<String>, onboarding));
};
QUILLON_RECORD(Rule, (String, id), (RuleKind, kind), (String, value), (RuleTier, tier), (RuleOrigin, origin),
               (Bool, enabled));
QUILLON_RECORD(ScopeBoardEntry, (String, path), (Vec<String>, folders), (Vec<KindCount>, kinds));

// Sessions.
QUILLON_RECORD(SessionOfferRow, (String, id), (String, title), (String, when), (Opt<String>, length), (Opt<Int>, turns));
QUILLON_RECORD(SessionOffer, (String, scope), (Vec<SessionOfferRow>, rows));

// Day and time reports.
QUILLON_RECORD(DayPresenceInterval, (Double, start), (Double, end), (String, kind));
QUILLON_RECORD(DayPresenceApp, (String, app), (Int, attended), (Int, unattended), (Int, active), (Bool, isBrowser),
               (Vec<DayPresenceInterval>, intervals));
struct DayPresence {
  using Interval = DayPresenceInterval;
  using App = DayPresenceApp;
  QUILLON_FIELDS(DayPresence, (String, day), (Vec<App>, apps), (Int, active));
};
QUILLON_RECORD(SpanHoursApp, (String, app), (Int, attended), (Int, unattended), (Int, active));
QUILLON_RECORD(SpanHoursDay, (String, day), (Int, attended), (Int, unattended));
struct SpanHoursReport {
  using App = SpanHoursApp;
  using Day = SpanHoursDay;
  QUILLON_FIELDS(SpanHoursReport, (String, from), (String, to), (Int, attended), (Int, unattended), (Int, active),
                 (Vec<App>, apps), (Vec<Day>, days));
};
QUILLON_RECORD(AllTimeTotals, (Int, moments), (Int, meetings), (Int, days), (Int, yourWorkSeconds),
               (Int, aiWorkSeconds), (Int, storageBytes), (Opt<Int>, cpuMs), (Opt<Int>, cpuWallMs));
QUILLON_RECORD(LongestChapterReport, (String, title), (Int, spanSeconds));
QUILLON_RECORD(StretchAppSlice, (String, app), (Int, seconds));
QUILLON_RECORD(StretchFocusRun, (Double, start), (Double, end), (Int, seconds), (Vec<StretchAppSlice>, apps));
QUILLON_RECORD(StretchSitting, (Int, seconds), (Double, startedAt), (Double, endedAt), (Vec<StretchAppSlice>, apps));
struct DayStretchReport {
  using AppSlice = StretchAppSlice;
  using FocusRun = StretchFocusRun;
  using Sitting = StretchSitting;
  QUILLON_FIELDS(DayStretchReport, (String, day), (Vec<FocusRun>, focus), (Int, runCount), (Opt<Sitting>, sitting));
};
QUILLON_RECORD(TopSession, (String, title), (Int, seconds), (String, chapterId));
struct TopSessionsReport {
  using Session = TopSession;
  QUILLON_FIELDS(TopSessionsReport, (String, day), (Vec<Session>, sessions));
};
QUILLON_RECORD(AttentionReport, (String, day), (Int, aiSeconds), (Int, humansSeconds), (Int, scrollingSeconds),
               (Int, scrollingGlances));
QUILLON_RECORD(WebSite, (String, domain), (Int, seconds));
struct WebReport {
  using Site = WebSite;
  QUILLON_FIELDS(WebReport, (String, day), (Int, browserSeconds), (Vec<Site>, sites));
};

// Mods.
QUILLON_RECORD(ModBehaviorEntry, (String, name), (String, trigger), (Bool, wake), (Opt<Vec<String>>, tools),
               (Opt<Int>, maxMutations), (Opt<String>, laneState));
QUILLON_RECORD(ModBoardEntry, (String, slug), (String, scope), (Int, rev), (String, hint), (Vec<String>, files),
               (Vec<ModBehaviorEntry>, behaviors));
QUILLON_RECORD(ModRunEntry, (String, mod), (String, behavior), (String, scope), (String, trigger),
               (Double, startedAt), (Double, endedAt), (Opt<Int>, exit), (Opt<Int>, turns), (String, outcome),
               (Opt<String>, outputPath), (Opt<String>, report), (Opt<Int>, mutations));
QUILLON_RECORD(ModRejectionEntry, (String, slug), (String, scope), (Opt<String>, behavior), (String, reason));
QUILLON_RECORD(ModBoardAnswer, (Vec<ModBoardEntry>, mods), (Vec<ModRejectionEntry>, rejected),
               (Vec<ModRunEntry>, runs));

// Text index.
QUILLON_RECORD(NameCount, (String, name), (Int, count));
QUILLON_RECORD(FilterValueCount, (FilterValue, value), (Int, count));
QUILLON_RECORD(FilterKeyCensus, (String, key), (Int, count), (Vec<FilterValueCount>, values));
QUILLON_RECORD(TextBrowseRow, (String, id), (String, type), (String, scope), (String, title), (Double, at),
               (Vec<FilterPair>, filters), (Double, score), (Opt<String>, app), (Opt<String>, abstract),
               (Opt<String>, passage), (Opt<Vec<String>>, files), (Opt<Int>, fileCount), (Bool, framed),
               (Opt<String>, sessionTool));
QUILLON_RECORD(TextBrowseAnswer, (Bool, ready), (Int, total), (Vec<TextBrowseRow>, rows), (Vec<NameCount>, byType),
               (Vec<NameCount>, byScope), (Vec<KindCount>, byKind), (Vec<FilterKeyCensus>, byFilter),
               (Opt<String>, order), (Bool, narrowed));
QUILLON_RECORD(TextIndexAuditAnswer, (Bool, ready), (Int, rows), (Int, memories), (Int, moments), (Int, meetings),
               (Int, pending), (Int, added), (Int, removed), (Int, megabytes));

// Meetings.
QUILLON_RECORD(TranscriptLineRow, (Int64, rowid), (String, speaker), (Double, at), (String, text), (String, witness));
QUILLON_RECORD(MeetingTranscriptAnswer, (String, meeting), (Opt<String>, title), (Opt<String>, titleSource),
               (Vec<String>, who), (Vec<TranscriptLineRow>, lines));

// Screens. `heic` holds the stored frame's bytes.
QUILLON_RECORD(ScreenImage, (Int, moment), (String, window), (Opt<Bytes>, heic), (Opt<String>, note));

// Storage and grants.
QUILLON_RECORD(GrantRow, (String, kind), (String, state), (String, displayName));
QUILLON_RECORD(GrantsAnswer, (Vec<GrantRow>, grants));
QUILLON_RECORD(PurgeProgress, (Int, daysRemaining), (Opt<Int>, bytesRemaining), (Vec<String>, skipped));
QUILLON_RECORD(FrameStats, (Int, screenshots), (Opt<Int>, bytes), (Opt<PurgeProgress>, purge));
QUILLON_RECORD(ReelStats, (Int, meetings), (Int, bytes));
QUILLON_RECORD(DiskUsed, (Int, text), (Int, transcripts), (Int, reel), (Opt<Int>, frames));

}  // namespace quillon::wire
