// The development gateway's answers, served in process from a store in a temporary file: what an
// agent reads back (through the bridge's renderers) depends on these exact answers.
#include "QuillonGateway/ShapeLaws.hpp"
#include "QuillonGateway/Sqlite.hpp"
#include "StoreGatewayFixture.hpp"

namespace quillon::gateway {
namespace {

TEST_F(StoreGatewayTest, WriteFilesUnderTheGivenScopeAndSaysWhenItIsNew) {
  EXPECT_EQ(write("Tabs over spaces"), text("Saved m:1 (note) under /."));
  EXPECT_EQ(write("Retire staging", {{"type", "ticket"}, {"path", "code/quillon/"}}),
            text("Saved m:2 (ticket) under /code/quillon — a new scope; scope_list_all shows the scopes that already "
                 "exist."));
  EXPECT_EQ(write("Second", {{"path", "/code/quillon"}}), text("Saved m:3 (note) under /code/quillon."));
  // A shortcut is typed by name anywhere, so it lives at the root.
  EXPECT_EQ(write("Summarise the diff", {{"type", "shortcut"}, {"path", "/code"}}),
            text("Saved m:4 (shortcut) under / — shortcuts always live at /."));
}

TEST_F(StoreGatewayTest, IdsAreNeverReusedAndAGrabOfAnythingButAStoredMemoryIsNoThing) {
  write("one");
  write("two");
  EXPECT_EQ(notes("delete", {{"id", "m:2"}}), json({{"ok", json::object()}}));
  EXPECT_EQ(write("three"), text("Saved m:3 (note) under /."));
  EXPECT_EQ(notes("delete", {{"id", "m:2"}}),
            failure("No memory m:2 — it may have been deleted; memory_get_by_type or memory_list_types shows what "
                    "is saved."));
  EXPECT_EQ(notes("delete", {{"id", "41"}}),
            failure("'41' is not a memory id — memory ids look like m:41 (from a memory card)."));
  for (const char* gone : {"m:2", "ch:344"})
    EXPECT_EQ(read("grab", {{"id", gone}, {"full", false}}), json::parse(R"({"thing":{}})")) << gone;
  EXPECT_EQ(read("grab", {{"id", "m:1"}, {"full", true}})["thing"]["_0"]["title"], "one");
}

TEST_F(StoreGatewayTest, ShapeLawRefusalsSayHowToCallAgainAndStoreNothing) {
  EXPECT_EQ(write("x", {{"path", "/Code/My Project"}}),
            failure("Scope '/Code/My Project' breaks the scope law: lowercase letters, digits and dashes, up to 3 "
                    "levels (e.g. /code/quillon). Try '/code/my-project'."));
  EXPECT_EQ(write("x", {{"type", "Open Ticket"}}),
            failure("Type 'Open Ticket' breaks the type law: one lowercase word — letters, digits, dashes (note, "
                    "rule, ticket…). Try 'open-ticket'."));
  EXPECT_EQ(write("x", {{"filters", {{"commit", "shipped e73cbab"}}}}),
            failure("Filter 'commit' is 'shipped e73cbab', which holds a space: a string value is ONE short token, no "
                    "spaces, at most 40 characters — a status, an id, a date, a commit hash. Two facts fused into one "
                    "value bounce — split them into two keys (e.g. status + commit); prose belongs in text, a name in "
                    "title."));
  EXPECT_EQ(write("x", {{"filters", {{"Due Date", "2026-07-14"}}}}),
            failure("Filter key 'Due Date' breaks the shape law: keys are single lowercase words (letters, digits, "
                    "underscores, dashes). Try 'due_date'."));
  EXPECT_EQ(write(""), failure("A memory needs 'text' — the memory itself, not empty."));
  EXPECT_EQ(notes("listPaths"),
            text("No scopes yet — nothing is filed. memory_add files under / unless you pass a scope (e.g. /code)."));
  EXPECT_EQ(write("ok"), text("Saved m:1 (note) under /."));
}

TEST_F(StoreGatewayTest, EditChangesOnlyTheNamedFieldsAndEchoesThem) {
  write("The staging DB retires", {{"type", "ticket"}, {"title", "Old title"}, {"filters", {{"status", "queued"}, {"pinned", true}}}});
  now += 86400;
  EXPECT_EQ(notes("edit", {{"id", "m:1"}, {"title", ""}, {"path", "/code"}, {"filters", {{"status", "shipped"}, {"stars", 4}}}}),
            updated("m:1", {"title: cleared — cards show a title made from the text", "scope: /code (a new scope)",
                            "filters: stars=4 · status=shipped"}));
  EXPECT_EQ(read("grab", {{"id", "m:1"}, {"full", false}}),
            json::parse(R"({"thing":{"_0":{"kind":"note","id":"m:1","snippet":"The staging DB retires","why":"because",
              "when":"2026-11-21 · edited 2026-11-22","filed":"/code","memoryKind":"ticket",
              "filters":[{"key":"stars","value":4.0},{"key":"status","value":"shipped"}],
              "title":"The staging DB retires"}}})"));
  EXPECT_EQ(notes("edit", {{"id", "m:1"}}),
            failure("Nothing to change in m:1 — pass text, why, title, type, scope or filters: the field(s) to change. "
                    "The id stays."));
  EXPECT_EQ(notes("edit", {{"id", "m:9"}, {"why", "w"}}),
            failure("No memory m:9 — it may have been deleted; memory_get_by_type or memory_list_types shows what is "
                    "saved."));
}

