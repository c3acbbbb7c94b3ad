#include "QuillonGateway/Shortcuts.hpp"

#include <algorithm>
#include <cctype>
#include <map>

#include "QuillonBase/Text.hpp"
#include "QuillonGateway/MemoryStore.hpp"
#include "QuillonGateway/RecallIndex.hpp"
#include "QuillonGateway/RecallWords.hpp"
#include "QuillonGateway/Sqlite.hpp"
#include "QuillonGateway/StoreVerbs.hpp"
#include "QuillonGateway/StoreWording.hpp"
#include "QuillonWire/ClientVersion.hpp"

namespace quillon::gateway {

namespace {

// More shortcuts than anyone types by name; the newest are kept when there are more.
constexpr std::size_t kMaxShortcuts = 1000;

std::string folded(std::string_view name) {
  std::string lower(name);
  for (char& c : lower) c = static_cast<char>(std::tolower(static_cast<unsigned char>(c)));
  return lower;
}

bool isBlank(char c) { return c == ' ' || c == '\t' || c == '\n' || c == '\r'; }

// Every saved shortcut of one name, newest first.
struct NamedShortcuts {
  std::vector<Memory> saved;
  const Memory& newest() const { return saved.front(); }
  const std::string& name() const {
    for (const auto& pair : newest().filters)
      if (pair.key == "name") return *pair.value.asString();
    return newest().type;  // not reached: only named shortcuts are gathered
  }
};

// The user's shortcuts by name (folded), in name order.
std::map<std::string, NamedShortcuts> shortcutsByName(MemoryStore& store) {
  std::map<std::string, NamedShortcuts> byName;
  for (auto& memory : store.byType("shortcut", "/", {}, kMaxShortcuts)) {
    const auto name = std::find_if(memory.filters.begin(), memory.filters.end(), [](const wire::FilterPair& pair) {
      return pair.key == "name" && pair.value.asString() != nullptr && !base::trimmed(*pair.value.asString()).empty();
    });
    if (name == memory.filters.end()) continue;
    byName[folded(base::trimmed(*name->value.asString()))].saved.push_back(std::move(memory));
  }
  return byName;
}

std::string savedWhen(const Memory& memory, double now) {
  return "saved " + day(memory.created) + " (" + recall::relativeDay(memory.created, now) + ")";
}

}  // namespace

std::optional<ShortcutAsk> shortcutAsk(std::string_view prompt) {
  const std::string typed(base::trimmed(prompt));
  if (typed == "?" || typed == "\\?")
    return ShortcutAsk{.kind = ShortcutAsk::Kind::frontDoor, .name = {}, .argument = {}};
  if (typed == "\\") return ShortcutAsk{.kind = ShortcutAsk::Kind::list, .name = {}, .argument = {}};
  if (typed.size() < 2 || typed.front() != '\\' || isBlank(typed[1])) return std::nullopt;
  std::string_view rest = std::string_view(typed).substr(1);
  const bool detail = rest.front() == '?';
  if (detail) {
    rest.remove_prefix(1);
    while (!rest.empty() && isBlank(rest.front())) rest.remove_prefix(1);
  }
  std::size_t end = 0;
  while (end < rest.size() && !isBlank(rest[end])) ++end;
  ShortcutAsk ask{.kind = detail ? ShortcutAsk::Kind::detail : ShortcutAsk::Kind::fire,
                  .name = std::string(rest.substr(0, end)), .argument = {}};
  if (!detail)
    if (const auto argument = base::trimmed(rest.substr(end)); !argument.empty()) ask.argument = std::string(argument);
  return ask;
}

std::optional<wire::ShortcutInjection> shortcutInjection(VerbContext& context, const ShortcutAsk& ask,
                                                         const std::string& scope) {
  using wire::ShortcutInjection;
  try {
    const auto byName = shortcutsByName(context.store);
    const auto rows = [&] {
      std::vector<wire::ShortcutRow> list;
      for (const auto& [key, named] : byName)
        list.push_back(wire::ShortcutRow{.name = named.name(), .when = savedWhen(named.newest(), context.now),
                                         .duplicates = static_cast<std::int64_t>(named.saved.size())});
      return list;
    };
    // One result, filled by the case asked: returned whole, never moved out of a temporary.
    std::optional<ShortcutInjection> result;
    switch (ask.kind) {
      case ShortcutAsk::Kind::fire:
        if (const auto found = byName.find(folded(ask.name)); found != byName.end())
          result.emplace().value = wire::shortcut::Fired{
              .name = found->second.name(), .body = found->second.newest().text, .argument = ask.argument};
        break;
      case ShortcutAsk::Kind::list:
        result.emplace().value = wire::shortcut::List{.rows = rows(), .card = {}, .detail = {}};
        break;
      case ShortcutAsk::Kind::frontDoor:
        result.emplace().value = wire::shortcut::List{
            .rows = rows(),
            .card = wire::ShortcutCard{.scope = scope, .moments = 0,
                                       .memories = RecallIndex(context.store.database()).memoryCount(), .meetings = 0,
                                       .version = wire::ClientVersion::current(), .build = {}},
            .detail = {}};
        break;
      case ShortcutAsk::Kind::detail: {
        wire::ShortcutDetail detail{.name = ask.name, .when = {}, .body = {}, .duplicates = 0};
        if (const auto found = byName.find(folded(ask.name)); found != byName.end()) {
          detail.name = found->second.name();
          detail.when = savedWhen(found->second.newest(), context.now);
          detail.body = found->second.newest().text;
          detail.duplicates = static_cast<std::int64_t>(found->second.saved.size());
        }
        result.emplace().value = wire::shortcut::List{.rows = {}, .card = {}, .detail = std::move(detail)};
        break;
      }
    }
    return result;
  } catch (const SqlError& error) {
    return ShortcutInjection{wire::shortcut::Unreadable{.reason = error.what()}};
  }
}

}  // namespace quillon::gateway
