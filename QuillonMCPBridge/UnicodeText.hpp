// Unicode facts the renderers and argument checks rely on, from utf8proc's tables: the format
// characters (general category Cf) that hide in stored text, the white-space-and-newline set that
// trimming removes, the line separators of moment text, and character (grapheme) counting.
// All functions take and return UTF-8; an ill-formed byte is passed through as it is.
#pragma once

#include <cstddef>
#include <string>
#include <string_view>
#include <vector>

namespace quillon::bridge::unicode {

// Zero-width spaces, joiners, bidirectional controls, soft hyphens…
bool isFormat(char32_t scalar);
// Blanks and line breaks: the Z categories, TAB through CR, and NEL.
bool isWhitespaceOrNewline(char32_t scalar);

std::string removingFormatCharacters(std::string_view text);
std::string trimmed(std::string_view text);
// True when nothing is left after removing format characters and trimming.
bool isBlank(std::string_view text);

// The first `count` user-perceived characters (grapheme clusters).
std::string prefixCharacters(std::string_view text, std::size_t count);
// The number of user-perceived characters (grapheme clusters).
std::size_t characterCount(std::string_view text);

// Lines split at LF, VT, FF, CR, CR LF, NEL, U+2028 and U+2029, empty lines kept.
std::vector<std::string_view> lines(std::string_view text);

std::string lowercased(std::string_view text);

// Decodes the scalar at `at`, advancing `at`; an ill-formed byte decodes as itself with `valid`
// false, so callers can copy it through unchanged.
char32_t next(std::string_view text, std::size_t& at, bool* valid = nullptr);
void append(std::string& out, char32_t scalar);

}  // namespace quillon::bridge::unicode
