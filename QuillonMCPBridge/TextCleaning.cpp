#include "QuillonMCPBridge/TextCleaning.hpp"

#include <algorithm>
#include <array>
#include <optional>
#include <utility>

#include <utf8proc.h>

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

constexpr std::string_view kGuillemetOpen = "\xE2\x80\xB9";   // ‹
constexpr std::string_view kGuillemetClose = "\xE2\x80\xBA";  // ›

// Default_Ignorable_Code_Point, reserved code points included: a renderer shows none of them, so
// whatever a later Unicode version puts there is just as invisible.
constexpr std::array<std::pair<char32_t, char32_t>, 17> kDefaultIgnorable = {{
    {0x00AD, 0x00AD}, {0x034F, 0x034F}, {0x061C, 0x061C}, {0x115F, 0x1160}, {0x17B4, 0x17B5}, {0x180B, 0x180F},
    {0x200B, 0x200F}, {0x202A, 0x202E}, {0x2060, 0x206F}, {0x3164, 0x3164}, {0xFE00, 0xFE0F}, {0xFEFF, 0xFEFF},
    {0xFFA0, 0xFFA0}, {0xFFF0, 0xFFF8}, {0x1BCA0, 0x1BCA3}, {0x1D173, 0x1D17A}, {0xE0000, 0xE0FFF},
}};

bool isDefaultIgnorable(char32_t scalar) {
  if (scalar < kDefaultIgnorable.front().first) return false;
  const auto after = std::upper_bound(kDefaultIgnorable.begin(), kDefaultIgnorable.end(), scalar,
                                      [](char32_t value, const auto& range) { return value < range.first; });
  return scalar <= std::prev(after)->second;
}

// Scalars a reader never sees: inside a tag they hide nothing from the model, so the matcher
// steps over them.
bool isInvisible(char32_t scalar) {
  if (scalar < 0x20 || (scalar >= 0x7F && scalar <= 0x9F)) return true;
  return unicode::isFormat(scalar) || isDefaultIgnorable(scalar);
}

// Blanks that may stand around the slash: a superset of what a regex \s accepts, so that no
// spelling a model would read as a tag slips through.
bool isTagBlank(char32_t scalar) { return unicode::isWhitespaceOrNewline(scalar) || isInvisible(scalar); }

// The scalar folded for comparison with a lower-case ASCII tag name: ASCII letters lower-cased,
// and any scalar whose compatibility form, case-folded, is one ASCII character taken as that
// character (full-width ｕ, LONG S, KELVIN SIGN, the full-width solidus).
char32_t folded(char32_t scalar) {
  if (scalar < 0x80) return scalar >= 'A' && scalar <= 'Z' ? scalar + 32 : scalar;
  utf8proc_int32_t decomposed[4];
  int boundary = 0;
  const auto length = utf8proc_decompose_char(static_cast<utf8proc_int32_t>(scalar), decomposed, 4,
                                              static_cast<utf8proc_option_t>(UTF8PROC_DECOMPOSE | UTF8PROC_COMPAT |
                                                                             UTF8PROC_CASEFOLD),
                                              &boundary);
  if (length != 1 || decomposed[0] >= 0x80) return scalar;
  const auto ascii = static_cast<char32_t>(decomposed[0]);
  return ascii >= 'A' && ascii <= 'Z' ? ascii + 32 : ascii;
}

// Length of the bracket at `at` when it opens (or closes) a tag, else 0. Besides the ASCII one,
// the full-width and small forms count: they are the only scalars whose compatibility form is
// an angle bracket, and a model reads them as one.
std::size_t openingBracket(std::string_view text, std::size_t at) {
  if (text[at] == '<') return 1;
  const std::string_view wide = text.substr(at, 3);
  return wide == "\xEF\xBC\x9C" || wide == "\xEF\xB9\xA4" ? 3 : 0;  // U+FF1C, U+FE64
}

std::size_t closingBracket(std::string_view text, std::size_t at) {
  if (text[at] == '>') return 1;
  const std::string_view wide = text.substr(at, 3);
  return wide == "\xEF\xBC\x9E" || wide == "\xEF\xB9\xA5" ? 3 : 0;  // U+FF1E, U+FE65
}

// A framing tag, or the start of one that runs to the end of the text still open.
struct Tag {
  std::size_t begin = 0;       // the opening bracket
  std::size_t bracketEnd = 0;  // just after it
  bool closing = false;
  std::size_t nameBegin = 0;
  std::size_t nameEnd = 0;                   // the name as it stands in the text, invisibles included
  std::size_t end = std::string_view::npos;  // just after the closing bracket; npos while open

  bool open() const { return end == std::string_view::npos; }
};

