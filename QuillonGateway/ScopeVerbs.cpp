#include "QuillonGateway/StoreVerbs.hpp"

#include <set>

#include "QuillonBase/Text.hpp"
#include "QuillonGateway/MemoryStore.hpp"
#include "QuillonGateway/ShapeLaws.hpp"
#include "QuillonGateway/Sqlite.hpp"
#include "QuillonGateway/StoreWording.hpp"

namespace quillon::gateway {


GatewayResponse answer(VerbContext& context, const wire::notes::ListPaths&) {
  const auto scopes = context.store.scopeCounts();
  if (scopes.empty())
    return text("No scopes yet — nothing is filed. memory_add files under / unless you pass a scope (e.g. /code).");
  std::string lines;
  for (const auto& scope : scopes) {
    if (!lines.empty()) lines += "\n";
    lines += scope.scope + " — " + plural(scope.rules, "rule", "rules") + " · " + plural(scope.notes, "note", "notes");
  }
  return text(std::move(lines));
}

GatewayResponse answer(VerbContext& context, const wire::notes::MapPath& map) {
  const auto folder = ShapeLaws::folder(map.folder);
  if (!folder.value) return failure(folder.refusal);
  const auto scope = ShapeLaws::scope(map.path);
  if (!scope.value) return failure(scope.refusal);
  auto transaction = context.store.beginWrite();
  const auto was = context.store.mapFolder(*folder.value, *scope.value);
  transaction->commit();
  std::string answer = "Mapped " + *folder.value + " → " + *scope.value + ".";
  if (was && *was != *scope.value) answer += " It was mapped to " + *was + " before.";
  return text(std::move(answer));
}

GatewayResponse answer(VerbContext& context, const wire::notes::SetPath& set) {
  const auto scope = ShapeLaws::scope(set.path);
  if (!scope.value) return failure(scope.refusal);
  const std::string key = sessionKey(set.session, set.writer);
  auto transaction = context.store.beginWrite();
  const auto was = context.store.sessionScope(key, context.now - StoreGateway::kSessionScopeSeconds);
  context.store.setSessionScope(key, *scope.value, context.now);
  transaction->commit();
  return text("Session scope: " + *scope.value + " (before: " + (was ? *was : std::string("none, so /")) +
              "). It holds for two hours, or until you set another.");
}

GatewayResponse answer(VerbContext& context, const wire::notes::ScopeBoard&) {
  const auto folders = context.store.folders();
  std::vector<wire::ScopeBoardEntry> entries;
  for (const auto& scope : context.store.scopeCounts()) {
    wire::ScopeBoardEntry entry{.path = scope.scope, .folders = {}, .kinds = context.store.typeCounts(scope.scope)};
    for (const auto& mapped : folders)
      if (mapped.scope == scope.scope) entry.folders.push_back(mapped.folder);
    entries.push_back(std::move(entry));
  }
  return GatewayResponse{wire::answer::ScopeBoard{std::move(entries)}};
}

GatewayResponse answer(VerbContext& context, const wire::notes::SelfNames& request) {
  if (!request.names) {
    const auto names = context.store.selfNames();
    if (names.empty())
      return text("No names yet — send self_names with names, e.g. [\"Mara Quint\", \"MQ4411\"]; the first one "
                  "labels the user's own transcript lines.");
    return text(commaJoined(names));
  }
  std::vector<std::string> names;
  std::set<std::string> seen;
  for (const auto& given : *request.names) {
    const std::string name(base::trimmed(given));
    if (name.empty()) continue;
    if (name.find(',') != std::string::npos)
      return failure("'" + name + "' holds a comma, and a comma always separates names — send each name as its own "
                     "entry of the list.");
    if (seen.insert(name).second) names.push_back(name);
  }
  if (names.empty())
    return failure("An empty list is refused — names replaces the whole list, so send every name the user uses "
                   "(read the current list by calling self_names with no arguments).");
  auto transaction = context.store.beginWrite();
  context.store.setSelfNames(names);
  transaction->commit();
  return text("Names saved: " + commaJoined(names) + ". " + names.front() + " labels the user's own transcript lines.");
}

std::string callerScope(VerbContext& context, const std::optional<std::string>& cwd,
                        const std::optional<std::string>& session, std::string_view writer) {
  // A scope the session declared outranks where it happens to run: the agent said so.
  if (auto declared = context.store.sessionScope(sessionKey(session, writer),
                                                 context.now - StoreGateway::kSessionScopeSeconds))
    return *declared;
  if (cwd)
    if (const auto folder = ShapeLaws::folder(*cwd); folder.value)
      if (auto mapped = context.store.scopeForFolder(*folder.value)) return *mapped;
  return "/";
}

// The rules in force where the agent works: every level from / down to the scope, each with the
// rules filed there. The scope is the one named, else the caller's.
GatewayResponse answer(VerbContext& context, const wire::read::StandingRules& request) {
  std::string scope;
  if (request.scope && !base::trimmed(*request.scope).empty()) {
    const auto shaped = ShapeLaws::scope(*request.scope);
    if (!shaped.value) return failure(shaped.refusal);
    scope = *shaped.value;
  } else {
    scope = callerScope(context, request.cwd, request.session, request.writer.value_or(""));
  }
  wire::RulesWalk walk{.path = scope, .levels = {}, .overflow = context.store.rulesBelow(scope), .announce = {},
                       .note = {}, .onboarding = {}};
  // "/code/quillon" walks "/", "/code", "/code/quillon"; a level without rules is left out.
  std::vector<std::string> chain{"/"};
  for (auto slash = scope.find('/', 1); scope != "/"; slash = scope.find('/', slash + 1)) {
    chain.push_back(scope.substr(0, slash));
    if (slash == std::string::npos) break;
  }
  for (const auto& level : chain)
    if (auto rules = context.store.rulesAt(level); !rules.empty())
      walk.levels.push_back(wire::RulesWalk::Level{.path = level, .rules = std::move(rules)});
  // The card is what a session start shows: the same rules, compact, with a pointer to this walk
  // for a hook whose ceiling the card outgrows. With no rule in force there is no card either.
  if (!request.card || walk.levels.empty()) return GatewayResponse{wire::answer::StandingWalk{std::move(walk)}};
  std::string card;
  std::int64_t count = 0;
  for (const auto& level : walk.levels) {
    card += (card.empty() ? "" : "\n") + level.path + (level.path == "/" ? " (everywhere)" : "");
    for (const auto& rule : level.rules) card += "\n- " + rule;
    count += static_cast<std::int64_t>(level.rules.size());
  }
  if (walk.overflow > 0) card += "\n…" + std::to_string(walk.overflow) + " more at deeper levels";
  return GatewayResponse{wire::answer::RulesCard{
      .scope = scope, .announce = {}, .card = std::move(card), .note = {}, .onboarding = {},
      .pointer = plural(count, "standing rule applies", "standing rules apply") + " at " + scope +
                 "; rules_get with this folder as cwd shows them."}};
}

}  // namespace quillon::gateway
