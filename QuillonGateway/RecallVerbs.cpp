#include <algorithm>
#include <cmath>
#include <unordered_map>

#include "QuillonBase/Text.hpp"
#include "QuillonGateway/MemoryStore.hpp"
#include "QuillonGateway/RecallIndex.hpp"
#include "QuillonGateway/RecallWords.hpp"
#include "QuillonGateway/SessionBook.hpp"
#include "QuillonGateway/Shortcuts.hpp"
#include "QuillonGateway/Sqlite.hpp"
#include "QuillonGateway/StoreVerbs.hpp"
#include "QuillonGateway/StoreWording.hpp"

namespace quillon::gateway {

namespace {

// What a search or grep shows: enough to choose from, few enough to read.
constexpr std::size_t kMaxHits = 10;
// The primed lane runs on every prompt; a wrong card costs the user's attention every turn and a
// missing one costs little, so it shows few and only strong matches.
constexpr std::size_t kMaxPrimed = 3;
// The first salient words of a prompt are what it is about; the rest only cost time.
constexpr std::size_t kSalientWords = 8;
// Words looked up before giving up on finding more salient ones in a long prompt.
constexpr std::size_t kCandidateWords = 24;
// A word held by more than this share of the memories (or this many, in a small store) says
// nothing about which one is meant. Past the ceiling a word is too common to pass the strength
// below with any other word but a rare one, which passes alone: counting further is wasted.
constexpr double kCommonShare = 0.05;
constexpr std::size_t kCommonFloor = 4;
constexpr std::size_t kCommonCeiling = 500;
// How strong a match must be to be shown: the sum over the prompt's matched words of how rare
// each is (1 for a word in one memory, towards 0 for a word in many). Ordinary prompts share a
// word or two with some memory all the time, so two words must be rare, three less so, and one
// word passes alone only when it names something (a name, an identifier, a number) that only
// one memory holds. A memory in the caller's own scope is that much more likely meant.
constexpr double kThreeWords = 1.5;
constexpr double kTwoWords = 1.8;
constexpr double kTwoWordsOneNaming = 1.3;
constexpr double kOneNamingWord = 0.95;
constexpr double kInScope = 0.2;
// Candidates read from the store to order by scope; the rest are weaker than these.
constexpr std::size_t kCandidatesRead = 30;
constexpr std::size_t kCardCharacters = 159;  // and "…" when cut

// A from/to argument: absent or blank is no bound; anything else must be a date.
std::optional<std::string> readBound(const std::optional<std::string>& given, bool upper, std::string_view name,
                                     std::optional<double>& bound) {
  if (!given || base::trimmed(*given).empty()) return std::nullopt;
  bound = recall::timeBound(*given, upper);
  if (bound) return std::nullopt;
  return "'" + std::string(name) + "' is not a date: '" + *given +
         "'. Send an ISO date or date-time — 2026-06-30, 2026-06-30T09:00 (the user's local time) or "
         "2026-06-30T09:00:00Z — or leave it out.";
}

std::optional<std::string> readBounds(const std::optional<std::string>& from, const std::optional<std::string>& to,
                                      TimeBounds& bounds) {
  if (auto refusal = readBound(from, false, "from", bounds.from)) return refusal;
  return readBound(to, true, "to", bounds.to);
}

// Note cards for what the index found, the snippet around the match standing for the text.
GatewayResponse foundCards(MemoryStore& store, const std::vector<RecallIndex::Found>& found) {
  std::vector<wire::Card> cards;
  for (const auto& hit : found) {
    const auto memory = store.find(hit.id);
    if (!memory) continue;
    auto card = noteCard(*memory);
    if (!base::trimmed(hit.snippet).empty()) card.snippet = hit.snippet;
    cards.push_back(std::move(card));
  }
  return GatewayResponse{wire::answer::Cards{std::move(cards)}};
}

bool underScope(std::string_view scope, std::string_view caller) {
  return caller == "/" || scope == caller || (scope.size() > caller.size() && scope.starts_with(caller) &&
                                              scope[caller.size()] == '/');
}

// A memory the prompt matched: how strongly, through which words.
struct Candidate {
  std::int64_t id = 0;
  double strength = 0;
  std::vector<std::size_t> words;  // indexes into the salient words
  bool names = false;              // through a word that names something
};

bool passes(const Candidate& candidate, double bonus) {
  const double strength = candidate.strength + bonus;
  switch (candidate.words.size()) {
    case 0: return false;
    case 1: return candidate.names && strength >= kOneNamingWord;
    case 2: return strength >= (candidate.names ? kTwoWordsOneNaming : kTwoWords);
    default: return strength >= kThreeWords;
  }
}

std::vector<wire::PrimeCard> primeCards(VerbContext& context, std::string_view prompt, const std::string& scope) {
  RecallIndex index(context.store.database());
  const auto total = index.memoryCount();
  if (total == 0) return {};
  const auto cap = std::clamp(static_cast<std::size_t>(kCommonShare * static_cast<double>(total)), kCommonFloor,
                              kCommonCeiling);
  const double scale = std::log(static_cast<double>(total) + 1);

  std::vector<std::string> salient;
  std::unordered_map<std::int64_t, Candidate> matched;
  for (const auto& word : recall::promptWords(prompt, kCandidateWords)) {
    const auto phrase = recall::phrase(word.text);
    const auto holding = index.fewHolding(phrase, cap);
    if (!holding) continue;  // too common to say anything
    if (holding->empty()) {
      salient.push_back(phrase);
      if (salient.size() == kSalientWords) break;
      continue;
    }
    const double rarity = std::log((static_cast<double>(total) + 1) / static_cast<double>(holding->size())) / scale;
    for (const auto id : *holding) {
      auto& candidate = matched[id];
      candidate.id = id;
      candidate.strength += rarity;
      candidate.words.push_back(salient.size());
      candidate.names = candidate.names || word.names;
    }
    salient.push_back(phrase);
    if (salient.size() == kSalientWords) break;
  }

  // Those that pass if in scope; where they are is read for these few only.
  std::vector<Candidate> strong;
  for (auto& [id, candidate] : matched)
    if (passes(candidate, kInScope)) strong.push_back(std::move(candidate));
  std::sort(strong.begin(), strong.end(), [](const Candidate& a, const Candidate& b) {
    return a.strength != b.strength ? a.strength > b.strength : a.id > b.id;
  });
  if (strong.size() > kCandidatesRead) strong.resize(kCandidatesRead);

  struct Shown {
    Memory memory;
    const Candidate* candidate;
    bool inScope;
  };
  std::vector<Shown> shown;
  for (const auto& candidate : strong) {
    auto memory = context.store.find(candidate.id);
    // Rules ride the rules lane and shortcuts fire by name: neither is recalled here.
    if (!memory || memory->type == "rule" || memory->type == "shortcut") continue;
    const bool inScope = scope != "/" && underScope(memory->scope, scope);
    if (!passes(candidate, inScope ? kInScope : 0)) continue;
    shown.push_back(Shown{.memory = std::move(*memory), .candidate = &candidate, .inScope = inScope});
  }
  // The caller's own scope first; `strong` is already in order of strength.
  std::stable_sort(shown.begin(), shown.end(), [](const Shown& a, const Shown& b) { return a.inScope > b.inScope; });
  if (shown.size() > kMaxPrimed) shown.resize(kMaxPrimed);

  std::vector<wire::PrimeCard> cards;
  for (const auto& [memory, candidate, inScope] : shown) {
    std::vector<std::string> words;
    for (const auto at : candidate->words) words.push_back(salient[at]);
    const std::string gist = memory.title ? *memory.title : std::string(recall::firstSentence(memory.text));
    auto evidence = index.wordsAround(memory.id, words);
    if (base::trimmed(evidence).empty()) evidence = memory.text;
    cards.push_back(wire::PrimeCard{.when = day(memory.created),
                                    .whenRelative = recall::relativeDay(memory.created, context.now),
                                    .chapter = memory.scope + " · " + memory.type,
                                    .gist = clipped(gist, kCardCharacters),
                                    .evidence = clipped(evidence, kCardCharacters),
                                    .grabId = memoryID(memory.id)});
  }
  return cards;
}

}  // namespace

GatewayResponse answer(VerbContext& context, const wire::read::Recall& recall) {
  TimeBounds bounds;
  if (auto refusal = readBounds(recall.from, recall.to, bounds)) return failure(*refusal);
  const auto phrases = recall::queryPhrases(recall.query);
  RecallIndex index(context.store.database());
  return foundCards(context.store, index.ranked(phrases, bounds, context.now, kMaxHits));
}

GatewayResponse answer(VerbContext& context, const wire::read::Grep& grep) {
  TimeBounds bounds;
  if (auto refusal = readBounds(grep.from, grep.to, bounds)) return failure(*refusal);
  const auto literal = base::trimmed(grep.query);
  if (literal.empty()) return GatewayResponse{wire::answer::Cards{}};
  return foundCards(context.store, RecallIndex(context.store.database()).containing(literal, bounds, kMaxHits));
}

GatewayResponse answer(VerbContext& context, const wire::read::Primed& primed) {
  const auto scope = callerScope(context, primed.cwd, primed.session, primed.writer.value_or(""));
  wire::answer::Primed answer{.cards = {}, .distilled = false, .shortcut = {}, .justEnded = {}};
  if (const auto ask = shortcutAsk(primed.prompt)) answer.shortcut = shortcutInjection(context, *ask, scope);
  // A prompt that works a shortcut is about the shortcut, not about memories.
  if (!answer.shortcut) answer.cards = primeCards(context, primed.prompt, scope);
  if (primed.countsPrompt && primed.session && SessionBook::isSessionID(*primed.session)) {
    // Counts only: which memories rode, never their words.
    std::vector<std::int64_t> shown;
    for (const auto& card : answer.cards)
      if (const auto id = parseMemoryID(card.grabId)) shown.push_back(*id);
    const bool fired = answer.shortcut && std::holds_alternative<wire::shortcut::Fired>(answer.shortcut->value);
    try {
      // One commit for the prompt's counts: the hook waits on this answer.
      const auto transaction = context.store.beginWrite();
      SessionBook book(context.store.database());
      book.countPrompt(*primed.session, primed.prompt, context.now);
      book.notePrompt(*primed.session, scope, shown, fired, context.now);
      transaction->commit();
    } catch (const SqlError&) {
      // A prompt left uncounted costs a statistic; a failed answer would cost the prompt its cards.
    }
  }
  return GatewayResponse{std::move(answer)};
}

}  // namespace quillon::gateway
