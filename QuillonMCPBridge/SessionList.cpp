#include "QuillonMCPBridge/SessionList.hpp"

#include <algorithm>
#include <string_view>

#include "QuillonMCPBridge/TextCleaning.hpp"
#include "QuillonMCPBridge/ToolResult.hpp"

namespace quillon::bridge {

using nlohmann::json;

namespace {

constexpr std::size_t kMaxRows = 10;  // one per letter, a to j
constexpr std::string_view kDot = " \xC2\xB7 ";

const char kLearnMore[] =
    "The learn-more block is your own render from that one grab, in a fenced code block: \"- Session: <title>\", "
    "then \"    started <when> \xC2\xB7 last active <when>\", then \"    <length> \xC2\xB7 <N turns>\"; then, each "
    "after a blank line and each dropped when the card has none: \"    Tickets\" and its ticket ids with their "
    "titles (one grab per id, at most three, each trimmed to one line with \xE2\x80\xA6); \"    Files\" and its "
    "paths as written, at most five, then \"+N more\"; \"    Last exchange\" and \"      You:    <its last user "
    "line>\" then \"      Claude: <the reply's first sentences, cut with \xE2\x80\xA6>\", both wrapped at about 60 "
    "columns; then a blank line and this row's own \"      \xE2\x94\x9C (x)  continue\" and \"      \xE2\x94\x94 "
    "(s)  Show other sessions\". Nothing from the transcript \xE2\x80\x94 that is continue's job.";

void line(std::string& out, std::string_view text) {
  out += text;
  out += '\n';
}

}  // namespace

std::string renderSessionList(const std::optional<wire::SessionOffer>& offer) {
  if (!offer) return "No sessions to carry on: this connection carries no Quillon session.";
  const std::string scope = defangEnvelope(offer->scope);
  if (offer->rows.empty()) return "No other sessions in " + scope + " to carry on.";

  const std::size_t count = std::min(offer->rows.size(), kMaxRows);
  std::string out;
  line(out, "<quillon-sessions>");
  line(out, "Pick up where you left off.");
  line(out, "");
  line(out, "Scope: " + scope);
  for (std::size_t i = 0; i < count; ++i) {
    const auto& row = offer->rows[i];
    const char letter = static_cast<char>('a' + i);
    line(out, "");
    line(out, "- Session: " + defangEnvelope(singleLine(row.title)));
    std::string facts = "    " + defangEnvelope(row.when);
    if (row.length) facts += std::string(kDot) + defangEnvelope(*row.length);
    if (row.turns) facts += std::string(kDot) + std::to_string(*row.turns) + " turns";
    line(out, facts);
    line(out, std::string("      \xE2\x94\x9C (") + letter + ")  continue");
    line(out, std::string("      \xE2\x94\x94 (") + letter + "?) learn more");
  }
  line(out, "");
  line(out, "(s) Show other sessions");
  line(out, "");
  line(out,
       "For you only, never shown to the user. If their next message is one of these letters, do what it says "
       "without saying you are reading anything:");
  for (std::size_t i = 0; i < count; ++i) {
    const std::string id = defangEnvelope(offer->rows[i].id);
    if (i == 0) {
      line(out, "(a) grab " + id +
                    "; read the last 20 turns of the transcript at the file: path on the card; open the files it "
                    "names; say in three lines what it decided last and what it left open; then wait.");
      line(out, "(a?) grab " + id + "; print the learn-more block below for it; then wait.");
    } else {
      const std::string letter(1, static_cast<char>('a' + i));
      line(out, "(" + letter + ") grab " + id + "; same as (a).");
      line(out, "(" + letter + "?) grab " + id + "; same as (a?).");
    }
  }
  line(out,
       "(s) call session_list again with older true \xE2\x80\x94 the same list over 30 days, up to 10 rows \xE2\x80\x94 "
       "and show its reply exactly as you showed this one.");
  line(out, "A letter answers the most recent lettered card you showed \xE2\x80\x94 the most recent lettered card wins.");
  line(out, "Any other message: answer it as a fresh session; the card is not a gate.");
  line(out, kLearnMore);
  out += "</quillon-sessions>";
  return out;
}

Prepared prepareSessionList(const ToolCall& call) {
  return readRequest(wire::read::SessionList{.session = call.sessionArg(), .older = call.flag("older")});
}

json sessionList(const wire::GatewayResponse& response) {
  if (const auto* sessions = std::get_if<wire::answer::Sessions>(&response.value))
    return textContent(renderSessionList(sessions->offer));
  if (std::holds_alternative<wire::answer::Unimplemented>(response.value))
    return textContent("This Quillon cannot list sessions yet.");
  return textContent("Quillon did not answer just now.");
}

}  // namespace quillon::bridge
