#include "QuillonGateway/SessionBook.hpp"

#include "QuillonBase/Text.hpp"
#include "QuillonGateway/Sqlite.hpp"
#include "QuillonGateway/StoreWording.hpp"

namespace quillon::gateway {

namespace {

constexpr std::size_t kMaxSessionID = 40;
constexpr std::size_t kMostShown = 5;
constexpr std::size_t kMostAsked = 5;

void bindOptional(Statement& statement, int index, const std::optional<std::string_view>& text) {
  if (text)
    statement.bind(index, *text);
  else
    statement.bindNull(index);
}

std::optional<std::string> optionalText(const Statement& row, int column) {
  if (row.isNull(column)) return std::nullopt;
  return row.text(column);
}

constexpr std::string_view kSessionColumns = "id, writer, first, last, cwd, transcript, prompts, title";

SessionRecord readSession(const Statement& row) {
  return SessionRecord{.id = row.text(0),
                       .writer = optionalText(row, 1),
                       .first = row.real(2),
                       .last = row.real(3),
                       .cwd = optionalText(row, 4),
                       .transcript = optionalText(row, 5),
                       .prompts = row.integer(6),
                       .title = optionalText(row, 7)};
}

// The prompt's first line that says something, or nothing when the prompt only works the front
// door or a shortcut ("?", "\todo"): those name no subject a person would know the chat by.
std::optional<std::string> titleOf(std::string_view prompt) {
  const std::string whole(base::trimmed(prompt));
  if (whole.empty() || whole == "?" || whole.front() == '\\') return std::nullopt;
  std::string_view line = whole;
  line = line.substr(0, line.find_first_of("\r\n"));
  std::string title = clipped(line, SessionBook::kTitleCharacters);
  if (title.empty()) return std::nullopt;
  return title;
}

std::int64_t single(Database& database, std::string_view sql, double since) {
  auto& statement = database.cached(sql);
  statement.bind(1, since);
  const std::int64_t value = statement.step() && !statement.isNull(0) ? statement.integer(0) : 0;
  statement.reset();
  return value;
}

std::vector<RecallTally::Count> counted(Database& database, std::string_view sql, double since, std::size_t limit) {
  auto& statement = database.cached(sql);
  statement.bind(1, since).bind(2, static_cast<std::int64_t>(limit));
  std::vector<RecallTally::Count> counts;
  while (statement.step()) counts.push_back({.name = statement.text(0), .count = statement.integer(1)});
  statement.reset();
  return counts;
}

}  // namespace

bool SessionBook::isSessionID(std::string_view id) {
  if (id.empty() || id.size() > kMaxSessionID || id == "main" || id == "unknown") return false;
  for (const char c : id) {
    const bool fits = (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z') || (c >= '0' && c <= '9') || c == '_' || c == '-';
    if (!fits) return false;
  }
  return true;
}

void SessionBook::sight(const SessionSighting& sighting, double now) {
  auto& statement = database_.cached(
      "INSERT INTO sessions(id, writer, first, last, cwd, transcript) VALUES (?1, ?2, ?3, ?3, ?4, ?5) "
      "ON CONFLICT(id) DO UPDATE SET writer = coalesce(?2, writer), last = max(last, ?3), cwd = coalesce(?4, cwd), "
      "transcript = coalesce(?5, transcript)");
  statement.bind(1, sighting.id).bind(3, now);
  bindOptional(statement, 2, sighting.writer);
  bindOptional(statement, 4, sighting.cwd);
  bindOptional(statement, 5, sighting.transcript);
  statement.step();
  statement.reset();
  // A session seen for the first time is rare enough to pay for the sweep of the forgotten ones.
  if (database_.changes() == 1) {
    auto& first = database_.cached("SELECT first = ?2 AND last = ?2 FROM sessions WHERE id = ?1");
    first.bind(1, sighting.id).bind(2, now);
    const bool isNew = first.step() && first.integer(0) == 1;
    first.reset();
    if (isNew) database_.cached("DELETE FROM sessions WHERE last < ?1").bind(1, now - kForgetSeconds).step();
  }
}

void SessionBook::countPrompt(std::string_view id, std::string_view prompt, double now) {
  auto& statement = database_.cached(
      "INSERT INTO sessions(id, first, last, prompts, title) VALUES (?1, ?3, ?3, 1, ?2) "
      "ON CONFLICT(id) DO UPDATE SET prompts = prompts + 1, title = coalesce(title, ?2), last = max(last, ?3)");
  statement.bind(1, id).bind(3, now);
  if (const auto title = titleOf(prompt))
    statement.bind(2, std::string_view(*title));
  else
    statement.bindNull(2);
  statement.step();
  statement.reset();
}

std::optional<SessionRecord> SessionBook::find(std::string_view id) {
  auto& statement = database_.cached("SELECT " + std::string(kSessionColumns) + " FROM sessions WHERE id = ?1");
  statement.bind(1, id);
  std::optional<SessionRecord> found;
  if (statement.step()) found = readSession(statement);
  statement.reset();
  return found;
}

std::vector<SessionRecord> SessionBook::activeSince(double since, std::size_t limit) {
  auto& statement = database_.cached("SELECT " + std::string(kSessionColumns) +
                                     " FROM sessions WHERE last >= ?1 ORDER BY last DESC, id LIMIT ?2");
  statement.bind(1, since).bind(2, static_cast<std::int64_t>(limit));
  std::vector<SessionRecord> sessions;
  while (statement.step()) sessions.push_back(readSession(statement));
  statement.reset();
  return sessions;
}

std::pair<std::vector<std::int64_t>, std::int64_t> SessionBook::memoriesWritten(std::string_view id,
                                                                                std::size_t limit) {
  auto& statement = database_.cached("SELECT id, COUNT(*) OVER () FROM memories WHERE session = ?1 ORDER BY id DESC LIMIT ?2");
  statement.bind(1, id).bind(2, static_cast<std::int64_t>(limit));
  std::vector<std::int64_t> ids;
  std::int64_t total = 0;
  while (statement.step()) {
    ids.push_back(statement.integer(0));
    total = statement.integer(1);
  }
  statement.reset();
  return {std::move(ids), total};
}

void SessionBook::notePrompt(std::string_view session, std::string_view scope, const std::vector<std::int64_t>& shown,
                             bool shortcut, double now) {
  database_.cached("INSERT INTO recall_prompts(at, session, scope, cards, shortcut) VALUES (?1, ?2, ?3, ?4, ?5)")
      .bind(1, now)
      .bind(2, session)
      .bind(3, scope)
      .bind(4, static_cast<std::int64_t>(shown.size()))
      .bind(5, std::int64_t{shortcut ? 1 : 0})
      .step();
  for (const auto memory : shown)
    database_.cached("INSERT INTO recall_shown(at, session, memory) VALUES (?1, ?2, ?3)")
        .bind(1, now)
        .bind(2, session)
        .bind(3, memory)
        .step();
}

void SessionBook::noteGrab(std::string_view session, bool bySubagent, std::int64_t memory, double now) {
  database_
      .cached("INSERT OR IGNORE INTO recall_opened(session, memory, subagent, at) SELECT ?1, ?2, ?3, ?4 "
              "WHERE EXISTS (SELECT 1 FROM recall_shown WHERE session = ?1 AND memory = ?2 AND at <= ?4)")
      .bind(1, session)
      .bind(2, memory)
      .bind(3, std::int64_t{bySubagent ? 1 : 0})
      .bind(4, now)
      .step();
}

RecallTally SessionBook::tally(std::optional<double> from) {
  const double since = from.value_or(-1e18);
  RecallTally tally;
  auto& totals = database_.cached(
      "SELECT COUNT(*), coalesce(SUM(cards > 0), 0), coalesce(SUM(cards), 0), coalesce(SUM(shortcut), 0), min(at) "
      "FROM recall_prompts WHERE at >= ?1");
  totals.bind(1, since);
  if (totals.step()) {
    tally.prompts = totals.integer(0);
    tally.primed = totals.integer(1);
    tally.cards = totals.integer(2);
    tally.shortcuts = totals.integer(3);
    if (!totals.isNull(4)) tally.firstPrompt = totals.real(4);
  }
  totals.reset();
  tally.memories = single(database_, "SELECT COUNT(DISTINCT memory) FROM recall_shown WHERE at >= ?1", since);
  tally.rode = single(database_, "SELECT COUNT(*) FROM (SELECT DISTINCT session, memory FROM recall_shown WHERE at >= ?1)",
                      since);
  // An opening counts where its card rode within the span.
  constexpr std::string_view opened =
      "SELECT COUNT(*) FROM recall_opened o WHERE subagent = ?2 AND EXISTS (SELECT 1 FROM recall_shown s "
      "WHERE s.session = o.session AND s.memory = o.memory AND s.at >= ?1)";
  for (const std::int64_t bySubagent : {0, 1}) {
    auto& statement = database_.cached(opened);
    statement.bind(1, since).bind(2, bySubagent);
    const std::int64_t count = statement.step() ? statement.integer(0) : 0;
    statement.reset();
    (bySubagent ? tally.openedBySubagents : tally.opened) = count;
  }
  tally.mostShown = counted(database_,
                            "SELECT 'm:' || memory, COUNT(*) AS shown FROM recall_shown WHERE at >= ?1 "
                            "GROUP BY memory ORDER BY shown DESC, memory DESC LIMIT ?2",
                            since, kMostShown);
  tally.scopes = counted(database_,
                         "SELECT scope, COUNT(*) AS asked FROM recall_prompts WHERE at >= ?1 "
                         "GROUP BY scope ORDER BY asked DESC, scope LIMIT ?2",
                         since, kMostAsked);
  auto& daily = database_.cached(
      "SELECT date(at, 'unixepoch', 'localtime') AS day, COUNT(*), SUM(cards > 0), SUM(cards) "
      "FROM recall_prompts WHERE at >= ?1 GROUP BY day ORDER BY day");
  daily.bind(1, since);
  while (daily.step())
    tally.days.push_back(RecallTally::Day{
        .day = daily.text(0), .prompts = daily.integer(1), .primed = daily.integer(2), .cards = daily.integer(3)});
  daily.reset();
  return tally;
}

}  // namespace quillon::gateway
