#include "QuillonGateway/StoreWording.hpp"

#include <charconv>
#include <cmath>
#include <ctime>

#include "QuillonGateway/MemoryStore.hpp"
#include "QuillonGateway/ShapeLaws.hpp"

namespace quillon::gateway {

namespace {

// How long a title made from the text may be.
constexpr std::size_t kDerivedTitleCharacters = 60;

}  // namespace

std::string clipped(std::string_view text, std::size_t characters) {
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
  std::size_t count = 0, cut = std::string::npos, lastBlank = std::string::npos;
  for (std::size_t i = 0; i < line.size(); ++i) {
    if ((static_cast<unsigned char>(line[i]) & 0xC0) == 0x80) continue;  // inside a character
    if (count == characters) {
      cut = i;
      break;
    }
    if (line[i] == ' ') lastBlank = i;
    ++count;
  }
  if (cut == std::string::npos) return line;
  return line.substr(0, lastBlank != std::string::npos && lastBlank > 0 ? lastBlank : cut) + "…";
}

wire::GatewayResponse failure(std::string message) {
  return wire::GatewayResponse{wire::answer::Failure{std::move(message)}};
}
wire::GatewayResponse text(std::string value) { return wire::GatewayResponse{wire::answer::Text{std::move(value)}}; }

std::string memoryID(std::int64_t id) { return "m:" + std::to_string(id); }

std::string commaJoined(const std::vector<std::string>& items) {
  std::string line;
  for (const auto& item : items) line += (line.empty() ? "" : ", ") + item;
  return line;
}

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
  return "'" + ShapeLaws::echoed(id, 60) + "' is not a memory id — memory ids look like m:41 (from a memory card).";
}

std::string noSuchMemory(std::string_view id) {
  return "No memory " + std::string(id) +
         " — it may have been deleted; memory_get_by_type or memory_list_types shows what is saved.";
}

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

std::string displayTitle(const Memory& memory) {
  return memory.title ? *memory.title : clipped(memory.text, kDerivedTitleCharacters);
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

wire::Card listedCard(const Memory& memory) {
  wire::Card card;
  card.kind = "note";
  card.id = memoryID(memory.id);
  // A listing row shows no why: sending it would only cost room in the answer.
  card.when = day(memory.created);
  card.memoryKind = memory.type;
  if (!memory.filters.empty()) card.filters = memory.filters;
  card.title = displayTitle(memory);
  return card;
}

std::string plural(std::int64_t count, std::string_view one, std::string_view many) {
  return std::to_string(count) + " " + std::string(count == 1 ? one : many);
}

std::string sessionKey(const std::optional<std::string>& session, std::string_view writer) {
  if (session && !session->empty()) return "session:" + *session;
  return "writer:" + std::string(writer);
}

}  // namespace quillon::gateway
