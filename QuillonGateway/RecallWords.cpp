#include "QuillonGateway/RecallWords.hpp"

#include <utf8proc.h>

#include <algorithm>
#include <array>
#include <cctype>
#include <cmath>
#include <ctime>

namespace quillon::gateway::recall {

namespace {

// English function words and the words of asking an agent for anything ("please fix this
// function"): they say how a message asks, not what it is about. Sorted, for binary search.
constexpr auto kStopWords = std::to_array<std::string_view>({
    "a", "about", "above", "actually", "add", "after", "again", "against", "all", "almost", "also", "am", "an",
    "and", "any", "anything", "are", "aren't", "around", "as", "ask", "at", "back", "be", "because", "been",
    "before", "being", "below", "best", "better", "between", "both", "bug", "but", "by", "can", "can't", "cannot",
    "change", "changes", "check", "class", "code", "could", "couldn't", "create", "current", "did", "didn't",
    "do", "does", "doesn't", "doing", "don't", "done", "down", "each", "either", "else", "error", "errors",
    "even", "ever", "every", "explain", "few", "file", "files", "find", "first", "fix", "for", "from",
    "function", "further", "get", "give", "go", "going", "good", "got", "had", "hadn't", "has", "hasn't",
    "have", "haven't", "having", "he", "help", "her", "here", "hers", "herself", "hey", "hi", "him",
    "himself", "his", "how", "however", "i", "i'd", "i'll", "i'm", "i've", "if", "in", "into", "is", "isn't",
    "it", "it's", "its", "itself", "just", "keep", "know", "last", "later", "let", "let's", "like", "line",
    "lines", "look", "looks", "lot", "make", "many", "may", "maybe", "me", "method", "might", "more", "most",
    "much", "must", "my", "myself", "need", "needs", "new", "next", "no", "nor", "not", "now", "of", "off",
    "ok", "okay", "old", "on", "once", "one", "only", "or", "other", "our", "ours", "ourselves", "out", "over",
    "own", "part", "please", "put", "quite", "rather", "really", "remove", "right", "run", "same", "say",
    "see", "seems", "set", "shall", "she", "should", "shouldn't", "show", "so", "some", "something", "still",
    "such", "sure", "take", "tell", "than", "thank", "thanks", "that", "that's", "the", "their", "theirs",
    "them", "themselves", "then", "there", "there's", "these", "they", "thing", "things", "think", "this",
    "those", "though", "through", "to", "too", "try", "two", "under", "until", "up", "update", "us", "use",
    "used", "using", "very", "want", "was", "wasn't", "way", "we", "we're", "well", "were", "weren't", "what",
    "what's", "when", "where", "whether", "which", "while", "who", "whom", "why", "will", "with", "without",
    "won't", "work", "works", "would", "wouldn't", "write", "yes", "yet", "you", "you'd", "you'll", "you're",
    "you've", "your", "yours", "yourself", "yourselves",
});
static_assert(std::ranges::is_sorted(kStopWords));

// Whether the text holds a letter or a digit in any script.
bool holdsWordCharacter(std::string_view text) {
  const auto* bytes = reinterpret_cast<const utf8proc_uint8_t*>(text.data());
  for (utf8proc_ssize_t at = 0, size = static_cast<utf8proc_ssize_t>(text.size()); at < size;) {
    utf8proc_int32_t scalar = 0;
    const auto length = utf8proc_iterate(bytes + at, size - at, &scalar);
    if (length <= 0) return false;
    at += length;
    switch (utf8proc_category(scalar)) {
      case UTF8PROC_CATEGORY_LU: case UTF8PROC_CATEGORY_LL: case UTF8PROC_CATEGORY_LT: case UTF8PROC_CATEGORY_LM:
      case UTF8PROC_CATEGORY_LO: case UTF8PROC_CATEGORY_ND: case UTF8PROC_CATEGORY_NL: case UTF8PROC_CATEGORY_NO:
        return true;
      default:
        break;
    }
  }
  return false;
}

std::size_t characterCount(std::string_view text) {
  return static_cast<std::size_t>(
      std::count_if(text.begin(), text.end(), [](char c) { return (static_cast<unsigned char>(c) & 0xC0) != 0x80; }));
}

bool isBlank(char c) { return c == ' ' || c == '\t' || c == '\n' || c == '\r' || c == '\f' || c == '\v'; }

// ASCII punctuation around a word ("(parser.cpp)," → "parser.cpp"); bytes of other scripts stay.
bool isOuterPunctuation(char c) {
  const auto byte = static_cast<unsigned char>(c);
  return byte < 0x80 && !std::isalnum(byte) && c != '_' && c != '\\' && c != '/';
}

// The word without the punctuation around it, nor a possessive "'s" (Priya's → Priya).
std::string_view stripped(std::string_view word) {
  while (!word.empty() && isOuterPunctuation(word.front())) word.remove_prefix(1);
  while (!word.empty() && isOuterPunctuation(word.back())) word.remove_suffix(1);
  for (const std::string_view possessive : {"'s", "'S", "\u2019s", "\u2019S"})
    if (word.size() > possessive.size() + 1 && word.ends_with(possessive)) {
      word.remove_suffix(possessive.size());
      break;
    }
  return word;
}

// Lower case, with the curly apostrophe of phones and word processors written straight.
std::string lowered(std::string_view word) {
  std::string result;
  result.reserve(word.size());
  for (std::size_t i = 0; i < word.size(); ++i) {
    if (word.substr(i, 3) == "\u2019") {
      result += '\'';
      i += 2;
    } else {
      result += static_cast<char>(std::tolower(static_cast<unsigned char>(word[i])));
    }
  }
  return result;
}

bool namesSomething(std::string_view word, bool opensSentence) {
  bool upperAfterFirst = false, lower = false;
  for (std::size_t i = 0; i < word.size(); ++i) {
    const char c = word[i];
    if (c >= '0' && c <= '9') return true;
    if (c == '_') return true;
    if ((c == '.' || c == ':' || c == '/') && i > 0 && i + 1 < word.size()) return true;
    if (c >= 'a' && c <= 'z') lower = true;
    if (c >= 'A' && c <= 'Z' && i > 0) upperAfterFirst = true;
  }
  const bool capitalised = word.front() >= 'A' && word.front() <= 'Z';
  if (upperAfterFirst) return lower;                  // parseConfig, PostNL; JSON is an acronym
  return capitalised && lower && !opensSentence;      // Priya inside a sentence
}

// Calls `each` with every blank-separated word until it returns false.
template <class Each>
void eachWord(std::string_view text, Each&& each) {
  std::size_t at = 0;
  while (at < text.size()) {
    while (at < text.size() && isBlank(text[at])) ++at;
    std::size_t end = at;
    while (end < text.size() && !isBlank(text[end])) ++end;
    if (end > at && !each(text.substr(at, end - at))) return;
    at = end;
  }
}

// Days since the epoch of the local calendar day holding `seconds`.
long localDayNumber(double seconds) {
  const auto time = static_cast<std::time_t>(std::floor(seconds));
  std::tm local{};
  ::localtime_r(&time, &local);
  // Days from civil: the proleptic Gregorian date to a day count, independent of the zone.
  const int year = local.tm_year + 1900 - (local.tm_mon < 2 ? 1 : 0);
  const int era = (year >= 0 ? year : year - 399) / 400;
  const int yearOfEra = year - era * 400;
  const int month = local.tm_mon + 1;
  const int dayOfYear = (153 * (month + (month > 2 ? -3 : 9)) + 2) / 5 + local.tm_mday - 1;
  const int dayOfEra = yearOfEra * 365 + yearOfEra / 4 - yearOfEra / 100 + dayOfYear;
  return static_cast<long>(era) * 146097 + dayOfEra - 719468;
}

// Reads `count` digits at `at` into `value`, moving past them.
bool digits(std::string_view text, std::size_t& at, int count, int& value) {
  if (at + static_cast<std::size_t>(count) > text.size()) return false;
  value = 0;
  for (int i = 0; i < count; ++i) {
    const char c = text[at++];
    if (c < '0' || c > '9') return false;
    value = value * 10 + (c - '0');
  }
  return true;
}

}  // namespace

std::string phrase(std::string_view text) {
  std::string quoted = "\"";
  for (char c : text) {
    if (c == '"') quoted += '"';
    quoted += c == '\0' ? ' ' : c;  // the index reads its queries as C strings
  }
  return quoted + "\"";
}

bool isStopWord(std::string_view lowered) {
  return std::binary_search(kStopWords.begin(), kStopWords.end(), lowered);
}

std::vector<std::string> queryPhrases(std::string_view query) {
  std::vector<std::string> phrases, stopPhrases;
  const auto take = [&](std::string_view words) {
    if (!holdsWordCharacter(words)) return;
    const auto word = stripped(words);
    (isStopWord(lowered(word)) ? stopPhrases : phrases).push_back(phrase(word));
  };
  std::size_t at = 0;
  while (at < query.size()) {
    const auto quote = query.find('"', at);
    const auto close = quote == std::string_view::npos ? quote : query.find('"', quote + 1);
    // Unquoted words up to the next pair of quotes (or the end: a lone quote is only a character).
    eachWord(query.substr(at, close == std::string_view::npos ? std::string_view::npos : quote - at),
             [&](std::string_view word) {
               take(word);
               return true;
             });
    if (close == std::string_view::npos) break;
    if (const auto quoted = query.substr(quote + 1, close - quote - 1); holdsWordCharacter(quoted))
      phrases.push_back(phrase(quoted));
    at = close + 1;
  }
  return phrases.empty() ? stopPhrases : phrases;
}

std::vector<PromptWord> promptWords(std::string_view prompt, std::size_t limit) {
  std::vector<PromptWord> words;
  std::vector<std::string> seen;
  if (limit == 0) return words;
  bool sentenceStart = true;
  eachWord(prompt, [&](std::string_view raw) {
    const bool opensSentence = sentenceStart;
    const char last = raw.back();
    sentenceStart = last == '.' || last == '!' || last == '?' || last == ':';
    const auto word = stripped(raw);
    if (characterCount(word) < 3 || !holdsWordCharacter(word)) return true;
    auto key = lowered(word);
    if (isStopWord(key) || std::find(seen.begin(), seen.end(), key) != seen.end()) return true;
    seen.push_back(std::move(key));
    words.push_back(PromptWord{.text = std::string(word), .names = namesSomething(word, opensSentence)});
    return words.size() < limit;
  });
  return words;
}

std::optional<double> timeBound(std::string_view text, bool upper) {
  while (!text.empty() && isBlank(text.front())) text.remove_prefix(1);
  while (!text.empty() && isBlank(text.back())) text.remove_suffix(1);
  std::size_t at = 0;
  int year = 0, month = 0, dayOfMonth = 0;
  if (!digits(text, at, 4, year) || at >= text.size() || text[at++] != '-' || !digits(text, at, 2, month) ||
      at >= text.size() || text[at++] != '-' || !digits(text, at, 2, dayOfMonth))
    return std::nullopt;
  if (month < 1 || month > 12 || dayOfMonth < 1 || dayOfMonth > 31) return std::nullopt;
  std::tm fields{};
  fields.tm_year = year - 1900;
  fields.tm_mon = month - 1;
  fields.tm_mday = dayOfMonth;
  fields.tm_isdst = -1;
  const bool bareDate = at == text.size();
  double fraction = 0;
  std::optional<long> offsetSeconds;
  if (!bareDate) {
    if (text[at] != 'T' && text[at] != 't' && text[at] != ' ') return std::nullopt;
    ++at;
    int hour = 0, minute = 0, second = 0;
    if (!digits(text, at, 2, hour) || at >= text.size() || text[at++] != ':' || !digits(text, at, 2, minute))
      return std::nullopt;
    if (at < text.size() && text[at] == ':') {
      ++at;
      if (!digits(text, at, 2, second)) return std::nullopt;
      if (at < text.size() && (text[at] == '.' || text[at] == ',')) {
        double scale = 0.1;
        const std::size_t start = ++at;
        for (; at < text.size() && text[at] >= '0' && text[at] <= '9'; ++at, scale /= 10)
          fraction += (text[at] - '0') * scale;
        if (at == start) return std::nullopt;
      }
    }
    if (hour > 23 || minute > 59 || second > 60) return std::nullopt;
    fields.tm_hour = hour;
    fields.tm_min = minute;
    fields.tm_sec = second;
    if (at < text.size() && (text[at] == 'Z' || text[at] == 'z')) {
      offsetSeconds = 0;
      ++at;
    } else if (at < text.size() && (text[at] == '+' || text[at] == '-')) {
      const int sign = text[at++] == '-' ? -1 : 1;
      int offsetHours = 0, offsetMinutes = 0;
      if (!digits(text, at, 2, offsetHours)) return std::nullopt;
      if (at < text.size() && text[at] == ':') ++at;
      if (at < text.size() && !digits(text, at, 2, offsetMinutes)) return std::nullopt;
      if (offsetHours > 23 || offsetMinutes > 59) return std::nullopt;
      offsetSeconds = sign * (offsetHours * 3600L + offsetMinutes * 60L);
    }
    if (at != text.size()) return std::nullopt;
  }
  std::tm normalised = fields;
  const std::time_t seconds = offsetSeconds ? ::timegm(&normalised) - *offsetSeconds : std::mktime(&normalised);
  // A date that does not exist (the 31st of June) comes back moved to another day.
  if (normalised.tm_mday != fields.tm_mday || normalised.tm_mon != fields.tm_mon) return std::nullopt;
  if (bareDate && upper) {
    std::tm next = fields;
    next.tm_mday += 1;
    return static_cast<double>(std::mktime(&next)) - 1e-3;  // the last moment of the day
  }
  return static_cast<double>(seconds) + fraction;
}

std::string relativeDay(double then, double now) {
  const long days = localDayNumber(now) - localDayNumber(then);
  if (days <= 0) return "today";
  if (days == 1) return "yesterday";
  const auto ago = [](long count, std::string_view unit) {
    return std::to_string(count) + " " + std::string(unit) + (count == 1 ? "" : "s") + " ago";
  };
  if (days < 14) return ago(days, "day");
  if (days < 60) return ago(days / 7, "week");
  if (days < 365) return ago(days / 30, "month");
  return ago(days / 365, "year");
}

std::string_view firstSentence(std::string_view text) {
  for (std::size_t i = 0; i < text.size(); ++i) {
    if (text[i] == '\n' || text[i] == '\r') return text.substr(0, i);
    if ((text[i] == '.' || text[i] == '!' || text[i] == '?') && i + 1 < text.size() && isBlank(text[i + 1]))
      return text.substr(0, i + 1);
  }
  return text;
}

}  // namespace quillon::gateway::recall
