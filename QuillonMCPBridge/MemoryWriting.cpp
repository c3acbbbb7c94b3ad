#include "QuillonMCPBridge/MemoryWriting.hpp"

#include "QuillonMCPBridge/FallbackAnswers.hpp"
#include "QuillonMCPBridge/MemoryFilters.hpp"
#include "QuillonMCPBridge/TextCleaning.hpp"
#include "QuillonMCPBridge/ToolResult.hpp"
#include "QuillonMCPBridge/UnicodeText.hpp"

namespace quillon::bridge {

using nlohmann::json;
namespace notes = wire::notes;

namespace {

bool emptyWhenTrimmed(const std::string& text) { return unicode::trimmed(text).empty(); }

// An array of strings, or nothing when the value is anything else.
std::optional<std::vector<std::string>> stringArray(const json& value) {
  if (!value.is_array()) return std::nullopt;
  std::vector<std::string> out;
  out.reserve(value.size());
  for (const auto& item : value) {
    if (!item.is_string()) return std::nullopt;
    out.push_back(item.get<std::string>());
  }
  return out;
}

}  // namespace

Prepared prepareMemoryAdd(const ToolCall& call) {
  const auto text = call.s("text");
  if (!text || emptyWhenTrimmed(*text))
    return Refusal{"memory_add needs a non-empty 'text' \xE2\x80\x94 the memory itself."};
  const auto why = call.s("why");
  if (!why || emptyWhenTrimmed(*why)) return Refusal{"memory_add needs 'why' \xE2\x80\x94 one line: why this is worth keeping."};
  std::optional<wire::Filters> filters;
  if (auto refusal = readFilters(call, "filters", filters)) return std::move(*refusal);
  return notesRequest(notes::Write{.text = *text,
                                   .why = *why,
                                   .writer = call.writer(),
                                   .type = call.s("type").value_or("note"),
                                   // No scope: the gateway files under the session's scope, or "/".
                                   .path = call.s("scope").value_or(""),
                                   .filters = std::move(filters),
                                   .title = call.opt("title"),
                                   .session = call.sessionArg(),
                                   .subagent = call.subagent});
}

Prepared prepareMemoryEdit(const ToolCall& call) {
  const auto id = call.opt("id");
  if (!id) return Refusal{"memory_edit needs an 'id' like m:41."};
  const auto text = call.s("text");
  const auto why = call.s("why");
  const auto type = call.s("type");
  const auto scope = call.s("scope");
  const json* title = call.given("title");
  const json* filtersGiven = call.given("filters");
  if (!text && !why && !type && !scope && filtersGiven == nullptr && title == nullptr)
    return Refusal{"memory_edit needs 'text', 'why', 'type', 'scope', 'filters' or 'title' \xE2\x80\x94 the field(s) to change. The id stays."};
  // An empty field would wipe the stored one; the agent almost always meant to leave it alone.
  if (text && emptyWhenTrimmed(*text))
    return Refusal{"memory_edit's 'text' is empty \xE2\x80\x94 omit it to keep the current text, or pass the new memory."};
  if (why && emptyWhenTrimmed(*why))
    return Refusal{"memory_edit's 'why' is empty \xE2\x80\x94 omit it to keep the current why, or pass the new one."};
  if (type && emptyWhenTrimmed(*type))
    return Refusal{"memory_edit's 'type' is empty \xE2\x80\x94 omit it to keep the current type, or pass note/rule."};
  if (scope && emptyWhenTrimmed(*scope))
    return Refusal{"memory_edit's 'scope' is empty \xE2\x80\x94 omit it to keep the current scope, or pass a new one."};
  // The title alone may be empty: that clears it, and the card shows one derived from the text.
  if (title != nullptr && !title->is_string())
    return Refusal{"memory_edit's 'title' must be a string \xE2\x80\x94 a short label, or \"\" to clear the title."};
  std::optional<wire::Filters> filters;
  if (auto refusal = readFilters(call, "filters", filters)) return std::move(*refusal);
  return notesRequest(notes::Edit{.id = *id,
                                  .text = text,
                                  .why = why,
                                  .type = type,
                                  .path = scope,
                                  .filters = std::move(filters),
                                  .title = call.s("title")});
}

Prepared prepareMemoryPatch(const ToolCall& call) {
  const auto id = call.opt("id");
  if (!id) return Refusal{"memory_patch needs an 'id' like m:41."};
  const auto find = call.opt("find");
  if (!find) return Refusal{"memory_patch needs 'find' \xE2\x80\x94 the exact phrase to change."};
  const auto replace = call.s("replace");  // "" deletes the phrase
  if (!replace) return Refusal{"memory_patch needs 'replace' \xE2\x80\x94 the new wording (pass \"\" to delete the phrase)."};
  return notesRequest(notes::Patch{.id = *id,
                                   .field = call.s("field").value_or("text"),
                                   .find = *find,
                                   .replace = *replace,
                                   .replaceAll = call.flag("replace_all")});
}

Prepared prepareMemoryEditFilters(const ToolCall& call) {
  const auto id = call.opt("id");
  if (!id) return Refusal{"memory_edit_filters needs an 'id' like m:41."};
  std::optional<wire::Filters> set;
  if (auto refusal = readFilters(call, "set", set)) return std::move(*refusal);
  std::optional<std::vector<std::string>> unset;
  if (const json* keys = call.given("unset")) {
    unset = stringArray(*keys);
    if (!unset)
      return Refusal{"memory_edit_filters' 'unset' must be an array of key names, e.g. [\"urgent\"]."};
  }
  if (!set && !unset)
    return Refusal{"memory_edit_filters needs 'set' (keys to add/change) or 'unset' (keys to remove)."};
  return notesRequest(notes::EditFilters{.id = *id, .set = std::move(set), .unset = std::move(unset)});
}

Prepared prepareMemoryDelete(const ToolCall& call) {
  const auto id = call.opt("id");
  if (!id) return Refusal{"memory_delete needs an 'id' like m:41."};
  return notesRequest(notes::Delete{.id = *id});
}

Prepared prepareScopeMapFolder(const ToolCall& call) {
  const auto folder = call.opt("folder");
  if (!folder) return Refusal{"scope_map_folder needs a 'folder' \xE2\x80\x94 the absolute project directory path."};
  const auto scope = call.opt("scope");
  if (!scope)
    return Refusal{"scope_map_folder needs a 'scope' \xE2\x80\x94 the memory scope to map the folder to, e.g. /code."};
  return notesRequest(notes::MapPath{.folder = *folder, .path = *scope});
}

Prepared prepareScopeSetForSession(const ToolCall& call) {
  const auto scope = call.opt("scope");
  if (!scope)
    return Refusal{"scope_set_for_session needs a 'scope' \xE2\x80\x94 the memory scope to work under, e.g. /code/quillon."};
  return notesRequest(notes::SetPath{.path = *scope, .writer = call.writer(), .session = call.sessionArg()});
}

Prepared prepareModInstall(const ToolCall& call) {
  const auto name = call.opt("name");
  if (!name) return Refusal{"mod_install needs a 'name': which shipped mod to install (the shelf holds: tasks)."};
  return notesRequest(notes::ModInstall{.name = *name, .writer = call.writer()});
}

Prepared prepareSelfNames(const ToolCall& call) {
  // Without names the gateway answers with the current list.
  const json* given = call.given("names");
  if (given == nullptr) return notesRequest(notes::SelfNames{});
  auto names = stringArray(*given);
  if (!names)
    return Refusal{"self_names' 'names' must be an array of names, e.g. [\"Mara Quint\", \"MQ4411\"]."};
  return notesRequest(notes::SelfNames{.names = std::move(names)});
}

Prepared prepareScopeListAll(const ToolCall&) { return notesRequest(notes::ListPaths{}); }

json noteWritten(const wire::GatewayResponse& response) { return rendered(response, Defang::yes); }

json noteText(const wire::GatewayResponse& response) { return rendered(response, Defang::yes); }

json noteEdited(const wire::GatewayResponse& response) {
  const auto* updated = std::get_if<wire::answer::NoteID>(&response.value);
  if (updated == nullptr) return rendered(response, Defang::yes);
  std::string text = "Updated " + updated->id + ".";
  if (updated->echo) {
    for (const auto& line : *updated->echo) {
      text += '\n';
      text += line;
    }
  }
  return textContent(defangEnvelope(text));
}

json noteDeleted(const wire::GatewayResponse& response) {
  if (std::holds_alternative<wire::answer::Ok>(response.value)) return textContent("Deleted.");
  return fallback(response);
}

}  // namespace quillon::bridge
