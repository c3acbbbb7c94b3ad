#include <array>
#include <cmath>
#include <ctime>

#include "QuillonGateway/MemoryStore.hpp"
#include "QuillonGateway/SessionBook.hpp"
#include "QuillonGateway/Sqlite.hpp"
#include "QuillonGateway/StoreVerbs.hpp"
#include "QuillonGateway/StoreWording.hpp"
#include "QuillonGateway/Transcripts.hpp"

namespace quillon::gateway {

namespace {

constexpr double kDay = 24 * 60 * 60;
// session_list looks back a week for three chats, or a month for ten when asked for older ones.
constexpr double kRecentDays = 7, kOlderDays = 30;
constexpr std::size_t kRecentRows = 3, kOlderRows = 10;
// How many recent sessions of every scope are looked through to fill the rows of one.
constexpr std::size_t kLookedThrough = 2000;
// A session card names at most this many files and memories; the rest are counted.
constexpr std::size_t kCardFiles = 5, kCardTickets = 3;
constexpr std::size_t kTicketTitleCharacters = 60;
// Under this many prompts, recall's counts say little yet, and the report says so first.
constexpr std::int64_t kFewPrompts = 50;
// A span short enough to be told day by day.
constexpr std::int64_t kDailyDays = 14;
constexpr std::int64_t kMaxDays = 36500;

constexpr std::array<std::string_view, 7> kWeekdays = {"Sun", "Mon", "Tue", "Wed", "Thu", "Fri", "Sat"};
constexpr std::array<std::string_view, 12> kMonths = {"Jan", "Feb", "Mar", "Apr", "May", "Jun",
                                                      "Jul", "Aug", "Sep", "Oct", "Nov", "Dec"};

std::tm localTime(double seconds) {
  const auto time = static_cast<std::time_t>(std::floor(seconds));
  std::tm local{};
  ::localtime_r(&time, &local);
  return local;
}

// Days between the two instants on the local calendar.
long calendarDays(const std::tm& then, const std::tm& now) {
  std::tm a = then, b = now;
  a.tm_hour = b.tm_hour = 12;
  a.tm_min = b.tm_min = a.tm_sec = b.tm_sec = 0;
  a.tm_isdst = b.tm_isdst = -1;
  return std::lround(std::difftime(std::mktime(&b), std::mktime(&a)) / kDay);
}

std::string twoDigits(int value) { return (value < 10 ? "0" : "") + std::to_string(value); }

// When a session was active, as a person says it: "today 09:12", "yesterday 17:40", "Tue 14:05"
// within the week, then "12 Nov", and "12 Nov 2025" in another year.
std::string sessionWhen(double then, double now) {
  const std::tm at = localTime(then), today = localTime(now);
  const std::string clock = twoDigits(at.tm_hour) + ":" + twoDigits(at.tm_min);
  const long days = calendarDays(at, today);
  if (days <= 0) return "today " + clock;
  if (days == 1) return "yesterday " + clock;
  if (days < 7) return std::string(kWeekdays[static_cast<std::size_t>(at.tm_wday)]) + " " + clock;
  std::string date = std::to_string(at.tm_mday) + " " + std::string(kMonths[static_cast<std::size_t>(at.tm_mon)]);
  if (at.tm_year != today.tm_year) date += " " + std::to_string(at.tm_year + 1900);
  return date;
}

// How long a session ran, from its first request to its last: "20m", "1h 12m", "3h", "2d 4h";
// nothing under a minute.
std::optional<std::string> sessionLength(double seconds) {
  const auto minutes = static_cast<std::int64_t>(seconds / 60);
  if (minutes < 1) return std::nullopt;
  if (minutes < 60) return std::to_string(minutes) + "m";
  const std::int64_t hours = minutes / 60, rest = minutes % 60;
  if (hours < 24) return std::to_string(hours) + "h" + (rest > 0 ? " " + std::to_string(rest) + "m" : "");
  return std::to_string(hours / 24) + "d" + (hours % 24 > 0 ? " " + std::to_string(hours % 24) + "h" : "");
}

std::string titleOf(const SessionRecord& session) {
  if (session.title) return *session.title;
  return "(untitled " + (session.writer ? *session.writer + " " : std::string()) + "chat)";
}

bool atOrBelow(std::string_view scope, std::string_view caller) {
  return caller == "/" || scope == caller || (scope.starts_with(caller) && scope.size() > caller.size() &&
                                              scope[caller.size()] == '/');
}

// A session's scope: the one it declared, however long ago, else its folder's, else the root.
std::string scopeOf(VerbContext& context, const SessionRecord& session) {
  if (auto declared = context.store.sessionScope(sessionKey(session.id, ""), 0)) return *declared;
  return callerScope(context, session.cwd, std::nullopt, "");
}

std::string percent(std::int64_t part, std::int64_t whole) {
  if (whole == 0) return "";
  return " (" + std::to_string(std::llround(100.0 * static_cast<double>(part) / static_cast<double>(whole))) + "%)";
}

std::string countList(const std::vector<RecallTally::Count>& counts) {
  std::string list;
  for (const auto& [name, count] : counts)
    list += (list.empty() ? "" : " · ") + name + " (" + std::to_string(count) + ")";
  return list;
}

}  // namespace

void noteSession(VerbContext& context, const SessionSighting& sighting) {
  if (!SessionBook::isSessionID(sighting.id)) return;
  SessionBook(context.store.database()).sight(sighting, context.now);
}

std::optional<wire::Card> sessionCard(VerbContext& context, std::string_view id) {
  if (!SessionBook::isSessionID(id)) return std::nullopt;
  SessionBook book(context.store.database());
  const auto session = book.find(id);
  if (!session) return std::nullopt;
  std::string why = (session->writer ? *session->writer + " chat" : std::string("chat")) + " in " +
                    scopeOf(context, *session);
  if (const auto length = sessionLength(session->last - session->first)) why += " · " + *length;
  if (session->prompts > 0) why += " · " + plural(session->prompts, "turn", "turns");
  wire::SessionBody body{.started = sessionWhen(session->first, context.now),
                         .lastActive = sessionWhen(session->last, context.now),
                         .files = {},
                         .filesMore = 0,
                         .tickets = {},
                         .ticketsMore = 0,
                         .tail = {},
                         .continuesFrom = {},
                         .startedBy = {},
                         .mainChat = {}};
  const auto [written, total] = book.memoriesWritten(id, kCardTickets);
  for (const auto memoryId : written)
    if (const auto memory = context.store.find(memoryId))
      body.tickets.push_back(memoryID(memoryId) + " · " + clipped(displayTitle(*memory), kTicketTitleCharacters));
  body.ticketsMore = total - static_cast<std::int64_t>(written.size());
  // The transcript is the agent's: read where it said, if it is still there and ours to read.
  if (session->transcript)
    if (auto gist = readTranscript(*session->transcript)) {
      body.filesMore = static_cast<std::int64_t>(gist->files.size() > kCardFiles ? gist->files.size() - kCardFiles : 0);
      if (gist->files.size() > kCardFiles) gist->files.resize(kCardFiles);
      body.files = std::move(gist->files);
      body.tail = std::move(gist->tail);
    }
  wire::Card card;
  card.kind = "session";
  card.id = session->id;
  card.snippet = titleOf(*session);
  card.why = std::move(why);
  card.when = sessionWhen(session->last, context.now);
  card.locator = session->transcript;
  card.session = std::move(body);
  return card;
}

GatewayResponse answer(VerbContext& context, const wire::read::SessionList& request) {
  if (!request.session || !SessionBook::isSessionID(*request.session))
    return GatewayResponse{wire::answer::Sessions{}};
  SessionBook book(context.store.database());
  const auto caller = book.find(*request.session);
  wire::SessionOffer offer{.scope = caller ? scopeOf(context, *caller) : "/", .rows = {}};
  const std::size_t rows = request.older ? kOlderRows : kRecentRows;
  const double since = context.now - (request.older ? kOlderDays : kRecentDays) * kDay;
  for (const auto& session : book.activeSince(since, kLookedThrough)) {
    // A session with neither a prompt nor a transcript left nothing to carry on.
    if (session.id == *request.session || (session.prompts == 0 && !session.transcript)) continue;
    if (!atOrBelow(scopeOf(context, session), offer.scope)) continue;
    offer.rows.push_back(wire::SessionOfferRow{.id = session.id,
                                               .title = titleOf(session),
                                               .when = sessionWhen(session.last, context.now),
                                               .length = sessionLength(session.last - session.first),
                                               .turns = session.prompts > 0 ? std::optional(session.prompts)
                                                                            : std::nullopt});
    if (offer.rows.size() == rows) break;
  }
  return GatewayResponse{wire::answer::Sessions{std::move(offer)}};
}

GatewayResponse answer(VerbContext& context, const wire::read::RecallStats& request) {
  if (request.days && (*request.days < 1 || *request.days > kMaxDays))
    return failure("days must be a whole number from 1 to " + std::to_string(kMaxDays) +
                   " — leave it out for every prompt since the first.");
  std::optional<double> since;
  if (request.days) since = context.now - static_cast<double>(*request.days) * kDay;
  const RecallTally tally = SessionBook(context.store.database()).tally(since);
  std::string span;
  if (request.days) span = *request.days == 1 ? "the last day" : "the last " + std::to_string(*request.days) + " days";
  if (tally.prompts == 0)
    return text("No prompts reached recall" + (request.days ? " in " + span : std::string(" yet")) +
                ". Recall counts the prompts an agent's prompt hook sends (quillon-hook install sets it up).");
  std::string report;
  if (tally.prompts < kFewPrompts)
    report += "Only " + plural(tally.prompts, "prompt", "prompts") + (request.days ? " in " + span : " so far") +
              ", under the fifty it takes to judge recall: read these counts as early signs.\n\n";
  report += request.days ? "Recall over " + span + " (since " + day(*since) + "), counts only:"
                         : "Recall since the first prompt (" + day(*tally.firstPrompt) + "), counts only:";
  report += "\n- prompts: " + std::to_string(tally.prompts) + " · with cards: " + std::to_string(tally.primed) +
            percent(tally.primed, tally.prompts) + " · cards shown: " + std::to_string(tally.cards) +
            " · distinct memories: " + std::to_string(tally.memories);
  report += "\n- opened (grabbed in the session the card rode in): " + std::to_string(tally.opened) + " of " +
            std::to_string(tally.rode) + percent(tally.opened, tally.rode) +
            " by the main conversation · " + std::to_string(tally.openedBySubagents) + " by subagents";
  report += "\n- shortcuts fired: " + std::to_string(tally.shortcuts);
  if (!tally.mostShown.empty()) report += "\n- shown most: " + countList(tally.mostShown);
  report += "\n- asked from: " + countList(tally.scopes);
  if (request.days && *request.days <= kDailyDays)
    for (const auto& each : tally.days)
      report += "\n- " + each.day + ": " + plural(each.prompts, "prompt", "prompts") + ", " +
                std::to_string(each.primed) + " with cards, " + plural(each.cards, "card", "cards");
  return text(std::move(report));
}

}  // namespace quillon::gateway
