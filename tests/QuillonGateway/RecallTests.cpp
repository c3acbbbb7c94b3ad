// Recall in the development gateway: search by words, grep by literals, the primed lane on every
// prompt, and the shortcuts typed into it. What the agent reads comes from these answers.
#include "QuillonGateway/RecallWords.hpp"
#include "QuillonGateway/Sqlite.hpp"
#include "StoreGatewayFixture.hpp"

namespace quillon::gateway {
namespace {

using Ids = std::vector<std::string>;
// Queries with the ids they find, in order.
using Finds = std::vector<std::pair<std::string, Ids>>;

class RecallTest : public StoreGatewayTest {
 protected:
  json search(const std::string& query, json bounds = json::object()) {
    bounds["query"] = query;
    return read("recall", bounds);
  }
  json grep(const std::string& query, json bounds = json::object()) {
    bounds["query"] = query;
    return read("grep", bounds);
  }
  json primed(const std::string& prompt, json extra = json::object()) {
    json payload = {{"prompt", prompt}, {"countsPrompt", false}};
    payload.update(extra);
    return read("primed", payload)["primed"];
  }
  // The ids of a cards answer, or the grab ids of a primed one, in order.
  static Ids ids(const json& answer) {
    Ids found;
    const bool isPrimed = answer.contains("_0");
    for (const auto& card : isPrimed ? answer.at("_0") : answer.at("cards").at("_0"))
      found.push_back(card.at(isPrimed ? "grabId" : "id"));
    return found;
  }
  // A memory saved `daysAgo` days before the fixture's noon.
  void save(const std::string& text, json extra = json::object(), double daysAgo = 0) {
    const double was = now;
    now = kNoon - daysAgo * 86400;
    write(text, extra.is_null() ? json::object() : std::move(extra));
    now = was;
  }
};

TEST_F(RecallTest, SearchMatchesWordFormsInEveryFieldWithTheTitleWeighingMost) {
  save("Run make deploy-staging, then watch the health page.", {{"type", "recipe"}, {"why", "so deploys repeat"}});
  save("Profiling showed the parser spends its time in retry_backoff_ms.", {{"why", "perf"}});
  save("Notes on the staging bucket", {{"title", "Deploying atlas"}, {"path", "/code/atlas"}});
  save("Lunch with Zoë at the café in Zürich", {{"filters", {{"person", "zoe"}, {"pinned", true}}}});

  for (const auto& [query, found] : Finds{{"deploying", {"m:3", "m:1"}}, {"profile", {"m:2"}}, {"backoff", {"m:2"}},
                                         {"ZURICH cafe", {"m:4"}}, {"pinned", {"m:4"}}, {"code/atlas", {"m:3"}}})
    EXPECT_EQ(ids(search(query)), found) << query;
  // A card is the memory as grab shows it, with the words around the match for its text.
  EXPECT_EQ(search("parser")["cards"]["_0"][0], json::parse(R"({"kind":"note","id":"m:2",
    "snippet":"Profiling showed the parser spends its time in retry_backoff_ms.","why":"perf","when":"2026-11-21",
    "filed":"/","memoryKind":"note","title":"Profiling showed the parser spends its time in…"})"));
}

TEST_F(RecallTest, SearchTakesWhatIsTypedAsWordsNeverAsSyntax) {
  save("The release of version 1.30 fixed ticket m:12 in src/db/migrate.ts");
  save("Do not release on Fridays");
  for (const std::string& query :
       std::vector<std::string>{"\"", "\"unclosed phrase", "NEAR(release fix)", "release*", "-release", "title:release",
                                "(release)", "release AND OR NOT", "^release", "!!!", "🚀", "日本語の検索", "بحث",
                                "{title}: x", std::string("re\0lease", 8)})
    EXPECT_TRUE(search(query).contains("cards")) << query << " → " << search(query).dump();
  // Quoted words are one phrase, in order; unquoted, any of them; stop words alone are looked for.
  for (const auto& [query, found] :
       Finds{{"1.30", {"m:1"}}, {"m:12", {"m:1"}}, {"src/db/migrate.ts", {"m:1"}}, {"\"release on Fridays\"", {"m:2"}},
             {"\"Fridays release\"", {}}, {"do not", {"m:2"}}})
    EXPECT_EQ(ids(search(query)), found) << query;
  EXPECT_EQ(ids(search("Fridays version")).size(), 2u);
  EXPECT_EQ(search("…"), json::parse(R"({"cards":{"_0":[]}})"));
}

TEST_F(RecallTest, SearchAndGrepKeepToTheirTimeBounds) {
  save("backup the garden photos", {}, 3);  // 2026-11-18
  save("backup the laptop", {}, 1);         // 2026-11-20
  save("backup the phone", {}, 0);          // 2026-11-21
  EXPECT_EQ(ids(search("backup", {{"from", "2026-11-20"}})), (Ids{"m:3", "m:2"}));
  // A bare date as the upper bound holds its whole day.
  EXPECT_EQ(ids(search("backup", {{"to", "2026-11-20"}})), (Ids{"m:2", "m:1"}));
  EXPECT_EQ(ids(grep("backup", {{"from", "2026-11-19"}, {"to", "2026-11-20T23:00"}})), Ids{"m:2"});
  EXPECT_EQ(ids(grep("backup", {{"from", "2026-11-21T11:00:00Z"}})), Ids{"m:3"});
  EXPECT_EQ(ids(grep("backup", {{"from", "2026-11-21T13:30:00+02:00"}})), Ids{"m:3"});
  EXPECT_EQ(ids(grep("backup", {{"to", "2026-11-17"}, {"from", " "}})), Ids{});
  EXPECT_EQ(search("backup", {{"from", "last tuesday"}}),
            failure("'from' is not a date: 'last tuesday'. Send an ISO date or date-time — 2026-06-30, "
                    "2026-06-30T09:00 (the user's local time) or 2026-06-30T09:00:00Z — or leave it out."));
  EXPECT_EQ(grep("backup", {{"to", "2026-02-30"}})["failure"]["message"].get<std::string>().substr(0, 30),
            "'to' is not a date: '2026-02-3");
}

TEST_F(RecallTest, GrepFindsLiteralsInAnyCaseNewestFirst) {
  save("Set RETRY_BACKOFF_MS=250 in the worker", {{"why", "flaky uploads"}});
  save("The café in ZÜRICH closes at six", {{"filters", {{"ticket", "ENG-1234"}}}});
  save("retry_backoff_ms is read once at start");
  // A literal is never split into words; one shorter than a trigram is read from the newest.
  for (const auto& [query, found] :
       Finds{{"retry_backoff_ms", {"m:3", "m:1"}}, {"zürich", {"m:2"}}, {"eng-1234", {"m:2"}}, {"flaky up", {"m:1"}},
             {"ms=25", {"m:1"}}, {"backoff ms", {}}, {"Z", {"m:2"}}, {"%", {}}, {"  ", {}}})
    EXPECT_EQ(ids(grep(query)), found) << query;
  // The snippet is the text around the literal.
  save(std::string(300, 'x') + " needle " + std::string(300, 'y'));
  const std::string snippet = grep("NEEDLE")["cards"]["_0"][0]["snippet"];
  EXPECT_NE(snippet.find("needle"), std::string::npos);
  EXPECT_LT(snippet.size(), 400u);
}

TEST_F(RecallTest, TheIndexFollowsEveryChangeToAMemory) {
  save("Staging runs on the blue cluster", {{"type", "fact"}});
  notes("edit", {{"id", "m:1"}, {"text", "Staging runs on the green cluster"}});
  EXPECT_EQ(ids(search("blue")), Ids{});
  EXPECT_EQ(ids(grep("green")), Ids{"m:1"});
  notes("patch", {{"id", "m:1"}, {"find", "green"}, {"replace", "amber"}, {"field", "text"}, {"replaceAll", false}});
  EXPECT_EQ(ids(search("amber")), Ids{"m:1"});
  EXPECT_EQ(ids(search("green")), Ids{});
  notes("editFilters", {{"id", "m:1"}, {"set", {{"owner", "priya"}}}});
  EXPECT_EQ(ids(search("priya")), Ids{"m:1"});
  notes("editFilters", {{"id", "m:1"}, {"unset", {"owner"}}});
  EXPECT_EQ(ids(grep("priya")), Ids{});
  notes("edit", {{"id", "m:1"}, {"title", "Cluster colours"}, {"type", "decision"}});
  EXPECT_EQ(ids(search("colours decision")), Ids{"m:1"});
  notes("delete", {{"id", "m:1"}});
  EXPECT_EQ(ids(search("cluster")), Ids{});
  EXPECT_EQ(ids(grep("amber")), Ids{});
  Database database(temp.path() + "/store.db");
  database.exec("INSERT INTO recall_words(recall_words) VALUES('integrity-check');"
                "INSERT INTO recall_grams(recall_grams) VALUES('integrity-check');");
}

TEST(RecallMigration, AnOlderStoreIsIndexedOnOpeningWithProgress) {
  test::TempFolder temp;
  const std::string path = temp.path() + "/store.db";
  {
    MemoryStore store(path);
    auto transaction = store.beginWrite();
    for (int i = 0; i < 10'005; ++i) {
      Memory memory;
      memory.type = "note";
      memory.scope = "/";
      memory.text = "memory number " + std::to_string(i) + (i == 10'004 ? " holds the quokka" : "");
      memory.why = "w";
      memory.writer = "test";
      store.insert(memory);
    }
    transaction->commit();
    // As the store was before recall: no indexes, and the schema version before them.
    store.database().exec("DROP TABLE recall_words; DROP TABLE recall_grams; DROP VIEW recall_source; "
                          "DROP TABLE sessions; DROP TABLE recall_prompts; DROP TABLE recall_shown; DROP TABLE recall_opened; "
                          "DROP INDEX memories_by_session; DROP TABLE door_tokens; PRAGMA user_version = 2;");
  }
  std::vector<std::string> lines;
  MemoryStore store(path, [&](std::string_view line) { lines.emplace_back(line); });
  EXPECT_EQ(store.schemaVersion(), MemoryStore::kSchemaVersion);
  EXPECT_EQ(lines, (std::vector<std::string>{"indexing 10005 memories for recall", "indexed 10000 of 10005 memories",
                                             "indexed 10005 of 10005 memories"}));
  StoreGateway gateway(store, {}, [] { return kNoon; });
  const auto answer = gateway.serve(wire::GatewayRequest{wire::request::Read{wire::ReadRequest{
      wire::read::Recall{.query = "quokka", .from = {}, .to = {}}}}});
  EXPECT_EQ(std::get<wire::answer::Cards>(answer.value).cards.at(0).id, "m:10005");
}

TEST_F(RecallTest, PrimedShowsOnlyStrongMatchesNeverRulesOrShortcuts) {
  save("Deploy atlas to staging with make deploy-staging; the health check lives at /healthz.",
       {{"type", "recipe"}, {"title", "Deploying atlas to staging"}, {"path", "/code/atlas"}}, 2);
  save("Priya Raman owns the billing service; ask her before touching invoices.", {{"type", "person"}}, 20);
  save("Always run the linter before committing", {{"type", "rule"}});
  save("Summarise the staging deploy for standup", {{"type", "shortcut"}, {"filters", {{"name", "standup"}}}});
  for (int i = 0; i < 20; ++i) save("filler memory about the garden, number " + std::to_string(i));

  const json card = primed("can you help me with deploying atlas to staging again?")["_0"];
  EXPECT_EQ(card, json::parse(R"([{"when":"2026-11-19","whenRelative":"2 days ago","chapter":"/code/atlas · recipe",
    "gist":"Deploying atlas to staging",
    "evidence":"Deploy atlas to staging with make deploy-staging; the health check lives at /healthz.",
    "grabId":"m:1"}])"));
  EXPECT_EQ(ids(primed("I need to change how invoices work in billing; who should I ask?")), Ids{"m:2"});
  for (const std::string quiet :
       {"rename this variable to count", "why does the test fail on CI?", "thanks!", "continue",
        "always run the linter before committing", "standup", "the garden"})
    EXPECT_EQ(primed(quiet), json::parse(R"({"_0":[],"distilled":false})")) << quiet;
}

TEST_F(RecallTest, PrimedPutsTheCallersScopeFirstAndShowsAtMostThree) {
  for (const std::string scope : {"/home", "/code/atlas", "/code/atlas/api", "/work"})
    save("The flamingo migration renumbers every quokka table", {{"path", scope}});
  for (int i = 0; i < 20; ++i) save("filler number " + std::to_string(i));
  notes("mapPath", {{"folder", "/home/mara/atlas"}, {"path", "/code/atlas"}});
  const json answer = primed("what about the flamingo quokka migration", {{"cwd", "/home/mara/atlas/src"}});
  EXPECT_EQ(ids(answer), (Ids{"m:3", "m:2", "m:4"}));
  notes("setPath", {{"path", "/work"}, {"writer", "codex"}, {"session", "s-9"}});
  EXPECT_EQ(ids(primed("flamingo quokka migration?", {{"session", "s-9"}, {"writer", "codex"}})), (Ids{"m:4", "m:3", "m:2"}));
}

TEST_F(RecallTest, PrimedAnswersAnyPromptAndCountsAHooksPrompts) {
  save("The quokka service listens on port 8443");
  for (int i = 0; i < 10; ++i) save("filler number " + std::to_string(i));
  std::string longPrompt;
  while (longPrompt.size() < 100'000) longPrompt += "please fix the thing and then the other thing ";
  for (const std::string& prompt :
       std::vector<std::string>{longPrompt, "the and of to a in is it", "?!.,;:()[]{}", "🚀🔥✨", "日本語のテキスト",
                                "نص عربي", "NEAR(x y) AND \"", std::string("quokka\0service", 14), "*", "\\"})
    EXPECT_TRUE(primed(prompt).contains("_0")) << prompt.substr(0, 40);
  // What the long prompt is about comes after all its stop words.
  EXPECT_EQ(ids(primed(longPrompt + " quokka service 8443")), Ids{"m:1"});
  primed("hello", {{"session", "s-1"}, {"countsPrompt", true}});
  primed("again", {{"session", "s-1"}, {"countsPrompt", true}});
  EXPECT_EQ(store.promptsOf("s-1"), 2);
  EXPECT_EQ(store.promptsOf("s-2"), 0);
}

TEST_F(RecallTest, ShortcutsFireListAndShowTheFrontDoor) {
  save("Old standup body", {{"type", "shortcut"}, {"filters", {{"name", "standup"}}}}, 9);
  save("Summarise yesterday for standup", {{"type", "shortcut"}, {"filters", {{"name", "Standup"}}}}, 1);
  save("Review the diff", {{"type", "shortcut"}, {"filters", {{"name", "review"}}}});
  save("standup notes live in the wiki");

  EXPECT_EQ(primed("  \\standup  for the team \n"), json::parse(R"({"_0":[],"distilled":false,
    "shortcut":{"fired":{"name":"Standup","body":"Summarise yesterday for standup","argument":"for the team"}}})"));
  EXPECT_EQ(primed("\\REVIEW")["shortcut"], json::parse(R"({"fired":{"name":"review","body":"Review the diff"}})"));
  // Not a shortcut: an ordinary prompt.
  EXPECT_FALSE(primed("\\nothing here").contains("shortcut"));
  EXPECT_FALSE(primed("\\ standup").contains("shortcut"));
  EXPECT_EQ(primed("\\")["shortcut"], json::parse(R"json({"list":{"_0":[
    {"name":"review","when":"saved 2026-11-21 (today)","duplicates":1},
    {"name":"Standup","when":"saved 2026-11-20 (yesterday)","duplicates":2}]}})json"));
  for (const std::string door : {"?", " \\? "}) {
    json shown = primed(door, {{"cwd", "/nowhere"}})["shortcut"]["list"];
    EXPECT_EQ(shown["_0"].size(), 2u);
    EXPECT_TRUE(shown["card"]["version"].is_string());
    shown["card"].erase("version");
    EXPECT_EQ(shown["card"], json::parse(R"({"scope":"/","memories":4,"moments":0,"meetings":0})")) << door;
  }
  EXPECT_EQ(primed("\\? STANDUP")["shortcut"], json::parse(R"json({"list":{"_0":[],"detail":{"name":"Standup",
    "when":"saved 2026-11-20 (yesterday)","body":"Summarise yesterday for standup","duplicates":2}}})json"));
  EXPECT_EQ(primed("\\?nope")["shortcut"],
            json::parse(R"({"list":{"_0":[],"detail":{"name":"nope","body":"","duplicates":0}}})"));
}

