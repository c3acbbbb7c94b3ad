#include "QuillonMCPBridge/UnicodeText.hpp"

#include <utf8proc.h>

namespace quillon::bridge::unicode {

char32_t next(std::string_view text, std::size_t& at, bool* valid) {
  const auto byte = static_cast<unsigned char>(text[at]);
  if (byte < 0x80) {
    ++at;
    if (valid) *valid = true;
    return byte;
  }
  utf8proc_int32_t scalar = 0;
  const auto length = utf8proc_iterate(reinterpret_cast<const utf8proc_uint8_t*>(text.data() + at),
                                       static_cast<utf8proc_ssize_t>(text.size() - at), &scalar);
  if (length <= 0) {
    ++at;
    if (valid) *valid = false;
    return byte;
  }
  at += static_cast<std::size_t>(length);
  if (valid) *valid = true;
  return static_cast<char32_t>(scalar);
}

void append(std::string& out, char32_t scalar) {
  if (scalar < 0x80) {
    out.push_back(static_cast<char>(scalar));
    return;
  }
  utf8proc_uint8_t buffer[4];
  const auto length = utf8proc_encode_char(static_cast<utf8proc_int32_t>(scalar), buffer);
  out.append(reinterpret_cast<const char*>(buffer), static_cast<std::size_t>(length));
}

bool isFormat(char32_t scalar) {
  if (scalar < 0xAD) return false;  // nothing below the soft hyphen is a format character
  return utf8proc_category(static_cast<utf8proc_int32_t>(scalar)) == UTF8PROC_CATEGORY_CF;
}

bool isWhitespaceOrNewline(char32_t scalar) {
  if (scalar <= 0x20) return scalar == 0x20 || (scalar >= 0x09 && scalar <= 0x0D);
  if (scalar < 0x85) return false;
  if (scalar == 0x85) return true;
  const auto category = utf8proc_category(static_cast<utf8proc_int32_t>(scalar));
  return category == UTF8PROC_CATEGORY_ZS || category == UTF8PROC_CATEGORY_ZL || category == UTF8PROC_CATEGORY_ZP;
}

std::string removingFormatCharacters(std::string_view text) {
  std::string out;
  out.reserve(text.size());
  // Runs of kept text are copied whole: ASCII holds no format character, so only the other
  // scalars are decoded.
  std::size_t copied = 0;
  std::size_t at = 0;
  while (at < text.size()) {
    if (static_cast<unsigned char>(text[at]) < 0x80) {
      ++at;
      continue;
    }
    const std::size_t start = at;
    bool valid = true;
    const char32_t scalar = next(text, at, &valid);
    if (!valid || !isFormat(scalar)) continue;
    out.append(text.substr(copied, start - copied));
    copied = at;
  }
  out.append(text.substr(copied));
  return out;
}

std::string trimmed(std::string_view text) {
  std::size_t begin = 0;
  while (begin < text.size()) {
    std::size_t at = begin;
    bool valid = true;
    const char32_t scalar = next(text, at, &valid);
    if (!valid || !isWhitespaceOrNewline(scalar)) break;
    begin = at;
  }
  // The end: walk forward, remembering where the last non-blank scalar ended.
  std::size_t end = begin;
  std::size_t at = begin;
  while (at < text.size()) {
    bool valid = true;
    const char32_t scalar = next(text, at, &valid);
    if (!valid || !isWhitespaceOrNewline(scalar)) end = at;
  }
  return std::string(text.substr(begin, end - begin));
}

bool isBlank(std::string_view text) {
  std::size_t at = 0;
  while (at < text.size()) {
    bool valid = true;
    const char32_t scalar = next(text, at, &valid);
    if (!valid) return false;
    if (!isFormat(scalar) && !isWhitespaceOrNewline(scalar)) return false;
  }
  return true;
}

namespace {

// Byte offset where the character (grapheme cluster) after the first `count` begins, or the
// text's size when it holds no more than `count`; `seen` gets how many characters were walked.
std::size_t characterBoundary(std::string_view text, std::size_t count, std::size_t& seen) {
  std::size_t at = 0;
  seen = 0;
  utf8proc_int32_t state = 0;
  char32_t previous = 0;
  while (at < text.size()) {
    const std::size_t start = at;
    const char32_t scalar = next(text, at);
    const bool breaks = start == 0 || utf8proc_grapheme_break_stateful(static_cast<utf8proc_int32_t>(previous),
                                                                        static_cast<utf8proc_int32_t>(scalar), &state);
    if (breaks) {
      if (seen == count) return start;
      ++seen;
    }
    previous = scalar;
  }
  return text.size();
}

}  // namespace

std::string prefixCharacters(std::string_view text, std::size_t count) {
  std::size_t seen = 0;
  return std::string(text.substr(0, characterBoundary(text, count, seen)));
}

std::size_t characterCount(std::string_view text) {
  std::size_t seen = 0;
  characterBoundary(text, static_cast<std::size_t>(-1), seen);
  return seen;
}

std::vector<std::string_view> lines(std::string_view text) {
  std::vector<std::string_view> result;
  std::size_t lineStart = 0;
  std::size_t at = 0;
  while (at < text.size()) {
    const auto byte = static_cast<unsigned char>(text[at]);
    if (byte < 0x80 && (byte < 0x0A || byte > 0x0D)) {  // the common case: no separator
      ++at;
      continue;
    }
    const std::size_t start = at;
    const char32_t scalar = next(text, at);
    const bool separator = (scalar >= 0x0A && scalar <= 0x0D) || scalar == 0x85 || scalar == 0x2028 || scalar == 0x2029;
    if (!separator) continue;
    result.push_back(text.substr(lineStart, start - lineStart));
    if (scalar == 0x0D && at < text.size() && text[at] == '\n') ++at;  // CR LF is one separator
    lineStart = at;
  }
  result.push_back(text.substr(lineStart));
  return result;
}

std::string lowercased(std::string_view text) {
  std::string out;
  out.reserve(text.size());
  std::size_t at = 0;
  while (at < text.size()) {
    const std::size_t start = at;
    bool valid = true;
    const char32_t scalar = next(text, at, &valid);
    if (!valid) {
      out.append(text.substr(start, at - start));
      continue;
    }
    append(out, static_cast<char32_t>(utf8proc_tolower(static_cast<utf8proc_int32_t>(scalar))));
  }
  return out;
}

}  // namespace quillon::bridge::unicode
