#include "QuillonGateway/StoreGateway.hpp"

#include <charconv>
#include <chrono>
#include <cmath>
#include <ctime>
#include <map>
#include <set>

#include "QuillonGateway/MemoryStore.hpp"
#include "QuillonGateway/ModShelf.hpp"
#include "QuillonGateway/ShapeLaws.hpp"
#include "QuillonGateway/Sqlite.hpp"
#include "QuillonWire/GatewayRequest.hpp"
#include "QuillonWire/GatewayResponse.hpp"

namespace quillon::gateway {

namespace {

using wire::GatewayResponse;

// The author of what the gateway writes itself (the shipped mods).
constexpr std::string_view kOwnWriter = "quillon";
constexpr std::size_t kDerivedTitleCharacters = 60;

GatewayResponse failure(std::string message) { return GatewayResponse{wire::answer::Failure{std::move(message)}}; }
GatewayResponse text(std::string value) { return GatewayResponse{wire::answer::Text{std::move(value)}}; }

std::string trimmed(std::string_view value) {
  const auto first = value.find_first_not_of(" \t\r\n");
  if (first == std::string_view::npos) return {};
  return std::string(value.substr(first, value.find_last_not_of(" \t\r\n") - first + 1));
}

std::string memoryID(std::int64_t id) { return "m:" + std::to_string(id); }

std::string commaJoined(const std::vector<std::string>& items) {
  std::string line;
  for (const auto& item : items) line += (line.empty() ? "" : ", ") + item;
  return line;
}

// "m:41" → 41; nothing for anything else (no sign, no blanks, no leading zeros beyond "m:0").
std::optional<std::int64_t> parseMemoryID(std::string_view id) {
  if (id.size() < 3 || id.substr(0, 2) != "m:") return std::nullopt;
  const auto digits = id.substr(2);
  if (digits.size() > 1 && digits.front() == '0') return std::nullopt;
  std::int64_t number = 0;
  const auto [end, error] = std::from_chars(digits.data(), digits.data() + digits.size(), number);
  if (error != std::errc() || end != digits.data() + digits.size() || number < 0) return std::nullopt;
  return number;
}

std::string notAnID(std::string_view id) {
  return "'" + std::string(id) + "' is not a memory id — memory ids look like m:41 (from a memory card).";
}

std::string noSuchMemory(std::string_view id) {
  return "No memory " + std::string(id) +
         " — it may have been deleted; memory_get_by_type or memory_list_types shows what is saved.";
}

// The local calendar day, as cards print it.
std::string day(double seconds) {
  const auto time = static_cast<std::time_t>(std::floor(seconds));
  std::tm local{};
  ::localtime_r(&time, &local);
  char buffer[16];
  std::strftime(buffer, sizeof buffer, "%Y-%m-%d", &local);
  return buffer;
}

std::string when(const Memory& memory) {
  std::string text = day(memory.created);
  if (memory.edited) text += " · edited " + day(*memory.edited);
  return text;
}

std::string filterList(const std::vector<wire::FilterPair>& filters) {
  if (filters.empty()) return "none";
  std::string list;
  for (const auto& pair : filters) {
    if (!list.empty()) list += " · ";
    list += pair.key;
    const bool* flag = pair.value.asBool();
    if (flag == nullptr || !*flag) list += "=" + wire::renderFilterValue(pair.value);
  }
  return list;
}

std::vector<wire::FilterPair> pairs(const wire::Filters& filters) {
  std::vector<wire::FilterPair> list;
  for (const auto& [key, value] : filters) list.push_back(wire::FilterPair{.key = key, .value = value});
  return list;
}

// A title for display when the writer gave none: the text's first words, on one line, cut at a
// word boundary with "…" when long.
std::string derivedTitle(std::string_view text) {
  std::string line;
  for (char c : text) {
    const bool blank = c == ' ' || c == '\t' || c == '\n' || c == '\r' || (static_cast<unsigned char>(c) < 0x20);
    if (blank) {
      if (!line.empty() && line.back() != ' ') line += ' ';
    } else {
      line += c;
    }
  }
  while (!line.empty() && line.back() == ' ') line.pop_back();
  std::size_t characters = 0, cut = std::string::npos, lastBlank = std::string::npos;
  for (std::size_t i = 0; i < line.size(); ++i) {
    if ((static_cast<unsigned char>(line[i]) & 0xC0) == 0x80) continue;  // inside a character
    if (characters == kDerivedTitleCharacters) {
      cut = i;
      break;
    }
    if (line[i] == ' ') lastBlank = i;
    ++characters;
  }
  if (cut == std::string::npos) return line;
  return line.substr(0, lastBlank != std::string::npos && lastBlank > 0 ? lastBlank : cut) + "…";
}

std::string displayTitle(const Memory& memory) {
  return memory.title ? *memory.title : derivedTitle(memory.text);
}

wire::Card noteCard(const Memory& memory) {
  wire::Card card;
  card.kind = "note";
  card.id = memoryID(memory.id);
  card.snippet = memory.text;
  card.why = memory.why;
  card.when = when(memory);
  card.filed = memory.scope;
  card.memoryKind = memory.type;
  if (!memory.filters.empty()) card.filters = memory.filters;
  card.title = displayTitle(memory);
  if (memory.subagent && !memory.subagent->empty()) card.subagent = memory.subagent;
  return card;
}

// The one row of a by-type listing: what the compact row prints, without the body.
wire::Card listedCard(const Memory& memory) {
  wire::Card card;
  card.kind = "note";
  card.id = memoryID(memory.id);
  card.why = memory.why;
  card.when = day(memory.created);
  card.memoryKind = memory.type;
  if (!memory.filters.empty()) card.filters = memory.filters;
  card.title = displayTitle(memory);
  return card;
}

std::string plural(std::int64_t count, std::string_view one, std::string_view many) {
  return std::to_string(count) + " " + std::string(count == 1 ? one : many);
}

// Whose declared scope: the agent session when it has an id, else the agent program.
std::string sessionKey(const std::optional<std::string>& session, std::string_view writer) {
  if (session && !session->empty()) return "session:" + *session;
  return "writer:" + std::string(writer);
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

class Verbs {
 public:
  Verbs(MemoryStore& store, const StoreGateway::DiagnosticSink& diagnostics, double now)
      : store_(store), diagnostics_(diagnostics), now_(now) {}

  GatewayResponse operator()(const wire::notes::Write& write) {
    if (trimmed(write.text).empty()) return failure("A memory needs 'text' — the memory itself, not empty.");
    if (trimmed(write.why).empty()) return failure("A memory needs 'why' — one line: why this is worth keeping.");
    const auto type = trimmed(write.type).empty() ? Shaped{.value = "note", .refusal = {}} : ShapeLaws::type(write.type);
    if (!type.value) return failure(type.refusal);
    if (write.filters)
      if (auto refusal = ShapeLaws::filters(*write.filters)) return failure(*refusal);

    auto transaction = store_.beginWrite();
    std::string scope = "/", whence;
    if (*type.value == "shortcut") {
      // A shortcut is typed by name anywhere, so it lives at the root whatever scope was passed.
      if (!trimmed(write.path).empty() && trimmed(write.path) != "/") whence = " — shortcuts always live at /";
    } else if (trimmed(write.path).empty()) {
      if (auto declared = store_.sessionScope(sessionKey(write.session, write.writer),
                                              now_ - StoreGateway::kSessionScopeSeconds)) {
        scope = *declared;
        whence = ", the session's scope";
      }
    } else {
      const auto shaped = ShapeLaws::scope(write.path);
      if (!shaped.value) return failure(shaped.refusal);
      scope = *shaped.value;
      if (scope != "/" && !store_.scopeLives(scope))
        whence = " — a new scope; scope_list_all shows the scopes that already exist";
    }

    Memory memory;
    memory.type = *type.value;
    memory.scope = scope;
    memory.text = write.text;
    memory.why = write.why;
    if (write.title && !trimmed(*write.title).empty()) memory.title = trimmed(*write.title);
    memory.writer = write.writer;
    memory.session = write.session;
    memory.subagent = write.subagent;
    memory.created = now_;
    if (write.filters) memory.filters = pairs(*write.filters);
    const auto id = store_.insert(memory);
    transaction->commit();
    return text("Saved " + memoryID(id) + " (" + memory.type + ") under " + scope + whence + ".");
  }

  GatewayResponse operator()(const wire::notes::Delete& request) {
    const auto id = parseMemoryID(request.id);
    if (!id) return failure(notAnID(request.id));
    auto transaction = store_.beginWrite();
    if (!store_.remove(*id)) return failure(noSuchMemory(request.id));
    transaction->commit();
    return GatewayResponse{wire::answer::Ok{}};
  }

  GatewayResponse operator()(const wire::notes::Edit& edit) {
    const auto id = parseMemoryID(edit.id);
    if (!id) return failure(notAnID(edit.id));
    if (!edit.text && !edit.why && !edit.type && !edit.path && !edit.filters && !edit.title)
      return failure("Nothing to change in " + edit.id +
                     " — pass text, why, title, type, scope or filters: the field(s) to change. The id stays.");
    if (edit.text && trimmed(*edit.text).empty())
      return failure("The new text is empty — omit text to keep the current one, or pass the new memory.");
    if (edit.why && trimmed(*edit.why).empty())
      return failure("The new why is empty — omit why to keep the current one, or pass the new line.");
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

    auto transaction = store_.beginWrite();
    auto memory = store_.find(*id);
    if (!memory) return failure(noSuchMemory(edit.id));
    std::vector<std::string> echo;
    if (edit.text) {
      memory->text = *edit.text;
      echo.push_back("text: " + memory->text);
    }
    if (edit.why) {
      memory->why = *edit.why;
      echo.push_back("why: " + memory->why);
    }
    if (edit.title) {
      if (trimmed(*edit.title).empty()) {
        memory->title.reset();
        echo.push_back("title: cleared — cards show a title made from the text");
      } else {
        memory->title = trimmed(*edit.title);
        echo.push_back("title: " + *memory->title);
      }
    }
    if (type) {
      memory->type = *type;
      echo.push_back("type: " + *type);
    }
    if (scope) {
      const bool isNew = *scope != "/" && *scope != memory->scope && !store_.scopeLives(*scope);
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
    memory->edited = now_;
    store_.update(*memory);
    transaction->commit();
    return GatewayResponse{wire::answer::NoteID{.id = edit.id, .echo = std::move(echo)}};
  }

  GatewayResponse operator()(const wire::notes::Patch& patch) {
    const auto id = parseMemoryID(patch.id);
    if (!id) return failure(notAnID(patch.id));
    const std::string field = trimmed(patch.field).empty() ? "text" : trimmed(patch.field);
    if (field != "text" && field != "why" && field != "title")
      return failure("Can't patch field '" + patch.field + "' — pass field text (the default), why or title.");
    if (patch.find.empty()) return failure("'find' is empty — pass the exact phrase to change.");

    auto transaction = store_.beginWrite();
    auto memory = store_.find(*id);
    if (!memory) return failure(noSuchMemory(patch.id));
    if (field == "title" && !memory->title)
      return failure(patch.id + " has no title of its own to patch — set one with memory_edit's title.");
    std::string& value = field == "text" ? memory->text : field == "why" ? memory->why : *memory->title;
    const std::size_t count = occurrences(value, patch.find);
    if (count == 0)
      return failure("'" + patch.find + "' does not appear in " + patch.id + "'s " + field +
                     " — matching is exact, including case. grab " + patch.id + " to read it as stored.");
    if (count > 1 && !patch.replaceAll)
      return failure("'" + patch.find + "' appears " + std::to_string(count) + " times in " + patch.id + "'s " +
                     field + " — add surrounding words to make it unique, or pass replace_all to change every one.");
    value = replaced(value, patch.find, patch.replace);
    std::vector<std::string> echo;
    if (field == "title" && trimmed(value).empty()) {
      memory->title.reset();
      echo.push_back("title: cleared — cards show a title made from the text");
    } else if (trimmed(value).empty()) {
      return failure("That patch would leave " + patch.id + "'s " + field +
                     " empty — pass other wording, or memory_delete the memory.");
    } else {
      echo.push_back(field + ": " + value);
    }
    if (count > 1) echo.push_back(std::to_string(count) + " occurrences replaced");
    memory->edited = now_;
    store_.update(*memory);
    transaction->commit();
    return GatewayResponse{wire::answer::NoteID{.id = patch.id, .echo = std::move(echo)}};
  }

  GatewayResponse operator()(const wire::notes::EditFilters& edit) {
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
    auto transaction = store_.beginWrite();
    auto memory = store_.find(*id);
    if (!memory) return failure(noSuchMemory(edit.id));
    wire::Filters bag;
    for (const auto& pair : memory->filters) bag.emplace(pair.key, pair.value);
    if (edit.set)
      for (const auto& [key, value] : *edit.set) bag.insert_or_assign(key, value);
    if (edit.unset)
      for (const auto& key : *edit.unset) bag.erase(key);  // an absent key is a quiet no-op
    memory->filters = pairs(bag);
    memory->edited = now_;
    store_.update(*memory);
    transaction->commit();
    return GatewayResponse{wire::answer::NoteID{.id = edit.id, .echo = std::vector<std::string>{
                                                                      "filters: " + filterList(memory->filters)}}};
  }

  GatewayResponse operator()(const wire::notes::ListPaths&) {
    const auto scopes = store_.scopeCounts();
    if (scopes.empty())
      return text("No scopes yet — nothing is filed. memory_add files under / unless you pass a scope (e.g. /code).");
    std::string lines;
    for (const auto& scope : scopes) {
      if (!lines.empty()) lines += "\n";
      lines += scope.scope + " — " + plural(scope.rules, "rule", "rules") + " · " + plural(scope.notes, "note", "notes");
    }
    return text(std::move(lines));
  }

  GatewayResponse operator()(const wire::notes::MapPath& map) {
    const auto folder = ShapeLaws::folder(map.folder);
    if (!folder.value) return failure(folder.refusal);
    const auto scope = ShapeLaws::scope(map.path);
    if (!scope.value) return failure(scope.refusal);
    auto transaction = store_.beginWrite();
    const auto was = store_.mapFolder(*folder.value, *scope.value);
    transaction->commit();
    std::string answer = "Mapped " + *folder.value + " → " + *scope.value + ".";
    if (was && *was != *scope.value) answer += " It was mapped to " + *was + " before.";
    return text(std::move(answer));
  }

  GatewayResponse operator()(const wire::notes::SetPath& set) {
    const auto scope = ShapeLaws::scope(set.path);
    if (!scope.value) return failure(scope.refusal);
    const std::string key = sessionKey(set.session, set.writer);
    auto transaction = store_.beginWrite();
    const auto was = store_.sessionScope(key, now_ - StoreGateway::kSessionScopeSeconds);
    store_.setSessionScope(key, *scope.value, now_);
    transaction->commit();
    return text("Session scope: " + *scope.value + " (before: " + (was ? *was : std::string("none, so /")) +
                "). It holds for two hours, or until you set another.");
  }

  GatewayResponse operator()(const wire::notes::ScopeBoard&) {
    const auto folders = store_.folders();
    std::vector<wire::ScopeBoardEntry> entries;
    for (const auto& scope : store_.scopeCounts()) {
      wire::ScopeBoardEntry entry{.path = scope.scope, .folders = {}, .kinds = store_.typeCounts(scope.scope)};
      for (const auto& mapped : folders)
        if (mapped.scope == scope.scope) entry.folders.push_back(mapped.folder);
      entries.push_back(std::move(entry));
    }
    return GatewayResponse{wire::answer::ScopeBoard{std::move(entries)}};
  }

  GatewayResponse operator()(const wire::notes::ModInstall& install) {
    const std::string name = trimmed(install.name);
    const ShippedMod* mod = ModShelf::find(name);
    if (mod == nullptr)
      return failure("No mod named '" + name + "' on the shelf — it holds: " + ModShelf::names() + ".");
    auto transaction = store_.beginWrite();
    if (const auto present = store_.idsWithFilter("mod", mod->name); !present.empty()) {
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
      memory.created = now_;
      wire::Filters filters{{"mod", wire::FilterValue::string(mod->name)},
                            {"part", wire::FilterValue::string(part.part)}};
      if (!part.behavior.empty()) filters.emplace("behavior", wire::FilterValue::string(part.behavior));
      memory.filters = pairs(filters);
      const auto id = store_.insert(memory);
      installed += (installed.empty() ? "" : ", ") + memoryID(id) + " (" +
                   (part.behavior.empty() ? part.part : part.behavior) + ")";
    }
    transaction->commit();
    return text("Installed the " + mod->name + " mod as " + plural(static_cast<std::int64_t>(mod->parts.size()),
                                                                     "memory", "memories") +
                ": " + installed + ". It rides prompts from now on; grab any of them to read it.");
  }

  GatewayResponse operator()(const wire::notes::SelfNames& request) {
    if (!request.names) {
      const auto names = store_.selfNames();
      if (names.empty())
        return text("No names yet — send self_names with names, e.g. [\"Mara Quint\", \"MQ4411\"]; the first one "
                    "labels the user's own transcript lines.");
      return text(commaJoined(names));
    }
    std::vector<std::string> names;
    std::set<std::string> seen;
    for (const auto& given : *request.names) {
      const std::string name = trimmed(given);
      if (name.empty()) continue;
      if (name.find(',') != std::string::npos)
        return failure("'" + name + "' holds a comma, and a comma always separates names — send each name as its own "
                       "entry of the list.");
      if (seen.insert(name).second) names.push_back(name);
    }
    if (names.empty())
      return failure("An empty list is refused — names replaces the whole list, so send every name the user uses "
                     "(read the current list by calling self_names with no arguments).");
    auto transaction = store_.beginWrite();
    store_.setSelfNames(names);
    transaction->commit();
    return text("Names saved: " + commaJoined(names) + ". " + names.front() + " labels the user's own transcript lines.");
  }

  // The rules in force where the agent works: every level from / down to the scope, each with the
  // rules filed there. The scope is the one named, else the session's, else the mapped folder's.
  GatewayResponse operator()(const wire::read::StandingRules& request) {
    std::string scope = "/";
    if (request.scope && !trimmed(*request.scope).empty()) {
      const auto shaped = ShapeLaws::scope(*request.scope);
      if (!shaped.value) return failure(shaped.refusal);
      scope = *shaped.value;
    } else if (auto declared = store_.sessionScope(sessionKey(request.session, request.writer.value_or("")),
                                                   now_ - StoreGateway::kSessionScopeSeconds)) {
      scope = *declared;
    } else if (request.cwd) {
      if (const auto folder = ShapeLaws::folder(*request.cwd); folder.value)
        scope = store_.scopeForFolder(*folder.value).value_or("/");
    }
    wire::RulesWalk walk{.path = scope, .levels = {}, .overflow = store_.rulesBelow(scope), .announce = {},
                         .note = {}, .onboarding = {}};
    // "/code/quillon" walks "/", "/code", "/code/quillon"; a level without rules is left out.
    std::vector<std::string> chain{"/"};
    for (auto slash = scope.find('/', 1); scope != "/"; slash = scope.find('/', slash + 1)) {
      chain.push_back(scope.substr(0, slash));
      if (slash == std::string::npos) break;
    }
    for (const auto& level : chain)
      if (auto rules = store_.rulesAt(level); !rules.empty())
        walk.levels.push_back(wire::RulesWalk::Level{.path = level, .rules = std::move(rules)});
    return GatewayResponse{wire::answer::StandingWalk{std::move(walk)}};
  }

  GatewayResponse operator()(const wire::read::GetByType& request) {
    // Reading is lenient: "Ticket " finds the tickets.
    std::string lowered = trimmed(request.type);
    for (char& c : lowered)
      if (c >= 'A' && c <= 'Z') c = static_cast<char>(c - 'A' + 'a');
    const auto type = ShapeLaws::type(lowered);
    auto scope = scopeOrRoot(request.path);
    if (!scope.value) return failure(scope.refusal);
    std::vector<wire::Card> cards;
    if (type.value) {
      std::vector<wire::FilterPair> equal;
      if (request.filters) equal = pairs(*request.filters);
      for (const auto& memory : store_.byType(*type.value, *scope.value, equal, StoreGateway::kMaxListed))
        cards.push_back(listedCard(memory));
    }
    return GatewayResponse{wire::answer::KindCards{.scope = *scope.value, .cards = std::move(cards)}};
  }

  GatewayResponse operator()(const wire::read::ListTypes& request) {
    auto scope = scopeOrRoot(request.scope);
    if (!scope.value) return failure(scope.refusal);
    return GatewayResponse{wire::answer::KindTypes{.scope = *scope.value, .types = store_.typeCounts(*scope.value)}};
  }

  GatewayResponse operator()(const wire::read::Grab& grab) {
    const auto id = parseMemoryID(trimmed(grab.id));
    if (!id) return GatewayResponse{wire::answer::Thing{}};
    const auto memory = store_.find(*id);
    if (!memory) return GatewayResponse{wire::answer::Thing{}};
    return GatewayResponse{wire::answer::Thing{noteCard(*memory)}};
  }

  GatewayResponse operator()(const wire::diagnostic::Log& log) {
    if (diagnostics_) diagnostics_(log.source, log.line);
    return GatewayResponse{wire::answer::Ok{}};
  }

  template <class Verb>
  GatewayResponse operator()(const Verb&) {
    return GatewayResponse{wire::answer::Unimplemented{std::string(Verb::wireName)}};
  }

 private:
  static Shaped scopeOrRoot(const std::optional<std::string>& given) {
    if (!given || trimmed(*given).empty()) return Shaped{.value = "/", .refusal = {}};
    return ShapeLaws::scope(*given);
  }

  MemoryStore& store_;
  const StoreGateway::DiagnosticSink& diagnostics_;
  double now_;
};

}  // namespace

StoreGateway::StoreGateway(MemoryStore& store, DiagnosticSink diagnostics, Clock clock)
    : store_(store), diagnostics_(std::move(diagnostics)), clock_(std::move(clock)) {}

StoreGateway::Clock StoreGateway::systemClock() {
  return [] {
    return std::chrono::duration<double>(std::chrono::system_clock::now().time_since_epoch()).count();
  };
}

wire::GatewayResponse StoreGateway::serve(const wire::GatewayRequest& request) {
  Verbs verbs(store_, diagnostics_, clock_());
  // Whatever the verb read, the next request starts from the latest committed state.
  struct Settle {
    MemoryStore& store;
    ~Settle() {
      try {
        store.settle();
      } catch (...) {
        // Resetting a statement reports only the error its last step already answered.
      }
    }
  } settle{store_};
  try {
    return std::visit([&](const auto& family) { return std::visit(verbs, family.request.value); }, request.value);
  } catch (const SqlError& error) {
    return failure("The store could not answer (" + std::string(error.what()) + "); nothing was changed.");
  } catch (const std::exception& error) {
    return failure("The gateway could not answer (" + std::string(error.what()) + "); nothing was changed.");
  }
}

}  // namespace quillon::gateway
