// A store seeded the way a year of agent use might leave it, for the gateway's figures: ten types
// in uneven shares, scopes from the root down to three levels, and the filters agents actually
// set (status, priority, flags, a language, a rating). Seeded through MemoryStore in one write
// transaction, so 100,000 memories take seconds rather than minutes, with the ids handed back so
// the benchmarks can grab memories that exist.
#pragma once

#include <algorithm>
#include <array>
#include <chrono>
#include <cstdint>
#include <random>
#include <string>
#include <string_view>
#include <vector>

#include "QuillonGateway/MemoryStore.hpp"
#include "QuillonGateway/Sqlite.hpp"

namespace quillon::bench {

struct SeedType {
  std::string_view type;
  int share;  // out of 100
  std::vector<std::string_view> scopes;
};

inline const std::vector<SeedType>& seedTypes() {
  static const std::vector<SeedType> types = {
      {"note", 24, {"/", "/code", "/code/quillon", "/home", "/home/garden", "/work", "/reading"}},
      {"ticket", 20, {"/code", "/code/quillon", "/code/quillon/bridge", "/code/fernhollow", "/home"}},
      {"bug", 10, {"/code/quillon", "/code/quillon/bridge", "/code/fernhollow", "/code/dotfiles"}},
      {"link", 10, {"/", "/reading", "/code", "/work"}},
      {"decision", 8, {"/code/quillon", "/code/fernhollow", "/work", "/work/meetings"}},
      {"idea", 8, {"/", "/code", "/home", "/home/garden", "/work"}},
      {"rule", 6, {"/", "/code", "/code/quillon", "/work"}},
      {"snippet", 6, {"/code", "/code/quillon", "/code/dotfiles"}},
      {"recipe", 4, {"/home/kitchen"}},
      {"person", 4, {"/work", "/work/meetings", "/home"}},
  };
  return types;
}

// Queued, doing and done in the proportions of a backlog that gets worked: most things finish.
inline std::string_view pickStatus(std::mt19937_64& random) {
  const auto roll = random() % 100;
  return roll < 35 ? "queued" : roll < 50 ? "doing" : "done";
}

// The words memories are written in: English function words, which make up a third of any
// text, and a vocabulary of 30,000 made-up words drawn by Zipf's law, as real words are, so that
// a store holds a few words everywhere, many words in some memories and most words in a handful.
class SeedWords {
 public:
  static const SeedWords& shared() {
    static const SeedWords words;
    return words;
  }

  std::string_view common(std::mt19937_64& random) const {
    static constexpr std::array<std::string_view, 24> kCommon = {
        "the", "of", "and", "to", "in", "is", "it", "that", "for", "on", "with", "as",
        "was", "at", "by", "this", "be", "from", "or", "an", "not", "but", "are", "we"};
    return kCommon[random() % kCommon.size()];
  }
  // A word of the vocabulary: rank 0 is the most frequent.
  const std::string& ranked(std::size_t rank) const { return vocabulary_[rank]; }
  std::size_t size() const { return vocabulary_.size(); }
  const std::string& drawn(std::mt19937_64& random) const {
    const double roll = std::uniform_real_distribution<double>(0, cumulative_.back())(random);
    const auto at = std::lower_bound(cumulative_.begin(), cumulative_.end(), roll) - cumulative_.begin();
    return vocabulary_[static_cast<std::size_t>(at)];
  }

 private:
  SeedWords() {
    static constexpr std::array<std::string_view, 20> kOnsets = {"b", "c", "d", "f", "g", "h", "k", "l", "m", "n",
                                                                 "p", "r", "s", "t", "v", "br", "st", "tr", "pl", "gr"};
    static constexpr std::array<std::string_view, 6> kVowels = {"a", "e", "i", "o", "u", "ai"};
    static constexpr std::array<std::string_view, 6> kCodas = {"", "n", "r", "s", "t", "x"};
    std::mt19937_64 random(1729);
    while (vocabulary_.size() < 30000) {
      std::string word;
      const int syllables = 2 + static_cast<int>(random() % 2);
      for (int i = 0; i < syllables; ++i)
        word += std::string(kOnsets[random() % kOnsets.size()]) + std::string(kVowels[random() % kVowels.size()]);
      word += kCodas[random() % kCodas.size()];
      vocabulary_.push_back(std::move(word));
    }
    std::sort(vocabulary_.begin(), vocabulary_.end());
    vocabulary_.erase(std::unique(vocabulary_.begin(), vocabulary_.end()), vocabulary_.end());
    std::shuffle(vocabulary_.begin(), vocabulary_.end(), random);
    double total = 0;
    for (std::size_t rank = 0; rank < vocabulary_.size(); ++rank)
      cumulative_.push_back(total += 1.0 / static_cast<double>(rank + 1));
  }

