// RecallWords: how the gateway reads what people type when they look for a memory — a search
// query, a grep literal, a prompt, a date bound — and the words it answers with about time.
//
// Nothing typed is ever taken as index syntax: every word becomes a quoted phrase of the index's
// own query language, so quotes, operators, stars and colons in a query are words or nothing,
// never an error. Stateless; thread-safe.
#pragma once

#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace quillon::gateway::recall {

// One quoted phrase of the index's query language: the text between double quotes, with its own
// double quotes doubled. The index splits it into its words (or trigrams) itself.
std::string phrase(std::string_view text);

// A search query as index phrases: each blank-separated word is one phrase, and text between
// double quotes is one phrase as a whole. Words with no letter or digit are dropped, and stop
// words too unless nothing else is left. Empty when the query holds no word at all.
std::vector<std::string> queryPhrases(std::string_view query);

// A word of a prompt, and whether it names one thing rather than saying something in general:
// an identifier, a path, a number or a version (retry_backoff_ms, ENG-1234, src/app.ts, 1.30,
// m:12), a camel-cased name (parseConfig, PostNL), or a capitalised word inside a sentence
// (Priya). A capital opening a sentence names nothing, nor does an acronym in capitals (JSON).
struct PromptWord {
  std::string text;
  bool names = false;
  bool operator==(const PromptWord&) const = default;
};

// The words of a prompt that may say what it is about, each once, in order, at most `limit`:
// blank-separated words with their outer punctuation taken off, neither a stop word nor shorter
// than three characters, holding a letter or a digit. The scan stops at the limit, so a long
// prompt costs no more than a short one that says as much.
std::vector<PromptWord> promptWords(std::string_view prompt, std::size_t limit);

// Words too common in English, or in what developers ask agents, to say what a message is about.
// `lowered` is the word in lower case, with a curly apostrophe written straight.
bool isStopWord(std::string_view lowered);

// A time bound as the tools' descriptions promise it: "2026-06-30" or "2026-06-30T09:00[:00[.5]]"
// with an optional "Z" or "+02:00"/"-0700" (a blank may stand for the T). Without an offset it is
// the user's local time. A bare date as an upper bound covers its whole day. Seconds since the
// epoch; nothing when the text is not such a date.
std::optional<double> timeBound(std::string_view text, bool upper);

// "today", "yesterday", "3 days ago", "2 weeks ago", "5 months ago", "1 year ago": how long ago
// `then` was on the local calendar, seen from `now`.
std::string relativeDay(double then, double now);

// The first sentence of a text: up to the first ". ", "! " or "? " or line break.
std::string_view firstSentence(std::string_view text);

}  // namespace quillon::gateway::recall