TEST(RecallWords, BoundsAndDaysAsTheUserMeansThem) {
  setenv("TZ", "Europe/Berlin", 1);
  tzset();
  using recall::timeBound;
  // A bare date starts at local midnight (UTC+2), and as an upper bound holds its whole day.
  for (const auto& [text, upper, at] : std::vector<std::tuple<std::string, bool, double>>{
           {"2026-06-30", false, 1782770400}, {"2026-06-30", true, 1782770400 + 86400 - 1e-3},
           {"2026-06-30T09:00", true, 1782802800}, {"2026-06-30 09:00:30.5", false, 1782802830.5},
           {"2026-06-30T09:00:00Z", false, 1782810000}, {"2026-06-30T09:00:00-0130", false, 1782815400}})
    EXPECT_EQ(timeBound(text, upper), at) << text << (upper ? " (upper)" : "");
  for (const char* bad : {"", "today", "2026-6-30", "2026-06-31", "2026-13-01", "2026-06-30T25:00", "2026-06-30T09",
                          "2026-06-30T09:00Zulu", "2026-06-30T09:00+2"})
    EXPECT_FALSE(timeBound(bad, false)) << bad;

  // Seconds before noon of 2026-11-21, a Saturday; 13 hours before is 00:00 in Berlin.
  for (const auto& [ago, said] : std::vector<std::pair<double, std::string>>{
           {0, "today"}, {13 * 3600, "today"}, {13.5 * 3600, "yesterday"}, {3 * 86400, "3 days ago"},
           {15 * 86400, "2 weeks ago"}, {95 * 86400, "3 months ago"}, {400 * 86400, "1 year ago"}, {-86400, "today"}})
    EXPECT_EQ(recall::relativeDay(kNoon - ago, kNoon), said) << ago;
  setenv("TZ", "UTC", 1);
  tzset();
}

TEST(RecallWords, PromptWordsSkipStopWordsAndRepeatsUpToTheLimit) {
  using Word = recall::PromptWord;
  EXPECT_EQ(recall::promptWords("Please fix the (parser.cpp) crash, the PARSER crash: it's Priya's "
                                "retry_backoff_ms’s fault. Moving on, ask Priya about JSON in parseConfig",
                                12),
            (std::vector<Word>{{"parser.cpp", true}, {"crash", false}, {"PARSER", false}, {"Priya", true},
                               {"retry_backoff_ms", true}, {"fault", false}, {"Moving", false}, {"JSON", false},
                               {"parseConfig", true}}));
  EXPECT_EQ(recall::promptWords("alpha beta gamma delta", 2), (std::vector<Word>{{"alpha", false}, {"beta", false}}));
  EXPECT_EQ(recall::queryPhrases("say \"it's \"\"odd\" NOT"),
            (std::vector<std::string>{R"("it's ")", R"("odd")"}));
  EXPECT_EQ(recall::firstSentence("Use staging. Then prod"), "Use staging.");
  EXPECT_EQ(recall::firstSentence("v1.30 ships\nsoon"), "v1.30 ships");
}

}  // namespace
}  // namespace quillon::gateway
