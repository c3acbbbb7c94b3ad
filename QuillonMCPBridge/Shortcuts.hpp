// Shortcuts and the front-door menu: the quillon-shortcut block that the recall lane hands to
// prompt hooks when the user's message fired a saved shortcut ("\name ..."), asked to see one
// ("\? name"), the plain list ("\") or the menu ("?" or "\?").
//
// Every block tells the model exactly what to do this turn. Names, bodies and other stored texts
// pass defangEnvelope, so they can never open or close the block's own tags. Lines are joined
// with LF; the renderers never fail.
#pragma once

#include <array>
#include <optional>
#include <string>
#include <vector>

#include "QuillonWire/AnswerRecords.hpp"

namespace quillon::bridge {

// The block to inject, or nothing (no injection, or shortcuts the gateway could not read).
std::optional<std::string> renderShortcut(const std::optional<wire::ShortcutInjection>& injection);

// "\name — when", with a warning when several shortcuts carry the name.
std::string listLine(const wire::ShortcutRow& row);
std::string renderDetail(const wire::ShortcutDetail& detail);
std::string renderFrontDoor(const std::vector<wire::ShortcutRow>& rows, const wire::ShortcutCard& card);

// The "YOUR SHORTCUTS" lines, wrapped so that no line reaches 77 characters unless one name
// alone is that long; continuation lines are indented by 17 blanks under the first name.
std::vector<std::string> yoursBlock(const std::vector<std::string>& names);
// "Moments 12.3k • Memories 950 • v1.4 (812)", or nothing when there is nothing to count.
std::optional<std::string> statsLine(const wire::ShortcutCard& card);
// The model-only orders for the menu's four letters; they name runbooks by absolute path.
std::array<std::string, 4> frontDoorOrders();

}  // namespace quillon::bridge