TEST_F(StoreGatewayTest, PatchMustMatchExactlyOnceUnlessReplaceAll) {
  write("ship it, then ship the docs");
  auto patch = [&](const std::string& find, const std::string& replace, bool all, const std::string& field = "text") {
    return notes("patch", {{"id", "m:1"}, {"field", field}, {"find", find}, {"replace", replace}, {"replaceAll", all}});
  };
  EXPECT_EQ(patch("ship", "land", false),
            failure("'ship' appears 2 times in m:1's text — add surrounding words to make it unique, or pass "
                    "replace_all to change every one."));
  EXPECT_EQ(patch("Ship", "land", false),
            failure("'Ship' does not appear in m:1's text — matching is exact, including case. grab m:1 to read it as "
                    "stored."));
  EXPECT_EQ(patch("ship", "land", true),
            updated("m:1", {"text: land it, then land the docs", "2 occurrences replaced"}));
  EXPECT_EQ(patch(", then land the docs", "", false), updated("m:1", {"text: land it"}));
  EXPECT_EQ(patch("land it", "", false),
            failure("That patch would leave m:1's text empty — pass other wording, or memory_delete the memory."));
  EXPECT_EQ(patch("x", "y", false, "title"),
            failure("m:1 has no title of its own to patch — set one with memory_edit's title."));
}

