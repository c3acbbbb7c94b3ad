#include "QuillonGateway/RecallIndex.hpp"

#include <cctype>

#include "QuillonGateway/RecallWords.hpp"
#include "QuillonGateway/Sqlite.hpp"

namespace quillon::gateway {

namespace {

// Column weights in index order (title, text, why, type, scope, filters): a title names what the
// memory is about, a why and filters say what it is for, the text says everything else once.
constexpr std::string_view kWeights = "8.0, 1.0, 2.0, 1.5, 1.0, 2.0";
// A memory saved today outranks a month-old one by up to this share of its score: enough to
// order near ties, too little to lift a weak match over a strong one.
constexpr std::string_view kFreshness = "(1.0 + 0.15 / (1.0 + (?2 - m.created) / 2592000.0))";
// Snippet lengths, in the index's tokens: words, or trigrams (about one character each).
constexpr int kSnippetWords = 28;
constexpr int kSnippetCharacters = 160;

std::string joinedOr(const std::vector<std::string>& phrases) {
  std::string expression;
  for (const auto& phrase : phrases) expression += (expression.empty() ? "" : " OR ") + phrase;
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
  auto& statement = database_.cached(
      "SELECT recall_words.rowid, snippet(recall_words, 1, '', '', '…', " + std::to_string(kSnippetWords) +
      ") FROM recall_words JOIN memories m ON m.id = recall_words.rowid WHERE recall_words MATCH ?1" +
      boundsClause(bounds) + " ORDER BY bm25(recall_words, " + std::string(kWeights) + ") * " +
      std::string(kFreshness) + ", m.id DESC LIMIT ?5");
  statement.bind(1, joinedOr(phrases)).bind(2, now).bind(5, static_cast<std::int64_t>(limit));
  bindBounds(statement, bounds);
  std::vector<Found> found;
  while (statement.step()) found.push_back(Found{.id = statement.integer(0), .snippet = statement.text(1)});
  statement.reset();
  return found;
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

std::string RecallIndex::wordsAround(std::int64_t id, const std::vector<std::string>& phrases) {
  auto& statement = database_.cached("SELECT snippet(recall_words, -1, '', '', '…', " + std::to_string(kSnippetWords) +
                                     ") FROM recall_words WHERE recall_words MATCH ?1 AND rowid = ?2");
  statement.bind(1, joinedOr(phrases)).bind(2, id);
  std::string words;
  if (statement.step()) words = statement.text(0);
  statement.reset();
  return words;
}

}  // namespace quillon::gateway
