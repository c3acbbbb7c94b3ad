#include "QuillonGateway/ShapeLaws.hpp"

#include <utf8proc.h>

#include <cstdio>
#include <filesystem>
#include <vector>

#include "QuillonBase/Text.hpp"

namespace quillon::gateway {

namespace {

bool isLowerWordByte(char c, bool underscores) {
  return (c >= 'a' && c <= 'z') || (c >= '0' && c <= '9') || c == '-' || (underscores && c == '_');
}

// The closest spelling that obeys a word law: ASCII lowered, blanks, dots and (when not allowed)
// underscores turned into dashes, anything else dropped, dashes not doubled nor at the ends.
std::string wordSuggestion(std::string_view given, bool underscores) {
  std::string word;
  for (char c : given) {
    if (c >= 'A' && c <= 'Z') c = static_cast<char>(c - 'A' + 'a');
    if (c == ' ' || c == '.' || c == '\t') c = underscores ? '_' : '-';
    if (c == '_' && !underscores) c = '-';
    if (!isLowerWordByte(c, underscores)) continue;
    const bool joiner = c == '-' || c == '_';
    if (joiner && (word.empty() || word.back() == '-' || word.back() == '_')) continue;
    word += c;
  }
  while (!word.empty() && (word.back() == '-' || word.back() == '_')) word.pop_back();
  return word;
}

std::vector<std::string_view> segments(std::string_view path) {
  std::vector<std::string_view> parts;
  std::size_t at = 0;
  while (at <= path.size()) {
    const auto slash = path.find('/', at);
    const auto end = slash == std::string_view::npos ? path.size() : slash;
    if (end > at) parts.push_back(path.substr(at, end - at));
    if (slash == std::string_view::npos) break;
    at = slash + 1;
  }
  return parts;
}

std::string joined(const std::vector<std::string>& parts) {
  std::string path;
  for (const auto& part : parts) path += "/" + part;
  return path.empty() ? "/" : path;
}

// Characters, not bytes: a value of forty accented letters is as short as forty plain ones.
// Blanks of every script count as spaces.
struct TokenFacts {
  std::size_t characters = 0;
  bool blank = false;
};

TokenFacts tokenFacts(std::string_view text) {
  TokenFacts facts;
  const auto* bytes = reinterpret_cast<const utf8proc_uint8_t*>(text.data());
  utf8proc_ssize_t at = 0;
  const auto size = static_cast<utf8proc_ssize_t>(text.size());
  while (at < size) {
    utf8proc_int32_t scalar = 0;
    const auto length = utf8proc_iterate(bytes + at, size - at, &scalar);
    if (length <= 0) {
      ++at;
      ++facts.characters;
      continue;
    }
    at += length;
    ++facts.characters;
    const auto category = utf8proc_category(scalar);
    if (category == UTF8PROC_CATEGORY_ZS || category == UTF8PROC_CATEGORY_ZL || category == UTF8PROC_CATEGORY_ZP ||
        category == UTF8PROC_CATEGORY_CC)
      facts.blank = true;
  }
  return facts;
}

const std::string kScopeLaw = "lowercase letters, digits and dashes, up to 3 levels (e.g. /code/quillon)";
const std::string kValueLaw =
    "a string value is ONE short token, no spaces, at most 40 characters — a status, an id, a date, a commit hash";

std::optional<std::string> tooLarge(std::string_view what, std::string_view value, std::size_t limit,
                                    std::string_view hint) {
  if (value.size() <= limit) return std::nullopt;
  return std::string(what) + " is " + ShapeLaws::size(value.size()) + ", over the " + ShapeLaws::size(limit) +
         " " + std::string(hint);
}

}  // namespace

std::string ShapeLaws::size(std::size_t bytes) {
  char text[32];
  if (bytes >= (std::size_t{1} << 20) && bytes % (std::size_t{1} << 20) != 0)
    std::snprintf(text, sizeof text, "%.1f MiB", static_cast<double>(bytes) / (1 << 20));
  else if (bytes >= (std::size_t{1} << 20))
    std::snprintf(text, sizeof text, "%zu MiB", bytes >> 20);
  else if (bytes >= 10240 || (bytes >= 1024 && bytes % 1024 == 0))
    std::snprintf(text, sizeof text, "%zu KiB", (bytes + 1023) / 1024);
  else
    std::snprintf(text, sizeof text, "%zu bytes", bytes);
  return text;
}

std::string ShapeLaws::echoed(std::string_view value, std::size_t bytes) {
  if (value.size() <= bytes) return std::string(value);
  std::size_t cut = bytes;
  while (cut > 0 && (static_cast<unsigned char>(value[cut]) & 0xC0) == 0x80) --cut;  // not inside a character
  return std::string(value.substr(0, cut)) + "…";
}

std::optional<std::string> ShapeLaws::text(std::string_view value) {
  return tooLarge("The text", value, kMaxTextBytes,
                  "a memory's text holds — keep the memory itself, and leave bulk data in files the text names.");
}

std::optional<std::string> ShapeLaws::why(std::string_view value) {
  return tooLarge("The why", value, kMaxWhyBytes, "a why holds — one line: why this is worth keeping.");
}

std::optional<std::string> ShapeLaws::title(std::string_view value) {
  return tooLarge("The title", value, kMaxTitleBytes, "a title holds — a few words that name the memory.");
}

Shaped ShapeLaws::scope(std::string_view given) {
  const std::string_view text = base::trimmed(given);
  if (text.size() > kMaxScopeBytes)
    return Shaped{.value = std::nullopt,
                  .refusal = "Scope '" + echoed(text, 60) + "' is " + size(text.size()) + ", over the " +
                             size(kMaxScopeBytes) + " a scope holds: " + kScopeLaw + "."};
  const auto parts = segments(text);
  bool lawful = true;
  std::vector<std::string> clean, suggested;
  for (auto part : parts) {
    bool partLawful = true;
    for (char c : part) partLawful = partLawful && isLowerWordByte(c, false);
    lawful = lawful && partLawful;
    clean.emplace_back(part);
    if (auto word = wordSuggestion(part, false); !word.empty()) suggested.push_back(std::move(word));
  }
  if (lawful && parts.size() <= kMaxScopeLevels) return Shaped{.value = joined(clean), .refusal = {}};
  std::string refusal = "Scope '" + std::string(text) + "' breaks the scope law: " + kScopeLaw + ".";
  if (parts.size() > kMaxScopeLevels) {
    refusal += " It has " + std::to_string(parts.size()) +
               " levels; a scope is a place the memory belongs to, never a container to stash data in — name the "
               "place and put the detail in text or filters.";
  } else if (!suggested.empty()) {
    refusal += " Try '" + joined(suggested) + "'.";
  }
  return Shaped{.value = std::nullopt, .refusal = std::move(refusal)};
}

Shaped ShapeLaws::type(std::string_view given) {
  const std::string_view text = base::trimmed(given);
  bool lawful = !text.empty() && text.size() <= kMaxWordBytes;
  for (char c : text) lawful = lawful && isLowerWordByte(c, false);
  if (lawful) return Shaped{.value = std::string(text), .refusal = {}};
  std::string refusal = "Type '" + echoed(text, 60) +
                        "' breaks the type law: one lowercase word — letters, digits, dashes (note, rule, ticket…).";
  if (auto word = wordSuggestion(text, false); !word.empty() && word.size() <= kMaxWordBytes)
    refusal += " Try '" + word + "'.";
  return Shaped{.value = std::nullopt, .refusal = std::move(refusal)};
}

std::optional<std::string> ShapeLaws::filterKey(std::string_view key) {
  bool lawful = !key.empty() && key.size() <= kMaxWordBytes;
  for (char c : key) lawful = lawful && isLowerWordByte(c, true);
  if (lawful) return std::nullopt;
  std::string refusal = "Filter key '" + echoed(key, 60) +
                        "' breaks the shape law: keys are single lowercase words (letters, digits, underscores, "
                        "dashes).";
  if (auto word = wordSuggestion(key, true); !word.empty() && word.size() <= kMaxWordBytes)
    refusal += " Try '" + word + "'.";
  return refusal;
}

std::optional<std::string> ShapeLaws::filters(const wire::Filters& filters) {
  if (filters.size() > kMaxFilters)
    return "That is " + std::to_string(filters.size()) + " filters; a memory carries at most " +
           std::to_string(kMaxFilters) + " — keep the keys you will filter by, and put the rest in text.";
  for (const auto& [key, value] : filters) {
    if (auto refusal = filterKey(key)) return refusal;
    const std::string* text = value.asString();
    if (text == nullptr) continue;
    if (text->empty())
      return "Filter '" + key + "' is empty: " + kValueLaw + ". Pass a value, or unset the key.";
    const auto facts = tokenFacts(*text);
    if (facts.blank)
      return "Filter '" + key + "' is '" + echoed(*text, 60) + "', which holds a space: " + kValueLaw +
             ". Two facts fused into one value bounce — split them into two keys (e.g. status + commit); prose "
             "belongs in text, a name in title.";
    if (facts.characters > kMaxFilterCharacters)
      return "Filter '" + key + "' is " + std::to_string(facts.characters) + " characters long: " + kValueLaw +
             ". Prose belongs in text, a name in title.";
  }
  return std::nullopt;
}

Shaped ShapeLaws::folder(std::string_view given) {
  const std::string_view text = base::trimmed(given);
  if (text.size() > kMaxFolderBytes)
    return Shaped{.value = std::nullopt,
                  .refusal = "Folder '" + echoed(text, 60) + "' is " + size(text.size()) + ", longer than any path " +
                             "can be — pass the project directory from the root."};
  if (text.empty() || text.front() != '/')
    return Shaped{.value = std::nullopt,
                  .refusal = "Folder '" + echoed(text) +
                             "' is not an absolute path — pass the project directory from the root, e.g. "
                             "/home/mq/code/quillon (expand ~ yourself)."};
  std::string normal = std::filesystem::path(text).lexically_normal().string();
  while (normal.size() > 1 && normal.back() == '/') normal.pop_back();
  return Shaped{.value = std::move(normal), .refusal = {}};
}

}  // namespace quillon::gateway
