#include "QuillonMCPBridge/TextCleaning.hpp"

#include <array>
#include <cstring>

#include "QuillonMCPBridge/UnicodeText.hpp"

namespace quillon::bridge {

std::string dropControls(std::string_view text) {
  std::string out;
  out.reserve(text.size());
  // Runs of kept text are copied whole; only controls and non-ASCII scalars are decoded.
  std::size_t copied = 0;
  std::size_t at = 0;
  while (at < text.size()) {
    const auto byte = static_cast<unsigned char>(text[at]);
    if (byte >= 0x20 && byte < 0x7F) {
      ++at;
      continue;
    }
    const std::size_t start = at;
    bool valid = true;
    const char32_t scalar = unicode::next(text, at, &valid);
    const bool blank = scalar == '\t' || scalar == '\n' || scalar == '\r';
    const bool control = scalar < 0x20 || (scalar >= 0x7F && scalar <= 0x9F);
    if (!valid || !control) continue;  // ill-formed bytes pass through as they are
    out.append(text.substr(copied, start - copied));
    if (blank) out.push_back(' ');
    copied = at;
  }
  out.append(text.substr(copied));
  return out;
}

std::string singleLine(std::string_view text) {
  const std::string plain = dropControls(text);
  std::string joined;
  joined.reserve(plain.size());
  std::size_t at = 0;
  while (at < plain.size()) {
    const std::size_t blank = plain.find(' ', at);
    const std::size_t end = blank == std::string::npos ? plain.size() : blank;
    if (end > at) {
      if (!joined.empty()) joined.push_back(' ');
      joined.append(plain, at, end - at);
    }
    at = end + 1;
  }
  return unicode::trimmed(joined);
}

namespace {

// The framing tags, lower case. A tag matches when its name starts one of these.
constexpr std::array<std::string_view, 6> kTagNames = {"quillon-memory", "quillon-rules",    "quillon-shortcut",
                                                       "quillon-sessions", "quillon-now", "user-rules"};

// Blanks that may stand around the slash: a superset of what a regex \s accepts, so that no
// spelling a model would read as a tag slips through.
bool isTagBlank(char32_t scalar) { return unicode::isWhitespaceOrNewline(scalar); }

// The scalar folded for comparison with a lower-case ASCII tag name: ASCII letters lower-cased,
// and the two letters whose case folding lands in ASCII (LONG S → s, KELVIN SIGN → k).
char32_t folded(char32_t scalar) {
  if (scalar >= 'A' && scalar <= 'Z') return scalar + 32;
  if (scalar == 0x017F) return 's';
  if (scalar == 0x212A) return 'k';
  return scalar;
}

// Length in bytes of the tag name at `at` (as it stands in the text), or 0 when none starts there.
std::size_t tagNameLength(std::string_view text, std::size_t at) {
  for (const auto name : kTagNames) {
    std::size_t position = at;
    std::size_t matched = 0;
    while (matched < name.size() && position < text.size()) {
      bool valid = true;
      const char32_t scalar = unicode::next(text, position, &valid);
      if (!valid || folded(scalar) != static_cast<char32_t>(name[matched])) break;
      ++matched;
    }
    if (matched == name.size()) return position - at;
  }
  return 0;
}

}  // namespace

std::string defangEnvelope(std::string_view raw) {
  const std::string text = unicode::removingFormatCharacters(raw);
  if (text.find('<') == std::string::npos) return text;

  std::string out;
  out.reserve(text.size() + 16);
  std::size_t copied = 0;  // text[copied, at) is waiting to be appended unchanged
  std::size_t at = 0;
  // Once no '>' lies ahead, no tag can close: the rest is copied as it is.
  while (true) {
    const std::size_t open = text.find('<', at);
    if (open == std::string::npos) break;
    std::size_t cursor = open + 1;
    const auto skipBlanks = [&] {
      while (cursor < text.size()) {
        std::size_t probe = cursor;
        bool valid = true;
        const char32_t scalar = unicode::next(text, probe, &valid);
        if (!valid || !isTagBlank(scalar)) break;
        cursor = probe;
      }
    };
    skipBlanks();
    const bool closing = cursor < text.size() && text[cursor] == '/';
    if (closing) {
      ++cursor;
      skipBlanks();
    }
    const std::size_t nameLength = tagNameLength(text, cursor);
    if (nameLength == 0) {
      at = open + 1;
      continue;
    }
    const std::size_t close = text.find('>', cursor + nameLength);
    if (close == std::string::npos) break;
    out.append(text, copied, open - copied);
    out.append("\xE2\x80\xB9");  // ‹
    if (closing) out.push_back('/');
    out.append(text, cursor, nameLength);
    out.append("\xE2\x80\xBA");  // ›
    at = copied = close + 1;
  }
  out.append(text, copied, std::string::npos);
  return out;
}

std::string grouped(std::int64_t n) {
  // Digits of |n|; the most negative value has no positive twin, so work on the unsigned form.
  std::uint64_t magnitude = n < 0 ? ~static_cast<std::uint64_t>(n) + 1 : static_cast<std::uint64_t>(n);
  std::string digits = std::to_string(magnitude);
  std::string out;
  if (n < 0) out.push_back('-');
  const std::size_t lead = digits.size() % 3 == 0 ? 3 : digits.size() % 3;
  out.append(digits, 0, lead);
  for (std::size_t i = lead; i < digits.size(); i += 3) {
    out.push_back(',');
    out.append(digits, i, 3);
  }
  return out;
}

}  // namespace quillon::bridge
