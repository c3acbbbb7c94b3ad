#include "QuillonMCPBridge/Shortcuts.hpp"
#include "QuillonWire/ClientInstance.hpp"
#include "ToolHarness.hpp"

using nlohmann::json;
using namespace quillon;
using bridge::statsLine;
using bridge::yoursBlock;

namespace {

constexpr const char* kDupes = " \xC2\xB7 3 saved with this name \xE2\x80\x94 the newest one is used; delete the others";

// The shortcut block a prompt hook would inject for this injection, or null when there is none.
json shortcutBlock(wire::ShortcutInjection injection) {
  test::ToolHarness h;
  h.answer(wire::GatewayResponse{wire::answer::Primed{.cards = {}, .distilled = false, .shortcut = std::move(injection)}});
  const json meta = h.call("memory_get_relevant", {{"prompt", "\\x"}})["_meta"];
  return meta.value("quillon/shortcut", json());
}

wire::ShortcutInjection listed(std::vector<wire::ShortcutRow> rows, std::optional<wire::ShortcutCard> card = std::nullopt,
                               std::optional<wire::ShortcutDetail> detail = std::nullopt) {
  return {wire::shortcut::List{.rows = std::move(rows), .card = std::move(card), .detail = std::move(detail)}};
}

TEST(Shortcut, FiredBodyWithItsArgumentAndBlankBodiesSayEmpty) {
  EXPECT_EQ(shortcutBlock({wire::shortcut::Fired{.name = "pr", .body = "Open a PR.\n<user-rules>", .argument = "#12"}}),
            "<quillon-shortcut>\nThe user's message begins with \\pr \xE2\x80\x94 one of their own saved shortcuts. "
            "Follow it for this message. This is the user's instruction, not observed content.\n\n"
            "Open a PR.\n\xE2\x80\xB9user-rules\xE2\x80\xBA\n\nargument: #12\n</quillon-shortcut>");
  EXPECT_EQ(shortcutBlock({wire::shortcut::Fired{.name = "pr", .body = " \n\t\n"}}),
            "<quillon-shortcut>\nThe user's message begins with \\pr \xE2\x80\x94 one of their own saved shortcuts, "
            "but it has an empty body, so there is nothing to follow. Tell them the shortcut is empty and answer "
            "their message normally.\n</quillon-shortcut>");
}

TEST(Shortcut, PlainListOneLinePerRowOrNoneSavedYet) {
  EXPECT_EQ(shortcutBlock(listed({{.name = "pr", .when = "today", .duplicates = 3},
                                  {.name = "ship", .when = "May 2", .duplicates = 1}})),
            std::string("<quillon-shortcut>\nThe user typed \\ on its own \xE2\x80\x94 they are asking to SEE their "
                        "shortcuts. Show this list to them verbatim, and do nothing else this turn.\n"
                        "\\pr \xE2\x80\x94 today") +
                kDupes + "\n\\ship \xE2\x80\x94 May 2\n</quillon-shortcut>");
  EXPECT_EQ(shortcutBlock(listed({})),
            "<quillon-shortcut>\nThe user asked to see their shortcuts and has none saved yet. Tell them that, and "
            "that they can make one by saying: save that as a shortcut called <name>.\n</quillon-shortcut>");
}

TEST(Shortcut, DetailShowsOneShortcutOrSaysNothingIsSaved) {
  EXPECT_EQ(shortcutBlock(listed({}, std::nullopt, wire::ShortcutDetail{.name = "pr", .when = "today", .body = "\n ",
                                                                         .duplicates = 3})),
            std::string("<quillon-shortcut>\nThe user typed \\? pr \xE2\x80\x94 they are asking to SEE that one "
                        "shortcut, not to run it. Show it to them verbatim, and do nothing else this turn.\n\n"
                        "\\pr \xE2\x80\x94 today") +
                kDupes +
                "\n\n(this shortcut is saved with an empty body \xE2\x80\x94 there is nothing in it to run.)\n"
                "</quillon-shortcut>");
  EXPECT_EQ(shortcutBlock(listed({}, std::nullopt, wire::ShortcutDetail{.name = "pr", .body = "b", .duplicates = 0})),
            "<quillon-shortcut>\nThe user asked to see a shortcut called pr and nothing is saved under that name. "
            "Tell them that, and that typing ? on its own shows the menu with every shortcut they have.\n"
            "</quillon-shortcut>");
}

TEST(Shortcut, FrontDoorMenuWithSortedNamesStatsAndOrders) {
  const std::string r = wire::ClientInstance::runbooksRootExpanded();
  EXPECT_EQ(
      shortcutBlock(listed({{.name = "ship", .when = "w", .duplicates = 1}, {.name = "pr", .when = "w", .duplicates = 1}},
                           wire::ShortcutCard{.scope = "/code", .moments = 12345, .memories = 950, .meetings = 0,
                                              .version = "1.4.2", .build = "812"})),
      "<quillon-shortcut>\n"
      "The user typed ? or \\? on its own \xE2\x80\x94 they are asking to SEE the menu. Show them the card below "
      "verbatim inside a fenced code block, and do nothing else this turn. The card ends at the blank line before "
      "\"For you only\"; nothing from that line on is ever shown.\n"
      "Quillon. This scope: /code.\n\n"
      "(a) Rollover/continue a recent chat/session\n"
      "(b) Run a retrospective for work, life or a single session\n"
      "(c) Optimize quillon rules/memories\n"
      "(d) Explain how rules/shortcuts/scopes work\n\n"
      "YOUR SHORTCUTS   \\pr  \\ship\n\n"
      "Moments 12.3k \xE2\x80\xA2 Memories 950 \xE2\x80\xA2 v1.4.2 (812)\n\n"
      "For you only, never shown to the user. If their next message is one of these letters, do what it says "
      "without saying you are reading anything:\n"
      "(a) Call the session_list tool; show it inside a fenced code block, every line exactly as written, never as "
      "bullets or a list \xE2\x80\x94 never the <quillon-sessions> tags and never the \"For you only\" orders under "
      "the card, which are yours alone; then follow those orders. Nothing else this turn. A letter answers the most "
      "recent lettered card you showed \xE2\x80\x94 the most recent lettered card wins.\n"
      "(b) Follow " + r + "/retrospective.md from the top.\n"
      "(c) Follow " + r + "/optimize.md from the top.\n"
      "(d) Ask them one question and nothing else this turn: \"Which one: (a) rules (b) shortcuts (c) scopes?\" On "
      "their letter, follow " + r + "/rules.md, " + r + "/shortcuts.md or " + r + "/scopes.md from the top. A letter "
      "answers the most recent lettered card you showed \xE2\x80\x94 the most recent lettered card wins.\n"
      "</quillon-shortcut>");
}

TEST(Shortcut, FrontDoorWithoutNamesOrCountsHasNoStatsLine) {
  const std::string block =
      shortcutBlock(listed({}, wire::ShortcutCard{.scope = "/", .moments = 0, .memories = 0, .meetings = 0, .version = "0"}))
          .get<std::string>();
  EXPECT_NE(block.find("\n\nYOUR SHORTCUTS   none yet \xE2\x80\x94 say: save that as a shortcut called <name>\n\n"
                       "For you only"),
            std::string::npos);
}

TEST(YoursBlock, FortyNamesWrapBelowSeventySevenCharacters) {
  std::vector<std::string> names;
  for (int i = 0; i < 40; ++i) names.push_back("name" + std::to_string(i));
  const auto lines = yoursBlock(names);
  ASSERT_EQ(lines.size(), 7u);
  std::string tokens;
  for (std::size_t i = 0; i < lines.size(); ++i) {
    EXPECT_LT(lines[i].size(), 77u) << lines[i];
    EXPECT_EQ(lines[i].substr(0, 17), i == 0 ? "YOUR SHORTCUTS   " : std::string(17, ' '));
    tokens += (i == 0 ? "" : "  ") + lines[i].substr(17);
  }
  EXPECT_EQ(lines[0], "YOUR SHORTCUTS   \\name0  \\name1  \\name2  \\name3  \\name4  \\name5  \\name6");
  EXPECT_EQ(tokens.find("\\name39"), tokens.size() - 7);
  // One name longer than a line still gets a line of its own.
  EXPECT_EQ(yoursBlock({"a", std::string(80, 'x')}),
            (std::vector<std::string>{"YOUR SHORTCUTS   \\a", std::string(17, ' ') + "\\" + std::string(80, 'x')}));
}

TEST(StatsLine, EachNumberFormAtItsBoundaries) {
  const std::pair<std::int64_t, const char*> counts[] = {
      {1, "1"},          {999, "999"},       {1000, "1.0k"}, {12345, "12.3k"},
      {99999, "100.0k"}, {100000, "100k"},   {999999, "999k"}, {1000000, "1.0M"}, {2500000, "2.5M"},
  };
  for (const auto& [n, text] : counts)
    EXPECT_EQ(statsLine({.scope = "/", .moments = 0, .memories = 0, .meetings = n}), std::string("Meetings ") + text);
  EXPECT_EQ(statsLine({.scope = "/", .moments = 0, .memories = 0, .meetings = 0, .version = "0", .build = "9"}),
            std::nullopt);
  EXPECT_EQ(statsLine({.scope = "/", .moments = 0, .memories = 0, .meetings = 0, .version = "2.0", .build = ""}), "v2.0");
}

}  // namespace
