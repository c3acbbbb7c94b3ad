#include "QuillonKit/MCPGatewayName.hpp"

#include <array>

#include "QuillonWire/ClientInstance.hpp"

namespace quillon::kit {

namespace {

// Besides ASCII white space, the Unicode white space and line breaks a pasted value may carry: next line,
// no-break space, the typographic spaces, line and paragraph separators, ideographic space.
constexpr std::array<std::string_view, 19> kUnicodeBlanks = {
    "\xC2\x85",     "\xC2\xA0",     "\xE1\x9A\x80", "\xE2\x80\x80", "\xE2\x80\x81", "\xE2\x80\x82", "\xE2\x80\x83",
    "\xE2\x80\x84", "\xE2\x80\x85", "\xE2\x80\x86", "\xE2\x80\x87", "\xE2\x80\x88", "\xE2\x80\x89", "\xE2\x80\x8A",
    "\xE2\x80\xA8", "\xE2\x80\xA9", "\xE2\x80\xAF", "\xE2\x81\x9F", "\xE3\x80\x80"};

bool isASCIIBlank(char c) { return c == ' ' || c == '\t' || c == '\n' || c == '\r' || c == '\v' || c == '\f'; }

// The length of the blank at the start (or, with `atEnd`, the end) of `text`, 0 when none.
std::size_t blankLength(std::string_view text, bool atEnd) {
  if (text.empty()) return 0;
  if (isASCIIBlank(atEnd ? text.back() : text.front())) return 1;
  for (const std::string_view blank : kUnicodeBlanks)
    if (atEnd ? text.ends_with(blank) : text.starts_with(blank)) return blank.size();
  return 0;
}

std::string_view trimmed(std::string_view text) {
  while (const std::size_t n = blankLength(text, false)) text.remove_prefix(n);
  while (const std::size_t n = blankLength(text, true)) text.remove_suffix(n);
  return text;
}

}  // namespace

const std::string& MCPGatewayName::testPrefix() {
  static const std::string prefix = std::string(wire::ClientInstance::bundlePrefix) + ".test.";
  return prefix;
}

std::string MCPGatewayName::resolve(const Environment& environment) {
  const auto value = environment(overrideKey);
  if (!value) return wire::ClientInstance::gatewayID();
  const std::string_view name = trimmed(*value);
  if (name.size() > testPrefix().size() && name.starts_with(testPrefix())) return std::string(name);
  return wire::ClientInstance::gatewayID();
}

}  // namespace quillon::kit