TEST_F(StoreGatewayTest, SizesAreBoundedSoEveryAnswerFitsItsLine) {
  EXPECT_EQ(write(std::string(ShapeLaws::kMaxTextBytes * 3 / 2, 'x')),
            failure("The text is 1.5 MiB, over the 1 MiB a memory's text holds — keep the memory itself, and leave "
                    "bulk data in files the text names."));
  EXPECT_EQ(write("t", {{"why", std::string(40000, 'w')}}),
            failure("The why is 40 KiB, over the 16 KiB a why holds — one line: why this is worth keeping."));
  EXPECT_EQ(write("t", {{"title", std::string(1025, 't')}}),
            failure("The title is 1025 bytes, over the 1 KiB a title holds — a few words that name the memory."));
  EXPECT_EQ(write("t", {{"path", "/" + std::string(300, 'a')}}),
            failure("Scope '/" + std::string(59, 'a') + "…' is 301 bytes, over the 256 bytes a scope holds: lowercase "
                    "letters, digits and dashes, up to 3 levels (e.g. /code/quillon)."));
  EXPECT_EQ(write("t", {{"type", std::string(65, 'a')}}),
            failure("Type '" + std::string(60, 'a') + "…' breaks the type law: one lowercase word — letters, digits, "
                    "dashes (note, rule, ticket…)."));
  json many = json::object();
  for (int i = 0; i < 33; ++i) many["k" + std::to_string(i)] = i;
  EXPECT_EQ(write("t", {{"filters", many}}),
            failure("That is 33 filters; a memory carries at most 32 — keep the keys you will filter by, and put the "
                    "rest in text."));
  EXPECT_EQ(notes("delete", {{"id", std::string(5000, 'm')}}),
            failure("'" + std::string(60, 'm') + "…' is not a memory id — memory ids look like m:41 (from a memory card)."));

  // A patch is sized before it is made, and an echo quotes the start of a long text.
  EXPECT_EQ(write(std::string(600000, 'a')), text("Saved m:1 (note) under /."));
  EXPECT_EQ(notes("patch", {{"id", "m:1"}, {"field", "text"}, {"find", "a"}, {"replace", "bb"}, {"replaceAll", true}}),
            failure("That patch would make m:1's text 1.1 MiB, over the 1 MiB it holds — nothing was changed."));
  const json echoed = notes("patch", {{"id", "m:1"}, {"field", "text"}, {"find", "aaaa"}, {"replace", "é"}, {"replaceAll", true}});
  std::string start;
  for (int i = 0; i < 1000; ++i) start += "é";
  EXPECT_EQ(echoed["noteID"]["echo"][0], "text: " + start + "…");
  EXPECT_EQ(notes("patch", {{"id", "m:1"}, {"field", "text"}, {"find", std::string(300, 'z')}, {"replace", "y"}, {"replaceAll", false}}),
            failure("'" + std::string(200, 'z') + "…' does not appear in m:1's text — matching is exact, including "
                    "case. grab m:1 to read it as stored."));

  // A listing row carries what the listing shows, and never the why.
  write("listed", {{"why", std::string(16000, 'w')}, {"type", "ticket"}});
  EXPECT_EQ(read("getByType", {{"type", "ticket"}})["kindCards"]["cards"][0]["why"], "");
}

TEST_F(StoreGatewayTest, ATokenServesAChangeOnceAndItsRetryGetsTheSameAnswer) {
  const auto once = [&](const std::string& token, const json& request) {
    auto decoded = wire::decodeRequest(request.dump());
    return wire::toJSON(gateway.serveOnce(decoded.value(), token)).value();
  };
  const json add = {{"notes", {{"_0", {{"write", {{"text", "once"}, {"why", "w"}, {"writer", "t"}, {"type", ""}, {"path", ""}}}}}}}};
  const json remove = {{"notes", {{"_0", {{"delete", {{"id", "m:1"}}}}}}}};
  EXPECT_EQ(once("t-1", add), text("Saved m:1 (note) under /."));
  EXPECT_EQ(once("t-1", add), text("Saved m:1 (note) under /."));
  EXPECT_EQ(once("t-2", add), text("Saved m:2 (note) under /."));
  EXPECT_EQ(once("t-3", remove), json::parse(R"({"ok":{}})"));
  EXPECT_EQ(once("t-3", remove), json::parse(R"({"ok":{}})"));  // not "No memory m:1"
  // A refusal is kept as well: the retry of a write that changed nothing changes nothing either.
  EXPECT_EQ(once("t-4", remove)["failure"].is_object(), true);
  EXPECT_EQ(once("t-4", remove), once("t-4", remove));

  // Reads are never kept; a token an hour old is forgotten.
  EXPECT_EQ(once("t-1", {{"read", {{"_0", {{"grab", {{"id", "m:2"}, {"full", false}}}}}}}})["thing"]["_0"]["id"], "m:2");
  now += MemoryStore::kTokenSeconds + 1;
  EXPECT_EQ(once("t-1", add), text("Saved m:3 (note) under /."));
  EXPECT_EQ(read("getByType", {{"type", "note"}})["kindCards"]["cards"].size(), 2u);

  // Another program holding the store (an import) fails a change whole, kept or not, and its
  // retry is served afresh once the store is free.
  store.database().waitWhenBusy(0);
  Database importer(temp.path() + "/store.db");
  importer.exec("BEGIN IMMEDIATE");
  const json busy = failure("The store is busy: another program has held it for over 10 s (an import, perhaps); "
                            "nothing was changed. Try again in a moment.");
  EXPECT_EQ(once("t-5", add), busy);
  EXPECT_EQ(write("untokened"), busy);
  importer.exec("ROLLBACK");
  EXPECT_EQ(once("t-5", add), text("Saved m:4 (note) under /."));
}

