#include "QuillonGateway/RecallIndex.hpp"

#include <algorithm>
#include <cctype>

#include "QuillonGateway/RecallWords.hpp"
#include "QuillonGateway/Sqlite.hpp"

namespace quillon::gateway {

namespace {

// The most matches a search ranks: past it, the newest this many of them.
constexpr std::size_t kRankedWindow = 2000;
// Ranked beyond the limit, so freshness can reorder near ties at its edge.
constexpr std::size_t kRankedSpare = 3;
// A memory saved today outranks a month-old one by up to this share of its score: enough to
// order near ties, too little to lift a weak match over a strong one.
constexpr double kFreshness = 0.15;
// Snippet lengths, in the index's tokens: words, or trigrams (about one character each).
constexpr int kSnippetWords = 28;
constexpr int kSnippetCharacters = 160;

std::string joined(const std::vector<std::string>& phrases, std::string_view separator) {
  std::string expression;
  for (const auto& phrase : phrases) expression += (expression.empty() ? "" : std::string(separator)) + phrase;
  return expression;
}

std::string boundsClause(const TimeBounds& bounds) {
  std::string clause;
  if (bounds.from) clause += " AND m.created >= ?3";
  if (bounds.to) clause += " AND m.created <= ?4";
  return clause;
}

void bindBounds(Statement& statement, const TimeBounds& bounds) {
  if (bounds.from) statement.bind(3, *bounds.from);
  if (bounds.to) statement.bind(4, *bounds.to);
}

// The text around the first place `literal` appears in it, ignoring the case of ASCII letters;
// the text's start when it does not appear there.
std::string windowAround(std::string_view text, std::string_view literal) {
  const auto fold = [](char c) { return static_cast<char>(std::tolower(static_cast<unsigned char>(c))); };
  std::size_t at = 0;
  for (; at + literal.size() <= text.size(); ++at) {
    std::size_t i = 0;
    while (i < literal.size() && fold(text[at + i]) == fold(literal[i])) ++i;
    if (i == literal.size()) break;
  }
  if (at + literal.size() > text.size()) at = 0;
  const auto boundary = [&](std::size_t i) {
    while (i > 0 && i < text.size() && (static_cast<unsigned char>(text[i]) & 0xC0) == 0x80) --i;
    return i;
  };
  const std::size_t from = at < 60 ? 0 : boundary(at - 60);
  const std::size_t to = std::min(text.size(), boundary(std::min(text.size(), at + 100)));
  return (from > 0 ? "…" : "") + std::string(text.substr(from, to - from)) + (to < text.size() ? "…" : "");
}

}  // namespace

std::int64_t RecallIndex::memoryCount() {
  auto& statement = database_.cached("SELECT COUNT(*) FROM memories");
  statement.step();
  const auto count = statement.integer(0);
  statement.reset();
  return count;
}

std::vector<RecallIndex::Found> RecallIndex::ranked(const std::vector<std::string>& phrases, const TimeBounds& bounds,
                                                    double now, std::size_t limit) {
  if (phrases.empty()) return {};
  // A word held by thousands of memories adds little to a ranking and costs a score for each of
  // them: when the query has rarer words, those rank alone. When every word is that common,
  // memories must hold them all, and only the newest few thousand of those are ranked.
  std::vector<std::string> rare;
  for (const auto& phrase : phrases)
    if (holders(phrase, kRankedWindow) <= static_cast<std::int64_t>(kRankedWindow)) rare.push_back(phrase);
  std::string expression;
  if (!rare.empty()) {
    expression = joined(rare, " OR ");
  } else {
    expression = joined(phrases, " AND ");
    if (holders(expression, 1) == 0) expression = joined(phrases, " OR ");
  }

  // Joined to the memories only when their dates bound the search; the dates that order near
  // ties are read for the few ranked.
  const bool bounded = bounds.from || bounds.to;
  const std::string from = " FROM recall_words" +
                           std::string(bounded ? " JOIN memories m ON m.id = recall_words.rowid" : "") +
                           " WHERE recall_words MATCH ?1" + boundsClause(bounds);
  auto& statement = database_.cached(
      "SELECT recall_words.rowid, rank" + from + " AND recall_words.rowid >= coalesce((SELECT recall_words.rowid" +
      from + " ORDER BY recall_words.rowid DESC LIMIT 1 OFFSET ?5), 0) ORDER BY rank LIMIT ?6");
  statement.bind(1, expression).bind(5, static_cast<std::int64_t>(kRankedWindow));
  statement.bind(6, static_cast<std::int64_t>(limit * kRankedSpare));
  bindBounds(statement, bounds);
  struct Scored {
    std::int64_t id;
    double score;
  };
  std::vector<Scored> scored;
  while (statement.step()) scored.push_back(Scored{.id = statement.integer(0), .score = statement.real(1)});
  statement.reset();
  auto& created = database_.cached("SELECT created FROM memories WHERE id = ?1");
  for (auto& [id, score] : scored) {
    created.bind(1, id);
    // BM25 is negative, better when lower: a fresher memory's is made a little lower still.
    if (created.step()) score *= 1 + kFreshness / (1 + std::max(0.0, now - created.real(0)) / 86400 / 30);
    created.reset();
  }
  std::stable_sort(scored.begin(), scored.end(), [](const Scored& a, const Scored& b) { return a.score < b.score; });
  if (scored.size() > limit) scored.resize(limit);

  std::vector<Found> found;
  for (const auto& [id, score] : scored) found.push_back(Found{.id = id, .snippet = wordsAround(id, {expression}, 1)});
  return found;
}

std::int64_t RecallIndex::holders(const std::string& expression, std::size_t cap) {
  auto& statement = database_.cached(
      "SELECT COUNT(*) FROM (SELECT 1 FROM recall_words WHERE recall_words MATCH ?1 LIMIT ?2)");
  statement.bind(1, expression).bind(2, static_cast<std::int64_t>(cap) + 1);
  statement.step();
  const auto count = statement.integer(0);
  statement.reset();
  return count;
}

std::vector<RecallIndex::Found> RecallIndex::containing(std::string_view literal, const TimeBounds& bounds,
                                                        std::size_t limit) {
  std::vector<Found> found;
  std::size_t characters = 0;
  for (char c : literal) characters += (static_cast<unsigned char>(c) & 0xC0) != 0x80;
  if (characters >= 3) {
    // Trigrams find any substring of three characters or more; the newest come first straight
    // from the index, so a literal in every memory costs no more than a rare one.
    auto& statement = database_.cached(
        "SELECT recall_grams.rowid, snippet(recall_grams, 1, '', '', '…', " + std::to_string(kSnippetCharacters) +
        ") FROM recall_grams JOIN memories m ON m.id = recall_grams.rowid WHERE recall_grams MATCH ?1" +
        boundsClause(bounds) + " ORDER BY recall_grams.rowid DESC LIMIT ?5");
    statement.bind(1, recall::phrase(literal)).bind(5, static_cast<std::int64_t>(limit));
    bindBounds(statement, bounds);
    while (statement.step()) found.push_back(Found{.id = statement.integer(0), .snippet = statement.text(1)});
    statement.reset();
    return found;
  }
  // One or two characters make no trigram: the memories are read newest first until enough hold
  // it, ignoring the case of ASCII letters as LIKE does.
  std::string pattern = "%";
  for (char c : literal) {
    if (c == '%' || c == '_' || c == '\\') pattern += '\\';
    pattern += c;
  }
  pattern += "%";
  auto& statement = database_.cached(
      "SELECT s.id, s.text FROM recall_source s JOIN memories m ON m.id = s.id WHERE (s.title LIKE ?1 ESCAPE '\\' OR "
      "s.text LIKE ?1 ESCAPE '\\' OR s.why LIKE ?1 ESCAPE '\\' OR s.type LIKE ?1 ESCAPE '\\' OR s.scope LIKE ?1 "
      "ESCAPE '\\' OR s.filters LIKE ?1 ESCAPE '\\')" +
      boundsClause(bounds) + " ORDER BY s.id DESC LIMIT ?5");
  statement.bind(1, pattern).bind(5, static_cast<std::int64_t>(limit));
  bindBounds(statement, bounds);
  while (statement.step())
    found.push_back(Found{.id = statement.integer(0), .snippet = windowAround(statement.text(1), literal)});
  statement.reset();
  return found;
}

std::optional<std::vector<std::int64_t>> RecallIndex::fewHolding(const std::string& phrase, std::size_t cap) {
  auto& statement = database_.cached("SELECT rowid FROM recall_words WHERE recall_words MATCH ?1 LIMIT ?2");
  statement.bind(1, phrase).bind(2, static_cast<std::int64_t>(cap) + 1);
  std::vector<std::int64_t> ids;
  while (statement.step()) ids.push_back(statement.integer(0));
  statement.reset();
  if (ids.size() > cap) return std::nullopt;
  return ids;
}

std::string RecallIndex::wordsAround(std::int64_t id, const std::vector<std::string>& phrases, int column) {
  auto& statement =
      database_.cached("SELECT snippet(recall_words, ?3, '', '', '…', " + std::to_string(kSnippetWords) +
                       ") FROM recall_words WHERE recall_words MATCH ?1 AND rowid = ?2");
  statement.bind(1, joined(phrases, " OR ")).bind(2, id).bind(3, std::int64_t{column});
  std::string words;
  if (statement.step()) words = statement.text(0);
  statement.reset();
  return words;
}

}  // namespace quillon::gateway
