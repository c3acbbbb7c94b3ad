// Shortcuts: what a prompt asks of the user's saved shortcuts, read the way the user types them.
//
// "\name" or "\name rest" fires the newest shortcut saved under that name (any case), with the
// rest as its argument; a lone "\" lists them; a lone "?" or "\?" opens the front door (the menu
// with the scope and the counts); "\? name" shows one without running it. A "\name" that names no
// shortcut is an ordinary prompt. Shortcuts are memories of type "shortcut" whose `name` filter
// holds the name; the newest of a name is the one used.
#pragma once

#include <optional>
#include <string>
#include <string_view>

#include "QuillonWire/AnswerRecords.hpp"

namespace quillon::gateway {

struct VerbContext;

// What a prompt asks, before any store is read.
struct ShortcutAsk {
  enum class Kind { fire, list, frontDoor, detail };
  Kind kind = Kind::list;
  std::string name;                     // fire, detail
  std::optional<std::string> argument;  // fire: the rest of the prompt, when there is any
};

// Nothing when the prompt is an ordinary one.
std::optional<ShortcutAsk> shortcutAsk(std::string_view prompt);

// The injection for what was asked, nothing when the named shortcut does not exist; `unreadable`
// when the store fails. `scope` is the caller's, for the front door.
std::optional<wire::ShortcutInjection> shortcutInjection(VerbContext& context, const ShortcutAsk& ask,
                                                         const std::string& scope);

}  // namespace quillon::gateway