TEST_F(StoreGatewayTest, EditFiltersSetsAndUnsetsNamedKeysOnly) {
  write("t", {{"filters", {{"status", "queued"}, {"parent", "m:201"}, {"urgent", true}}}});
  EXPECT_EQ(notes("editFilters", {{"id", "m:1"}, {"set", {{"status", "shipped"}, {"budget", 1234567.5}}}, {"unset", {"urgent", "absent"}}}),
            updated("m:1", {"filters: budget=1234567.5 · parent=m:201 · status=shipped"}));
  EXPECT_EQ(notes("editFilters", {{"id", "m:1"}, {"unset", {"budget", "parent", "status"}}}), updated("m:1", {"filters: none"}));
  EXPECT_EQ(notes("editFilters", {{"id", "m:1"}}),
            failure("Nothing to change in m:1's filters — pass 'set' (keys to add or change) or 'unset' (keys to "
                    "remove)."));
}

TEST_F(StoreGatewayTest, GetByTypeMatchesScopePrefixAndEveryFilterNewestFirst) {
  write("a", {{"type", "ticket"}, {"path", "/code"}, {"filters", {{"status", "queued"}, {"n", 1}}}});
  now += 1;
  write("b", {{"type", "ticket"}, {"path", "/code/quillon"}, {"filters", {{"status", "queued"}, {"n", true}}}});
  now += 1;
  write("c", {{"type", "ticket"}, {"path", "/codex"}, {"filters", {{"status", "queued"}}}});
  write("e", {{"type", "ticket"}, {"path", "/code-x"}, {"filters", {{"status", "queued"}}}});
  write("d", {{"type", "note"}, {"path", "/code"}});  // m:5

  const auto ids = [&](json payload) {
    std::vector<std::string> found;
    const json answer = read("getByType", std::move(payload));
    for (const auto& card : answer["kindCards"]["cards"]) found.push_back(card["id"]);
    return found;
  };
  EXPECT_EQ(ids({{"type", "ticket"}, {"path", "/code"}}), (std::vector<std::string>{"m:2", "m:1"}));
  EXPECT_EQ(ids({{"type", "ticket"}, {"path", "/code"}, {"filters", {{"status", "queued"}}}}),
            (std::vector<std::string>{"m:2", "m:1"}));
  EXPECT_EQ(ids({{"type", "Ticket "}}), (std::vector<std::string>{"m:4", "m:3", "m:2", "m:1"}));
  // A flag is never the number 1.
  EXPECT_EQ(ids({{"type", "ticket"}, {"filters", {{"n", true}}}}), (std::vector<std::string>{"m:2"}));
  EXPECT_EQ(ids({{"type", "ticket"}, {"filters", {{"n", 1}, {"status", "queued"}}}}), (std::vector<std::string>{"m:1"}));
  EXPECT_EQ(read("getByType", {{"type", "recipe"}, {"path", "/code"}}),
            json::parse(R"({"kindCards":{"scope":"/code","cards":[]}})"));
  EXPECT_EQ(read("listTypes", {{"scope", "/code"}}),
            json::parse(R"({"kindTypes":{"scope":"/code","types":[
              {"kind":"ticket","count":2,"filters":[{"key":"n","count":2},{"key":"status","count":2}]},
              {"kind":"note","count":1}]}})"));
}

