#include "QuillonGateway/StoreVerbs.hpp"

#include <set>

#include "QuillonBase/Text.hpp"
#include "QuillonGateway/MemoryStore.hpp"
#include "QuillonGateway/ModShelf.hpp"
#include "QuillonGateway/ShapeLaws.hpp"
#include "QuillonGateway/Sqlite.hpp"
#include "QuillonGateway/StoreWording.hpp"

namespace quillon::gateway {

namespace {

// The author of what the gateway writes itself (the shipped mods).
constexpr std::string_view kOwnWriter = "quillon";

// An echo line quotes a changed text only this far: enough for the agent to see the change took,
// and a 1 MiB text is not sent back whole.
constexpr std::size_t kMaxEchoBytes = 2000;

std::optional<std::string> oversized(std::string_view text, std::string_view why,
                                     const std::optional<std::string>& title) {
  if (auto refusal = ShapeLaws::text(text)) return refusal;
  if (auto refusal = ShapeLaws::why(why)) return refusal;
  if (title) return ShapeLaws::title(base::trimmed(*title));
  return std::nullopt;
}

std::size_t occurrences(std::string_view haystack, std::string_view needle) {
  std::size_t count = 0;
  for (auto at = haystack.find(needle); at != std::string_view::npos; at = haystack.find(needle, at + needle.size()))
    ++count;
  return count;
}

std::string replaced(std::string_view haystack, std::string_view needle, std::string_view replacement) {
  std::string result;
  std::size_t from = 0;
  for (auto at = haystack.find(needle); at != std::string_view::npos; at = haystack.find(needle, from)) {
    result.append(haystack.substr(from, at - from)).append(replacement);
    from = at + needle.size();
  }
  return result.append(haystack.substr(from));
}

}  // namespace

GatewayResponse answer(VerbContext& context, const wire::notes::Write& write) {
  if (base::trimmed(write.text).empty()) return failure("A memory needs 'text' — the memory itself, not empty.");
  if (base::trimmed(write.why).empty()) return failure("A memory needs 'why' — one line: why this is worth keeping.");
  if (auto refusal = oversized(write.text, write.why, write.title)) return failure(*refusal);
  const auto type = base::trimmed(write.type).empty() ? Shaped{.value = "note", .refusal = {}} : ShapeLaws::type(write.type);
  if (!type.value) return failure(type.refusal);
  if (write.filters)
    if (auto refusal = ShapeLaws::filters(*write.filters)) return failure(*refusal);

  auto transaction = context.store.beginWrite();
  std::string scope = "/", whence;
  if (*type.value == "shortcut") {
    // A shortcut is typed by name anywhere, so it lives at the root whatever scope was passed.
    if (!base::trimmed(write.path).empty() && base::trimmed(write.path) != "/") whence = " — shortcuts always live at /";
  } else if (base::trimmed(write.path).empty()) {
    if (auto declared = context.store.sessionScope(sessionKey(write.session, write.writer),
                                            context.now - StoreGateway::kSessionScopeSeconds)) {
      scope = *declared;
      whence = ", the session's scope";
    }
  } else {
    const auto shaped = ShapeLaws::scope(write.path);
    if (!shaped.value) return failure(shaped.refusal);
    scope = *shaped.value;
    if (scope != "/" && !context.store.scopeLives(scope))
      whence = " — a new scope; scope_list_all shows the scopes that already exist";
  }

  Memory memory;
  memory.type = *type.value;
  memory.scope = scope;
  memory.text = write.text;
  memory.why = write.why;
  if (write.title && !base::trimmed(*write.title).empty()) memory.title = base::trimmed(*write.title);
  memory.writer = write.writer;
  memory.session = write.session;
  memory.subagent = write.subagent;
  memory.created = context.now;
  if (write.filters) memory.filters = pairs(*write.filters);
  const auto id = context.store.insert(memory);
  transaction->commit();
  return text("Saved " + memoryID(id) + " (" + memory.type + ") under " + scope + whence + ".");
}

GatewayResponse answer(VerbContext& context, const wire::notes::Delete& request) {
  const auto id = parseMemoryID(request.id);
  if (!id) return failure(notAnID(request.id));
  auto transaction = context.store.beginWrite();
  if (!context.store.remove(*id)) return failure(noSuchMemory(request.id));
  transaction->commit();
  return GatewayResponse{wire::answer::Ok{}};
}

GatewayResponse answer(VerbContext& context, const wire::notes::Edit& edit) {
  const auto id = parseMemoryID(edit.id);
  if (!id) return failure(notAnID(edit.id));
  if (!edit.text && !edit.why && !edit.type && !edit.path && !edit.filters && !edit.title)
    return failure("Nothing to change in " + edit.id +
                   " — pass text, why, title, type, scope or filters: the field(s) to change. The id stays.");
  if (edit.text && base::trimmed(*edit.text).empty())
    return failure("The new text is empty — omit text to keep the current one, or pass the new memory.");
  if (edit.why && base::trimmed(*edit.why).empty())
    return failure("The new why is empty — omit why to keep the current one, or pass the new line.");
  if (auto refusal = oversized(edit.text.value_or(""), edit.why.value_or(""), edit.title)) return failure(*refusal);
  std::optional<std::string> type, scope;
  if (edit.type) {
    const auto shaped = ShapeLaws::type(*edit.type);
    if (!shaped.value) return failure(shaped.refusal);
    type = shaped.value;
  }
  if (edit.path) {
    const auto shaped = ShapeLaws::scope(*edit.path);
    if (!shaped.value) return failure(shaped.refusal);
    scope = shaped.value;
  }
  if (edit.filters)
    if (auto refusal = ShapeLaws::filters(*edit.filters)) return failure(*refusal);

  auto transaction = context.store.beginWrite();
  auto memory = context.store.find(*id);
  if (!memory) return failure(noSuchMemory(edit.id));
  std::vector<std::string> echo;
  if (edit.text) {
    memory->text = *edit.text;
    echo.push_back("text: " + ShapeLaws::echoed(memory->text, kMaxEchoBytes));
  }
  if (edit.why) {
    memory->why = *edit.why;
    echo.push_back("why: " + ShapeLaws::echoed(memory->why, kMaxEchoBytes));
  }
  if (edit.title) {
    if (base::trimmed(*edit.title).empty()) {
      memory->title.reset();
      echo.push_back("title: cleared — cards show a title made from the text");
    } else {
      memory->title = base::trimmed(*edit.title);
      echo.push_back("title: " + *memory->title);
    }
  }
  if (type) {
    memory->type = *type;
    echo.push_back("type: " + *type);
  }
  if (scope) {
    const bool isNew = *scope != "/" && *scope != memory->scope && !context.store.scopeLives(*scope);
    memory->scope = *scope;
    echo.push_back("scope: " + *scope + (isNew ? " (a new scope)" : ""));
  }
  if (memory->type == "shortcut" && memory->scope != "/") {
    memory->scope = "/";
    echo.push_back("scope: / — shortcuts always live at /");
  }
  if (edit.filters) {
    memory->filters = pairs(*edit.filters);
    echo.push_back("filters: " + filterList(memory->filters));
  }
  memory->edited = context.now;
  context.store.update(*memory);
  transaction->commit();
  return GatewayResponse{wire::answer::NoteID{.id = edit.id, .echo = std::move(echo)}};
}

GatewayResponse answer(VerbContext& context, const wire::notes::Patch& patch) {
  const auto id = parseMemoryID(patch.id);
  if (!id) return failure(notAnID(patch.id));
  const std::string field(base::trimmed(patch.field).empty() ? "text" : base::trimmed(patch.field));
  if (field != "text" && field != "why" && field != "title")
    return failure("Can't patch field '" + ShapeLaws::echoed(patch.field, 60) + "' — pass field text (the default), why or title.");
  if (patch.find.empty()) return failure("'find' is empty — pass the exact phrase to change.");

  auto transaction = context.store.beginWrite();
  auto memory = context.store.find(*id);
  if (!memory) return failure(noSuchMemory(patch.id));
  if (field == "title" && !memory->title)
    return failure(patch.id + " has no title of its own to patch — set one with memory_edit's title.");
  std::string& value = field == "text" ? memory->text : field == "why" ? memory->why : *memory->title;
  const std::size_t count = occurrences(value, patch.find);
  if (count == 0)
    return failure("'" + ShapeLaws::echoed(patch.find) + "' does not appear in " + patch.id + "'s " + field +
                   " — matching is exact, including case. grab " + patch.id + " to read it as stored.");
  if (count > 1 && !patch.replaceAll)
    return failure("'" + ShapeLaws::echoed(patch.find) + "' appears " + std::to_string(count) + " times in " + patch.id + "'s " +
                   field + " — add surrounding words to make it unique, or pass replace_all to change every one.");
  // Sized before it is made: every occurrence replaced by a long string could be far too big to build.
  const std::size_t limit = field == "text"  ? ShapeLaws::kMaxTextBytes
                            : field == "why" ? ShapeLaws::kMaxWhyBytes
                                             : ShapeLaws::kMaxTitleBytes;
  const double patchedBytes = static_cast<double>(value.size()) +
                              static_cast<double>(count) * (static_cast<double>(patch.replace.size()) -
                                                            static_cast<double>(patch.find.size()));
  if (patchedBytes > static_cast<double>(limit))
    return failure("That patch would make " + patch.id + "'s " + field + " " +
                   ShapeLaws::size(static_cast<std::size_t>(patchedBytes)) + ", over the " + ShapeLaws::size(limit) +
                   " it holds — nothing was changed.");
  value = replaced(value, patch.find, patch.replace);
  std::vector<std::string> echo;
  if (field == "title" && base::trimmed(value).empty()) {
    memory->title.reset();
    echo.push_back("title: cleared — cards show a title made from the text");
  } else if (base::trimmed(value).empty()) {
    return failure("That patch would leave " + patch.id + "'s " + field +
                   " empty — pass other wording, or memory_delete the memory.");
  } else {
    echo.push_back(field + ": " + ShapeLaws::echoed(value, kMaxEchoBytes));
  }
  if (count > 1) echo.push_back(std::to_string(count) + " occurrences replaced");
  memory->edited = context.now;
  context.store.update(*memory);
  transaction->commit();
  return GatewayResponse{wire::answer::NoteID{.id = patch.id, .echo = std::move(echo)}};
}

GatewayResponse answer(VerbContext& context, const wire::notes::EditFilters& edit) {
  const auto id = parseMemoryID(edit.id);
  if (!id) return failure(notAnID(edit.id));
  if ((!edit.set || edit.set->empty()) && (!edit.unset || edit.unset->empty()))
    return failure("Nothing to change in " + edit.id +
                   "'s filters — pass 'set' (keys to add or change) or 'unset' (keys to remove).");
  if (edit.set) {
    if (auto refusal = ShapeLaws::filters(*edit.set)) return failure(*refusal);
    if (edit.unset)
      for (const auto& key : *edit.unset)
        if (edit.set->contains(key))
          return failure("Filter '" + key + "' is both set and unset — name it in one of them.");
  }
  auto transaction = context.store.beginWrite();
  auto memory = context.store.find(*id);
  if (!memory) return failure(noSuchMemory(edit.id));
  wire::Filters bag;
  for (const auto& pair : memory->filters) bag.emplace(pair.key, pair.value);
  if (edit.set)
    for (const auto& [key, value] : *edit.set) bag.insert_or_assign(key, value);
  if (edit.unset)
    for (const auto& key : *edit.unset) bag.erase(key);  // an absent key is a quiet no-op
  memory->filters = pairs(bag);
  memory->edited = context.now;
  context.store.update(*memory);
  transaction->commit();
  return GatewayResponse{wire::answer::NoteID{.id = edit.id, .echo = std::vector<std::string>{
                                                                    "filters: " + filterList(memory->filters)}}};
}

GatewayResponse answer(VerbContext& context, const wire::notes::ModInstall& install) {
  const std::string name(base::trimmed(install.name));
  const ShippedMod* mod = ModShelf::find(name);
  if (mod == nullptr)
    return failure("No mod named '" + ShapeLaws::echoed(name, 60) + "' on the shelf — it holds: " + ModShelf::names() + ".");
  auto transaction = context.store.beginWrite();
  if (const auto present = context.store.idsWithFilter("mod", mod->name); !present.empty()) {
    std::vector<std::string> ids;
    for (const auto id : present) ids.push_back(memoryID(id));
    return failure("The " + mod->name + " mod is already installed: " + commaJoined(ids) +
                   " carry it, and nothing was changed. Installing never overwrites — the user's copy may hold "
                   "their own edits; change it with memory_edit or memory_patch instead.");
  }
  std::string installed;
  for (const auto& part : mod->parts) {
    Memory memory;
    memory.type = "mod";
    memory.scope = "/";
    memory.text = part.text;
    memory.why = part.why;
    memory.title = part.title;
    memory.writer = std::string(kOwnWriter);
    memory.created = context.now;
    wire::Filters filters{{"mod", wire::FilterValue::string(mod->name)},
                          {"part", wire::FilterValue::string(part.part)}};
    if (!part.behavior.empty()) filters.emplace("behavior", wire::FilterValue::string(part.behavior));
    memory.filters = pairs(filters);
    const auto id = context.store.insert(memory);
    installed += (installed.empty() ? "" : ", ") + memoryID(id) + " (" +
                 (part.behavior.empty() ? part.part : part.behavior) + ")";
  }
  transaction->commit();
  return text("Installed the " + mod->name + " mod as " + plural(static_cast<std::int64_t>(mod->parts.size()),
                                                                   "memory", "memories") +
              ": " + installed + ". It rides prompts from now on; grab any of them to read it.");
}

}  // namespace quillon::gateway
