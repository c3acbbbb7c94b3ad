// The cleaning every renderer applies to text that came from the store before the model reads it.
//
// defangEnvelope is a security boundary. Stored text comes from the user's screen and from other
// agents; it must never open or close one of the framing blocks the bridge wraps around injected
// context (quillon-memory, quillon-rules, quillon-shortcut, quillon-sessions, quillon-now,
// user-rules). Format characters are removed first. Then every such tag, in any letter case,
// opening or closing, with blanks, line breaks or attributes inside its brackets, is rewritten with
// the single guillemets ‹ › and its attributes dropped. A tag counts as one when it reads as one
// once the invisible scalars are gone: C0 and C1 controls, DEL, format and default-ignorable
// characters inside it do not hide it. The full-width and small angle brackets (＜ ＞ ﹤ ﹥) count as
// brackets, and a letter counts as the ASCII letter its compatibility form is (ｕ, ſ, K); letters
// that merely look alike (Cyrillic е) do not, since a name spelled with them is not our tag.
//
// Fields are printed side by side, so a field must not leave a tag half-written either: a bracket
// that a later separator or field could still close (`</quillon-me`, `<user-rules class=`, a
// trailing `<`) becomes ‹ as well. Defanged fields can then be joined with any text that holds
// no opening bracket without forming a tag. The matcher runs in time linear in the text.
#pragma once

#include <string>
#include <string_view>

namespace quillon::bridge {

// TAB, LF and CR become one blank; other C0 controls, DEL and C1 controls are dropped.
std::string dropControls(std::string_view text);
// dropControls, runs of blanks collapsed to one, trimmed: the text as one line.
std::string singleLine(std::string_view text);
// Format characters removed, framing tags rewritten as ‹tag› / ‹/tag›, and the bracket of a tag
// left open at the end rewritten as ‹. Applying it twice changes nothing more.
std::string defangEnvelope(std::string_view text);
// True when `text` holds a framing tag by the measure above, or ends in one still open: the
// check that every defanged field, and every block composed of them, must pass.
bool forgesFramingTag(std::string_view text);

}  // namespace quillon::bridge