TEST_F(StoreGatewayTest, ScopesSessionsAndFolders) {
  write("r", {{"type", "rule"}, {"path", "/code"}});
  write("n", {{"path", "/code"}});
  EXPECT_EQ(notes("mapPath", {{"folder", "/home/mq/code/quillon/"}, {"path", "/code/quillon"}}),
            text("Mapped /home/mq/code/quillon → /code/quillon."));
  EXPECT_EQ(notes("mapPath", {{"folder", "/home/mq/code/quillon"}, {"path", "/code"}}),
            text("Mapped /home/mq/code/quillon → /code. It was mapped to /code/quillon before."));
  EXPECT_EQ(notes("mapPath", {{"folder", "~/code"}, {"path", "/code"}}),
            failure("Folder '~/code' is not an absolute path — pass the project directory from the root, e.g. "
                    "/home/mq/code/quillon (expand ~ yourself)."));
  notes("mapPath", {{"folder", "/srv/docs"}, {"path", "/docs"}});
  EXPECT_EQ(notes("listPaths"), text("/code — 1 rule · 1 note\n/docs — 0 rules · 0 notes"));

  EXPECT_EQ(notes("setPath", {{"path", "/code/quillon"}, {"writer", "codex"}, {"session", "s1"}}),
            text("Session scope: /code/quillon (before: none, so /). It holds for two hours, or until you set "
                 "another."));
  EXPECT_EQ(write("in session", {{"session", "s1"}}), text("Saved m:3 (note) under /code/quillon, the session's scope."));
  EXPECT_EQ(write("other session", {{"session", "s2"}}), text("Saved m:4 (note) under /."));
  now += StoreGateway::kSessionScopeSeconds + 1;
  EXPECT_EQ(write("expired", {{"session", "s1"}}), text("Saved m:5 (note) under /."));
}

TEST_F(StoreGatewayTest, StandingRulesWalkTheChainFromTheNamedSessionOrFolderScope) {
  write("Always run the tests", {{"type", "rule"}});
  write("Use tabs", {{"type", "rule"}, {"path", "/code/quillon"}});
  write("Deeper", {{"type", "rule"}, {"path", "/code/quillon/docs"}});
  write("Not a rule", {{"path", "/code"}});
  notes("mapPath", {{"folder", "/home/mq/code"}, {"path", "/code"}});
  notes("mapPath", {{"folder", "/home/mq/code/quillon"}, {"path", "/code/quillon"}});
  const auto walk = [&](json payload) {
    payload["card"] = false;
    return read("standingRules", std::move(payload))["standingWalk"]["_0"];
  };
  EXPECT_EQ(walk({{"cwd", "/home/mq/code/quillon/src"}}), json::parse(R"({"path":"/code/quillon","levels":[
              {"path":"/","rules":["Always run the tests"]},{"path":"/code/quillon","rules":["Use tabs"]}],
              "overflow":1})"));
  EXPECT_EQ(walk({{"cwd", "/home/mq/codex"}})["path"], "/");
  EXPECT_EQ(walk({{"cwd", "/home/mq/code/x"}, {"scope", "/code/quillon/docs"}})["levels"].size(), 3u);
  notes("setPath", {{"path", "/code"}, {"writer", "codex"}, {"session", "s1"}});
  EXPECT_EQ(walk({{"cwd", "/home/mq/code/quillon"}, {"session", "s1"}}),
            json::parse(R"({"path":"/code","levels":[{"path":"/","rules":["Always run the tests"]}],"overflow":2})"));
  // A session start asks for the card: the same rules, compact, and a pointer for a tight ceiling.
  EXPECT_EQ(read("standingRules", {{"card", true}, {"cwd", "/home/mq/code/quillon"}}),
            json::parse(R"({"rulesCard":{"scope":"/code/quillon",
              "card":"/ (everywhere)\n- Always run the tests\n/code/quillon\n- Use tabs\n…1 more at deeper levels",
              "pointer":"2 standing rules apply at /code/quillon; rules_get with this folder as cwd shows them."}})"));
  for (const char* id : {"m:1", "m:2"}) notes("delete", {{"id", id}});
  EXPECT_TRUE(read("standingRules", {{"card", true}, {"cwd", "/tmp"}}).contains("standingWalk"));
}

