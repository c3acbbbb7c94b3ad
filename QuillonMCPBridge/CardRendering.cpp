#include "QuillonMCPBridge/CardRendering.hpp"

#include "QuillonBase/Text.hpp"
#include "QuillonMCPBridge/FallbackAnswers.hpp"
#include "QuillonMCPBridge/MemoryFilters.hpp"
#include "QuillonMCPBridge/TextCleaning.hpp"
#include "QuillonMCPBridge/ToolResult.hpp"
#include "QuillonMCPBridge/UnicodeText.hpp"

namespace quillon::bridge {

using nlohmann::json;

namespace {

constexpr std::string_view kDot = " \xC2\xB7 ";       // " · " between facts on a line
constexpr std::string_view kDash = "\xE2\x80\x94";    // "—" for an absent value
constexpr std::string_view kEllipsis = "\xE2\x80\xA6";  // "…"

// Stored text flattened to one line, then defanged. In this order: dropping a control character
// first could otherwise join the halves of a framing tag after the defanger had looked.
std::string cleanLine(std::string_view text) { return defangEnvelope(singleLine(text)); }

void appendFilterList(std::string& out, const std::vector<wire::FilterPair>& filters) {
  bool first = true;
  for (const auto& pair : filters) {
    if (!first) out += kDot;
    first = false;
    out += defangEnvelope(pair.key);
    // A true flag reads as its bare key ("pinned"); every other value as key=value.
    if (const bool* flag = pair.value.asBool(); flag != nullptr && *flag) continue;
    out += '=';
    out += defangEnvelope(wire::renderFilterValue(pair.value));
  }
}

std::string sessionLink(const wire::SessionLink& link) {
  std::string out = cleanLine(link.id);
  if (link.name) {
    const std::string name = cleanLine(*link.name);
    if (!name.empty()) out += " (" + name + ")";
  }
  return out;
}

void appendTrail(std::string& out, const std::optional<wire::SessionLink>& startedBy,
                 const std::optional<wire::SessionLink>& mainChat) {
  if (!startedBy) return;
  out += "\n  started by: ";
  out += sessionLink(*startedBy);
  if (mainChat) {
    out += kDot;
    out += "main chat: ";
    out += sessionLink(*mainChat);
  }
}

void appendSessionBody(std::string& out, const wire::SessionBody& body) {
  std::string when;
  if (body.started) when += "started " + defangEnvelope(*body.started);
  if (body.lastActive) {
    if (!when.empty()) when += kDot;
    when += "last active " + defangEnvelope(*body.lastActive);
  }
  if (!when.empty()) out += "\n  when: " + when;

  if (!body.files.empty()) {
    const auto count = static_cast<wire::Int>(body.files.size());
    out += "\n  files (" + std::to_string(count);
    if (body.filesMore >= 1) out += " of " + std::to_string(count + body.filesMore);
    out += "):";
    for (const auto& file : body.files) out += "\n    " + defangEnvelope(file);
  }
  if (!body.tickets.empty()) {
    out += "\n  tickets: ";
    for (std::size_t i = 0; i < body.tickets.size(); ++i) {
      if (i > 0) out += kDot;
      out += defangEnvelope(body.tickets[i]);
    }
    if (body.ticketsMore >= 1) {
      out += kDot;
      out += kEllipsis;
      out += " and " + std::to_string(body.ticketsMore) + " more";
    }
  }
  if (!body.tail.empty()) {
    out += "\n  tail:";
    for (const auto& line : body.tail) out += "\n    " + cleanLine(line);
  }
  if (body.continuesFrom) out += "\n  continues from: " + defangEnvelope(*body.continuesFrom);
  appendTrail(out, body.startedBy, body.mainChat);
}

void appendMomentBody(std::string& out, const wire::MomentBody& body, std::string_view id) {
  out += "\n  text (";
  out += defangEnvelope(body.source);
  out += body.cleaned ? ", cleaned):" : ", raw, not cleaned yet):";
  for (const auto line : unicode::lines(body.text)) {
    const std::string clean = defangEnvelope(dropControls(line));
    if (clean.empty()) {
      out += '\n';
    } else {
      out += "\n    ";
      out += clean;
    }
  }
  // Tells the model how to fetch what the gateway held back.
  if (body.hidden >= 1) {
    out += "\n    ";
    out += kEllipsis;
    out += ' ' + base::grouped(body.hidden) + " more characters";
    out += kDot;
    out += "grab " + defangEnvelope(id) + " full:true";
  }
  out += "\n  session: ";
  out += body.sessionArtifact ? cleanLine(*body.sessionArtifact) : std::string("unknown");
  appendTrail(out, body.startedBy, body.mainChat);
}

void appendNoteCard(std::string& out, const wire::Card& card) {
  out += '[';
  out += defangEnvelope(card.memoryKind.value_or("memory"));
  out += "] ";
  out += defangEnvelope(card.id);
  if (card.title) {
    const std::string title = singleLine(*card.title);
    if (!title.empty()) {
      out += kDot;
      out += '"' + defangEnvelope(title) + '"';
    }
  }
  if (card.when) {
    out += kDot;
    out += defangEnvelope(*card.when);
  }
  if (card.chapter) {
    out += kDot;
    out += defangEnvelope(*card.chapter);
  }
  out += "\n  ";
  out += card.snippet ? defangEnvelope(*card.snippet) : std::string(kDash);
  out += "\n  why: " + defangEnvelope(card.why);
  if (card.filters && !card.filters->empty()) {
    out += "\n  filters: ";
    appendFilterList(out, *card.filters);
  }
  if (card.filed && !card.filed->empty()) out += "\n  filed: " + defangEnvelope(*card.filed);
  if (card.subagent && !card.subagent->empty()) out += "\n  by subagent: " + defangEnvelope(*card.subagent);
  if (card.excerpt && !card.excerpt->empty()) out += "\n  matched: " + defangEnvelope(*card.excerpt);
}

void appendCard(std::string& out, const wire::Card& card) {
  if (card.kind == "note") {
    appendNoteCard(out, card);
    return;
  }
  out += '[' + card.kind + "] " + card.id;
  if (card.when) {
    out += kDot;
    out += *card.when;
  }
  if (card.chapter) {
    out += kDot;
    out += *card.chapter;
  }
  out += "\n  ";
  if (!card.snippet)
    out += kDash;
  else if (card.kind == "session")
    out += cleanLine(*card.snippet);  // a session's snippet is chat text: flatten and clean it
  else
    out += *card.snippet;  // moment snippets keep their own line breaks
  if (card.session) appendSessionBody(out, *card.session);
  if (card.locator) out += "\n  file: " + *card.locator;
  if (card.excerpt && !card.excerpt->empty()) out += "\n  matched: \"" + *card.excerpt + '"';
  if (card.body) appendMomentBody(out, *card.body, card.id);
  out += "\n  why: ";
  if (card.why.empty())
    out += kDash;
  else
    out += card.why;
}

std::string typeRow(const wire::KindCount& type) {
  std::string out = defangEnvelope(type.kind) + " (" + std::to_string(type.count) + ")";
  if (type.filters && !type.filters->empty()) {
    out += " [";
    for (std::size_t i = 0; i < type.filters->size(); ++i) {
      const auto& key = (*type.filters)[i];
      if (i > 0) out += ", ";
      out += defangEnvelope(key.key) + "(" + std::to_string(key.count) + ")";
    }
    out += ']';
  }
  return out;
}

}  // namespace

std::string renderCard(const wire::Card& card) {
  std::string out;
  appendCard(out, card);
  return out;
}

std::string renderNoteCard(const wire::Card& card) {
  std::string out;
  appendNoteCard(out, card);
  return out;
}

std::string renderCompactRow(const wire::Card& card) {
  std::string out = defangEnvelope(card.id);
  if (card.title) {
    const std::string title = singleLine(*card.title);
    if (!title.empty()) {
      out += kDot;
      out += '"' + defangEnvelope(title) + '"';
    }
  }
  if (card.filters && !card.filters->empty()) {
    out += kDot;
    appendFilterList(out, *card.filters);
  }
  if (card.when) {
    out += kDot;
    out += defangEnvelope(*card.when);
  }
  return out;
}

std::string renderSessionBody(const wire::SessionBody& body) {
  std::string out;
  appendSessionBody(out, body);
  return out;
}

std::string renderMomentBody(const wire::MomentBody& body, std::string_view id) {
  std::string out;
  appendMomentBody(out, body, id);
  return out;
}

std::string renderTrail(const std::optional<wire::SessionLink>& startedBy,
                        const std::optional<wire::SessionLink>& mainChat) {
  std::string out;
  appendTrail(out, startedBy, mainChat);
  return out;
}

json cards(const wire::GatewayResponse& response, bool windowed) {
  const auto* hits = std::get_if<wire::answer::Cards>(&response.value);
  if (hits == nullptr) return fallback(response);
  if (hits->cards.empty())
    return textContent(windowed ? "No matches \xE2\x80\x94 nothing matched in that time window." : "No matches.");
  std::string out;
  for (std::size_t i = 0; i < hits->cards.size(); ++i) {
    if (i > 0) out += "\n\n";
    appendCard(out, hits->cards[i]);
  }
  return textContent(std::move(out));
}

json thing(const wire::GatewayResponse& response) {
  const auto* found = std::get_if<wire::answer::Thing>(&response.value);
  if (found == nullptr) return fallback(response);
  if (!found->card) return textContent("No such thing.");
  return textContent(renderCard(*found->card));
}

json byType(const wire::GatewayResponse& response, std::string_view type) {
  const auto* listing = std::get_if<wire::answer::KindCards>(&response.value);
  if (listing == nullptr) return fallback(response);
  const std::string name = defangEnvelope(unicode::lowercased(unicode::trimmed(type)));
  const std::string scope = defangEnvelope(listing->scope);
  if (listing->cards.empty()) return textContent("no " + name + " memories under " + scope);
  const std::size_t count = listing->cards.size();
  std::string out = std::to_string(count) + " " + name + (count == 1 ? " memory" : " memories") + " under " + scope + ":\n\n";
  for (std::size_t i = 0; i < count; ++i) {
    if (i > 0) out += '\n';
    out += renderCompactRow(listing->cards[i]);
  }
  return textContent(std::move(out));
}

json listTypes(const wire::GatewayResponse& response) {
  const auto* inventory = std::get_if<wire::answer::KindTypes>(&response.value);
  if (inventory == nullptr) return fallback(response);
  const std::string scope = defangEnvelope(inventory->scope);
  if (inventory->types.empty()) return textContent("no memory types under " + scope);
  const std::size_t count = inventory->types.size();
  std::string out = std::to_string(count) + (count == 1 ? " type" : " types") + " under " + scope + ": ";
  for (std::size_t i = 0; i < count; ++i) {
    if (i > 0) out += kDot;
    out += typeRow(inventory->types[i]);
  }
  return textContent(std::move(out));
}

}  // namespace quillon::bridge
