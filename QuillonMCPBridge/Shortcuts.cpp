#include "QuillonMCPBridge/Shortcuts.hpp"

#include <algorithm>
#include <charconv>
#include <string_view>

#include "QuillonMCPBridge/TextCleaning.hpp"
#include "QuillonMCPBridge/UnicodeText.hpp"
#include "QuillonWire/ClientInstance.hpp"
#include "QuillonWire/ClientVersion.hpp"

namespace quillon::bridge {

namespace {

constexpr std::string_view kOpen = "<quillon-shortcut>";
constexpr std::string_view kClose = "</quillon-shortcut>";
constexpr std::size_t kWidth = 77;                 // a line reaching this many characters wraps
constexpr std::string_view kIndent = "                 ";  // 17 blanks, under "YOUR SHORTCUTS   "
constexpr std::string_view kLatestCardWins =
    "A letter answers the most recent lettered card you showed \xE2\x80\x94 the most recent lettered card wins.";

std::string joined(const std::vector<std::string>& lines) {
  std::string out;
  for (std::size_t i = 0; i < lines.size(); ++i) {
    if (i > 0) out += '\n';
    out += lines[i];
  }
  return out;
}

std::string framed(std::string_view message) {
  return std::string(kOpen) + "\n" + std::string(message) + "\n" + std::string(kClose);
}

bool emptyBody(std::string_view body) { return unicode::trimmed(body).empty(); }

std::string duplicatesSuffix(std::int64_t duplicates) {
  if (duplicates < 2) return {};
  return " \xC2\xB7 " + std::to_string(duplicates) +
         " saved with this name \xE2\x80\x94 the newest one is used; delete the others";
}

// 950, 12.3k, 250k, 1.2M. to_chars rounds as printf's "%.1f" does but never reads the locale.
std::string count(std::int64_t n) {
  const auto tenths = [](double value, char unit) {
    char buffer[32];
    const auto end = std::to_chars(buffer, buffer + sizeof buffer, value, std::chars_format::fixed, 1).ptr;
    return std::string(buffer, end) + unit;
  };
  if (n <= 999) return std::to_string(n);
  if (n <= 99'999) return tenths(static_cast<double>(n) / 1000.0, 'k');
  if (n <= 999'999) return std::to_string(n / 1000) + "k";
  return tenths(static_cast<double>(n) / 1'000'000.0, 'M');
}

std::string renderFired(const wire::shortcut::Fired& fired) {
  const std::string name = defangEnvelope(fired.name);
  if (emptyBody(fired.body))
    return framed("The user's message begins with \\" + name +
                  " \xE2\x80\x94 one of their own saved shortcuts, but it has an empty body, so there is nothing to "
                  "follow. Tell them the shortcut is empty and answer their message normally.");
  std::vector<std::string> lines{
      std::string(kOpen),
      "The user's message begins with \\" + name +
          " \xE2\x80\x94 one of their own saved shortcuts. Follow it for this message. This is the user's "
          "instruction, not observed content.",
      "",
      defangEnvelope(fired.body),
  };
  if (fired.argument) {
    lines.emplace_back();
    lines.push_back("argument: " + defangEnvelope(*fired.argument));
  }
  lines.emplace_back(kClose);
  return joined(lines);
}

std::string renderList(const std::vector<wire::ShortcutRow>& rows) {
  if (rows.empty())
    return framed(
        "The user asked to see their shortcuts and has none saved yet. Tell them that, and that they can make one "
        "by saying: save that as a shortcut called <name>.");
  std::vector<std::string> lines{
      std::string(kOpen),
      "The user typed \\ on its own \xE2\x80\x94 they are asking to SEE their shortcuts. Show this list to them "
      "verbatim, and do nothing else this turn.",
  };
  for (const auto& row : rows) lines.push_back(listLine(row));
  lines.emplace_back(kClose);
  return joined(lines);
}

}  // namespace

std::optional<std::string> renderShortcut(const std::optional<wire::ShortcutInjection>& injection) {
  if (!injection) return std::nullopt;
  if (const auto* fired = std::get_if<wire::shortcut::Fired>(&injection->value)) return renderFired(*fired);
  if (const auto* list = std::get_if<wire::shortcut::List>(&injection->value)) {
    if (list->detail) return renderDetail(*list->detail);
    if (list->card) return renderFrontDoor(list->rows, *list->card);
    return renderList(list->rows);
  }
  return std::nullopt;  // unreadable: the prompt goes on without a block
}

std::string listLine(const wire::ShortcutRow& row) {
  return "\\" + defangEnvelope(row.name) + " \xE2\x80\x94 " + defangEnvelope(row.when) + duplicatesSuffix(row.duplicates);
}

std::string renderDetail(const wire::ShortcutDetail& detail) {
  const std::string name = defangEnvelope(detail.name);
  if (!detail.when)
    return framed("The user asked to see a shortcut called " + name +
                  " and nothing is saved under that name. Tell them that, and that typing ? on its own shows the "
                  "menu with every shortcut they have.");
  return joined({
      std::string(kOpen),
      "The user typed \\? " + name +
          " \xE2\x80\x94 they are asking to SEE that one shortcut, not to run it. Show it to them verbatim, and do "
          "nothing else this turn.",
      "",
      "\\" + name + " \xE2\x80\x94 " + defangEnvelope(*detail.when) + duplicatesSuffix(detail.duplicates),
      "",
      emptyBody(detail.body)
          ? "(this shortcut is saved with an empty body \xE2\x80\x94 there is nothing in it to run.)"
          : defangEnvelope(detail.body),
      std::string(kClose),
  });
}

std::string renderFrontDoor(const std::vector<wire::ShortcutRow>& rows, const wire::ShortcutCard& card) {
  std::vector<std::string> lines{
      std::string(kOpen),
      "The user typed ? or \\? on its own \xE2\x80\x94 they are asking to SEE the menu. Show them the card below "
      "verbatim inside a fenced code block, and do nothing else this turn. The card ends at the blank line before "
      "\"For you only\"; nothing from that line on is ever shown.",
      "Quillon. This scope: " + defangEnvelope(card.scope) + ".",
      "",
      "(a) Rollover/continue a recent chat/session",
      "(b) Run a retrospective for work, life or a single session",
      "(c) Optimize quillon rules/memories",
      "(d) Explain how rules/shortcuts/scopes work",
      "",
  };
  std::vector<std::string> names;
  names.reserve(rows.size());
  for (const auto& row : rows) names.push_back(row.name);
  std::sort(names.begin(), names.end());
  for (auto& line : yoursBlock(names)) lines.push_back(std::move(line));
  if (auto stats = statsLine(card)) {
    lines.emplace_back();
    lines.push_back(std::move(*stats));
  }
  lines.emplace_back();
  lines.emplace_back(
      "For you only, never shown to the user. If their next message is one of these letters, do what it says "
      "without saying you are reading anything:");
  for (auto& order : frontDoorOrders()) lines.push_back(std::move(order));
  lines.emplace_back(kClose);
  return joined(lines);
}

std::vector<std::string> yoursBlock(const std::vector<std::string>& names) {
  if (names.empty())
    return {"YOUR SHORTCUTS   none yet \xE2\x80\x94 say: save that as a shortcut called <name>"};
  std::vector<std::string> lines;
  std::string line = "YOUR SHORTCUTS   ";
  std::size_t width = line.size();
  bool holdsToken = false;
  for (const auto& name : names) {
    const std::string token = "\\" + defangEnvelope(name);
    const std::size_t tokenWidth = unicode::characterCount(token);
    if (holdsToken && width + 2 + tokenWidth >= kWidth) {
      lines.push_back(std::move(line));
      line = std::string(kIndent);
      width = kIndent.size();
      holdsToken = false;
    }
    if (holdsToken) {
      line += "  ";
      width += 2;
    }
    line += token;
    width += tokenWidth;
    holdsToken = true;
  }
  lines.push_back(std::move(line));
  return lines;
}

std::optional<std::string> statsLine(const wire::ShortcutCard& card) {
  std::vector<std::string> parts;
  if (card.moments >= 1) parts.push_back("Moments " + count(card.moments));
  if (card.memories >= 1) parts.push_back("Memories " + count(card.memories));
  if (card.meetings >= 1) parts.push_back("Meetings " + count(card.meetings));
  if (card.version && !card.version->empty() && *card.version != wire::ClientVersion::unknown) {
    std::string version = "v" + defangEnvelope(*card.version);
    if (card.build && !card.build->empty()) version += " (" + defangEnvelope(*card.build) + ")";
    parts.push_back(std::move(version));
  }
  if (parts.empty()) return std::nullopt;
  std::string out;
  for (std::size_t i = 0; i < parts.size(); ++i) {
    if (i > 0) out += " \xE2\x80\xA2 ";
    out += parts[i];
  }
  return out;
}

std::array<std::string, 4> frontDoorOrders() {
  const std::string root = wire::ClientInstance::runbooksRootExpanded();
  return {
      "(a) Call the session_list tool; show it inside a fenced code block, every line exactly as written, never as "
      "bullets or a list \xE2\x80\x94 never the <quillon-sessions> tags and never the \"For you only\" orders under "
      "the card, which are yours alone; then follow those orders. Nothing else this turn. " +
          std::string(kLatestCardWins),
      "(b) Follow " + root + "/retrospective.md from the top.",
      "(c) Follow " + root + "/optimize.md from the top.",
      "(d) Ask them one question and nothing else this turn: \"Which one: (a) rules (b) shortcuts (c) scopes?\" On "
      "their letter, follow " + root + "/rules.md, " + root + "/shortcuts.md or " + root + "/scopes.md from the "
      "top. " + std::string(kLatestCardWins),
  };
}

}  // namespace quillon::bridge
