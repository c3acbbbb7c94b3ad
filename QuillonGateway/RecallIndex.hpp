// RecallIndex: the store's reads by words, over the two recall indexes the store keeps in step
// with every memory (words: stemmed, case and accents folded; trigrams: literal substrings).
//
// Phrases given here are already in the index's query language (recall::phrase); nothing the
// user typed reaches the index any other way. One RecallIndex per store connection; not
// thread-safe. Calls throw SqlError when SQLite fails.
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace quillon::gateway {

class Database;

// Seconds since the epoch, both ends included; an absent end is open.
struct TimeBounds {
  std::optional<double> from;
  std::optional<double> to;
};

class RecallIndex {
 public:
  // A memory found, with the words of its text around what matched.
  struct Found {
    std::int64_t id = 0;
    std::string snippet;
  };

  explicit RecallIndex(Database& database) : database_(database) {}

  std::int64_t memoryCount();

  // The memories holding any of the phrases, best first: BM25 with the title weighing most, then
  // the why and filters, a fresher memory winning what is nearly a tie. At most `limit`, each
  // with the words of its text around the match.
  std::vector<Found> ranked(const std::vector<std::string>& phrases, const TimeBounds& bounds, double now,
                            std::size_t limit);
  // The memories holding `literal` in any field, whatever its case, newest first. At most `limit`.
  std::vector<Found> containing(std::string_view literal, const TimeBounds& bounds, std::size_t limit);

  // The ids of the memories holding `phrase`, or nothing when more than `cap` do: a word that
  // common says nothing about which memory is meant.
  std::optional<std::vector<std::int64_t>> fewHolding(const std::string& phrase, std::size_t cap);
  // The words around the best match of any of the phrases in the memory: in the field numbered
  // `column` (0 title, 1 text, 2 why, …; the text's start when it holds none), or -1 for
  // whichever field holds the most.
  std::string wordsAround(std::int64_t id, const std::vector<std::string>& phrases, int column = -1);

 private:
  // How many memories match the expression, counted up to just past `cap`.
  std::int64_t holders(const std::string& expression, std::size_t cap);

  Database& database_;
};

}  // namespace quillon::gateway