// Finds tags left to right. One attribute run reaches to the first closing bracket, so every
// bracket search resumes where the last one stopped and the scan stays linear.
class TagScanner {
 public:
  explicit TagScanner(std::string_view text) : text_(text) {}

  std::optional<Tag> next(std::size_t from) {
    while (from < text_.size()) {
      const std::size_t open = text_.find_first_of("<\xEF", from);
      if (open == std::string_view::npos) return std::nullopt;
      const std::size_t bracket = openingBracket(text_, open);
      from = open + 1;
      if (bracket == 0) continue;
      if (auto tag = tagAt(open, bracket)) return tag;
      from = open + bracket;
    }
    return std::nullopt;
  }

 private:
  std::optional<Tag> tagAt(std::size_t open, std::size_t bracket) {
    Tag tag{.begin = open, .bracketEnd = open + bracket};
    std::size_t at = tag.bracketEnd;
    // The next scalar that is not skipped, folded; nullopt when the text ends first.
    const auto visible = [&](auto skipped) -> std::optional<char32_t> {
      while (at < text_.size()) {
        std::size_t probe = at;
        bool valid = true;
        const char32_t scalar = unicode::next(text_, probe, &valid);
        if (valid && skipped(scalar)) {
          at = probe;
          continue;
        }
        return valid ? folded(scalar) : 0xFFFD;
      }
      return std::nullopt;
    };
    const auto consume = [&] { unicode::next(text_, at); };

    auto scalar = visible(isTagBlank);
    if (scalar && *scalar == '/') {
      tag.closing = true;
      consume();
      scalar = visible(isTagBlank);
    }
    // Built one letter at a time against every name at once: the text may end after any
    // prefix of a name, and then the bracket is still open.
    tag.nameBegin = at;
    std::string name;
    while (true) {
      if (!scalar) return tag;  // ends inside the name: open
      if (*scalar >= 0x80) return std::nullopt;
      name.push_back(static_cast<char>(*scalar));
      consume();
      const auto* known = std::find_if(kTagNames.begin(), kTagNames.end(),
                                       [&](std::string_view candidate) { return candidate.starts_with(name); });
      if (known == kTagNames.end()) return std::nullopt;
      if (*known == name) break;
      scalar = visible(isInvisible);
    }
    tag.nameEnd = at;
    const std::size_t close = closingAfter(at);
    if (close != std::string_view::npos) tag.end = close + closingBracket(text_, close);
    return tag;
  }

  // The first closing bracket at or after `from`. Callers ask with `from` never going back, so
  // the last answer stands while it lies ahead.
  std::size_t closingAfter(std::size_t from) {
    if (asked_ && from >= askedFrom_ && (found_ == std::string_view::npos || found_ >= from)) return found_;
    asked_ = true;
    askedFrom_ = from;
    for (std::size_t at = from;; ++at) {
      at = text_.find_first_of(">\xEF", at);
      if (at == std::string_view::npos || closingBracket(text_, at) != 0) return found_ = at;
    }
  }

  std::string_view text_;
  bool asked_ = false;
  std::size_t askedFrom_ = 0;
  std::size_t found_ = std::string_view::npos;
};

void appendVisible(std::string& out, std::string_view text) {
  std::size_t at = 0;
  while (at < text.size()) {
    const std::size_t start = at;
    bool valid = true;
    const char32_t scalar = unicode::next(text, at, &valid);
    if (!valid || !isInvisible(scalar)) out.append(text.substr(start, at - start));
  }
}

}  // namespace

std::string defangEnvelope(std::string_view raw) {
  const std::string text = unicode::removingFormatCharacters(raw);
  if (text.find_first_of("<\xEF") == std::string::npos) return text;

  std::string out;
  out.reserve(text.size() + 16);
  TagScanner scanner(text);
  std::size_t copied = 0;  // text[copied, at) is waiting to be appended unchanged
  std::size_t at = 0;
  while (const auto tag = scanner.next(at)) {
    out.append(text, copied, tag->begin - copied);
    out.append(kGuillemetOpen);
    if (tag->open()) {
      // Only the bracket goes: the rest is ordinary text once nothing can close it.
      at = copied = tag->bracketEnd;
      continue;
    }
    if (tag->closing) out.push_back('/');
    appendVisible(out, std::string_view(text).substr(tag->nameBegin, tag->nameEnd - tag->nameBegin));
    out.append(kGuillemetClose);
    at = copied = tag->end;
  }
  out.append(text, copied, std::string::npos);
  return out;
}

bool forgesFramingTag(std::string_view text) { return TagScanner(text).next(0).has_value(); }

}  // namespace quillon::bridge
