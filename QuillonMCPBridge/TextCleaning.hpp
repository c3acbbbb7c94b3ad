// The cleaning every renderer applies to text that came from the store before the model reads it.
//
// defangEnvelope is a security boundary. Stored text comes from the user's screen and from other
// agents; it must never open or close one of the framing blocks the bridge wraps around injected
// context (quillon-memory, quillon-rules, quillon-shortcut, quillon-sessions, quillon-now,
// user-rules). Format characters are removed first, so a zero-width or bidirectional character
// inside a tag name cannot hide it; then every such tag, in any letter case, opening or closing,
// with blanks, line breaks or attributes inside its brackets, is rewritten with the single
// guillemets ‹ › and its attributes dropped. The matcher runs in time linear in the text.
#pragma once

#include <cstdint>
#include <string>
#include <string_view>

namespace quillon::bridge {

// TAB, LF and CR become one blank; other C0 controls, DEL and C1 controls are dropped.
std::string dropControls(std::string_view text);
// dropControls, runs of blanks collapsed to one, trimmed: the text as one line.
std::string singleLine(std::string_view text);
// Format characters removed and framing tags rewritten as ‹tag› / ‹/tag›.
std::string defangEnvelope(std::string_view text);
// 16000 → "16,000"; -1234 → "-1,234".
std::string grouped(std::int64_t n);

}  // namespace quillon::bridge