TEST_F(StoreGatewayTest, SelfNamesReadReplaceAndRefuse) {
  EXPECT_EQ(notes("selfNames")["text"]["_0"].get<std::string>().rfind("No names yet", 0), 0u);
  EXPECT_EQ(notes("selfNames", {{"names", {"Mara Quint", " MQ4411 ", "Mara Quint"}}}),
            text("Names saved: Mara Quint, MQ4411. Mara Quint labels the user's own transcript lines."));
  EXPECT_EQ(notes("selfNames", {{"names", json::array()}}),
            failure("An empty list is refused — names replaces the whole list, so send every name the user uses (read "
                    "the current list by calling self_names with no arguments)."));
  EXPECT_EQ(notes("selfNames", {{"names", {"Quint, Mara"}}}),
            failure("'Quint, Mara' holds a comma, and a comma always separates names — send each name as its own "
                    "entry of the list."));
  EXPECT_EQ(notes("selfNames"), text("Mara Quint, MQ4411"));
}

TEST_F(StoreGatewayTest, ModInstallWritesTheShelfOnceAndNamesWhatProvesIt) {
  EXPECT_EQ(notes("modInstall", {{"name", "tasks"}, {"writer", "codex"}}),
            text("Installed the tasks mod as 5 memories: m:1 (data), m:2 (add), m:3 (show), m:4 (edit), m:5 (tidy). "
                 "It rides prompts from now on; grab any of them to read it."));
  EXPECT_EQ(notes("modInstall", {{"name", "tasks"}, {"writer", "codex"}}),
            failure("The tasks mod is already installed: m:1, m:2, m:3, m:4, m:5 carry it, and nothing was changed. "
                    "Installing never overwrites — the user's copy may hold their own edits; change it with "
                    "memory_edit or memory_patch instead."));
  EXPECT_EQ(notes("modInstall", {{"name", "kanban"}, {"writer", "codex"}}),
            failure("No mod named 'kanban' on the shelf — it holds: tasks."));
  EXPECT_EQ(read("listTypes")["kindTypes"]["types"][0]["count"], 5);
}

TEST_F(StoreGatewayTest, UnservedVerbsAreNamedAndDiagnosticsAreKept) {
  EXPECT_EQ(read("getDay", {{"day", "today"}}), json::parse(R"({"unimplemented":{"verb":"getDay"}})"));
  EXPECT_EQ(serve({{"control", {{"_0", {{"pause", json::object()}}}}}}),
            json::parse(R"({"unimplemented":{"verb":"pause"}})"));
  EXPECT_EQ(serve({{"diagnostic", {{"_0", {{"log", {{"source", "mcp"}, {"line", "hello"}}}}}}}}),
            json({{"ok", json::object()}}));
  EXPECT_EQ(diagnostics, std::vector<std::string>{"mcp: hello"});
}

TEST(MemoryStoreFile, ReopensWithItsDataAndRefusesANewerSchema) {
  test::TempFolder temp;
  const std::string path = temp.path() + "/store.db";
  {
    MemoryStore store(path);
    EXPECT_EQ(store.schemaVersion(), MemoryStore::kSchemaVersion);
    store.setSelfNames({"Mara"});
  }
  {
    MemoryStore store(path);
    EXPECT_EQ(store.selfNames(), std::vector<std::string>{"Mara"});
  }
  {
    // A newer gateway's store: this one must not touch what it does not understand.
    Database database(path);
    database.exec("PRAGMA user_version = 99");
  }
  EXPECT_THROW(MemoryStore{path}, SqlError);
}

}  // namespace
}  // namespace quillon::gateway