  std::vector<std::string> vocabulary_;
  std::vector<double> cumulative_;
};

inline std::string seedText(std::mt19937_64& random, int words) {
  const auto& vocabulary = SeedWords::shared();
  std::string text;
  for (int i = 0; i < words; ++i) {
    if (i) text += ' ';
    text += random() % 3 == 0 ? vocabulary.common(random) : std::string_view(vocabulary.drawn(random));
  }
  return text;
}

inline gateway::Memory seedMemory(std::mt19937_64& random, std::int64_t index, std::int64_t count, double now) {
  const auto& types = seedTypes();
  auto roll = static_cast<int>(random() % 100);
  std::size_t which = 0;
  while (roll >= types[which].share) roll -= types[which++].share;
  const auto& kind = types[which];

  gateway::Memory memory;
  memory.type = std::string(kind.type);
  // A person keeps tens of standing rules, not thousands: all of them ride every prompt. One in
  // 150 of the rule share stays a rule (about 40 in 100,000); the rest are notes.
  if (memory.type == "rule" && random() % 150 != 0) memory.type = "note";
  memory.scope = std::string(kind.scopes[random() % kind.scopes.size()]);
  memory.text = seedText(random, 20 + static_cast<int>(random() % 40));
  memory.why = seedText(random, 8);
  memory.writer = random() % 3 == 0 ? "codex" : "claude-code";
  if (random() % 2 == 0) memory.session = "s-" + std::to_string(random() % 5000);
  // Spread over the past year, oldest first, as ids grow.
  const double year = 365.0 * 24 * 3600;
  memory.created = now - year + year * static_cast<double>(index) / static_cast<double>(count);

  using wire::FilterValue;
  auto& filters = memory.filters;
  if (memory.type == "ticket" || memory.type == "bug" || memory.type == "idea") {
    memory.title = seedText(random, 4);
    filters.push_back({"status", FilterValue::string(std::string(pickStatus(random)))});
    if (memory.type != "idea") filters.push_back({"priority", FilterValue::number(static_cast<double>(1 + random() % 4))});
    if (random() % 10 == 0) filters.push_back({"urgent", FilterValue::boolean(true)});
  } else if (memory.type == "snippet") {
    static constexpr std::array<std::string_view, 4> kLanguages = {"cpp", "python", "swift", "sh"};
    filters.push_back({"lang", FilterValue::string(std::string(kLanguages[random() % kLanguages.size()]))});
  } else if (memory.type == "recipe") {
    memory.title = seedText(random, 3);
    filters.push_back({"stars", FilterValue::number(static_cast<double>(1 + random() % 5))});
  } else if (memory.type == "decision") {
    memory.title = seedText(random, 4);
    filters.push_back({"commit", FilterValue::string(std::to_string(1000000 + random() % 9000000))});
  } else if (memory.type == "person") {
    memory.title = seedText(random, 2);
  }
  if (random() % 20 == 0) filters.push_back({"pinned", FilterValue::boolean(true)});
  // MemoryStore lists filters sorted by key; write them that way too.
  std::sort(filters.begin(), filters.end(), [](const auto& a, const auto& b) { return a.key < b.key; });
  return memory;
}

// Seeds `count` memories into the store at `path` (created when missing) and returns their ids.
inline std::vector<std::int64_t> seedStore(const std::string& path, std::int64_t count) {
  gateway::MemoryStore store(path);
  std::mt19937_64 random(20250502);
  const double now = std::chrono::duration<double>(std::chrono::system_clock::now().time_since_epoch()).count();
  std::vector<std::int64_t> ids;
  ids.reserve(static_cast<std::size_t>(count));
  auto transaction = store.beginWrite();
  for (std::int64_t i = 0; i < count; ++i) ids.push_back(store.insert(seedMemory(random, i, count, now)));
  transaction->commit();
  return ids;
}

}  // namespace quillon::bench
