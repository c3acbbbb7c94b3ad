#include "QuillonMCPBridge/MemoryFilters.hpp"
#include "ToolHarness.hpp"

using nlohmann::json;
using namespace quillon;
using test::ok;
using test::refused;
using test::wireJSON;

namespace {

const std::string kEmDash = "\xE2\x80\x94";

json notes(const char* payload) { return {{"notes", {{"_0", json::parse(payload)}}}}; }

wire::GatewayResponse noteID(std::string id, std::optional<std::vector<std::string>> echo = std::nullopt) {
  return wire::GatewayResponse{wire::answer::NoteID{.id = std::move(id), .echo = std::move(echo)}};
}

TEST(MemoryAdd, SendsWriteWithTheDefaultsFilledIn) {
  test::ToolHarness h;
  h.initialize("claude-code");
  h.answerText("Saved m:41 <quillon-rules>");
  EXPECT_EQ(h.call("memory_add", {{"text", "Tabs over spaces"}, {"why", "asked twice"}, {"title", ""}}),
            ok("Saved m:41 \xE2\x80\xB9quillon-rules\xE2\x80\xBA"));
  EXPECT_EQ(h.sent(), notes(R"({"write":{"text":"Tabs over spaces","why":"asked twice","writer":"claude-code",
                                        "type":"note","path":""}})"));
}

TEST(MemoryAdd, SendsEveryFieldGivenWithFiltersTyped) {
  test::ToolHarness h;
  h.answerText("Saved m:42");
  h.call("memory_add", {{"text", "t"},
                        {"why", "w"},
                        {"type", "ticket"},
                        {"scope", "/code"},
                        {"title", "Retire staging"},
                        {"filters", {{"urgent", true}, {"priority", 3}, {"ratio", 0.5}, {"status", "queued"}}},
                        {"_quillon_session", "s-1"},
                        {"_quillon_subagent", "sub-1"}});
  const json sent = h.sent();
  EXPECT_EQ(sent, notes(R"({"write":{"text":"t","why":"w","writer":"","type":"ticket","path":"/code",
                                     "title":"Retire staging","session":"s-1","subagent":"sub-1",
                                     "filters":{"urgent":true,"priority":3.0,"ratio":0.5,"status":"queued"}}})"));
  // true stays a boolean on the wire, never the number 1.
  EXPECT_TRUE(sent["notes"]["_0"]["write"]["filters"]["urgent"].is_boolean());
}

TEST(MemoryAdd, FiltersThatAreNotAFlatObjectOfScalarsAreRefused) {
  test::ToolHarness h;
  const std::pair<json, std::string> cases[] = {
      {"status=queued", "filters must be an object of key\xE2\x86\x92scalar, e.g. {\"status\":\"queued\",\"priority\":\"high\"}"},
      {{{"a", json::array({1})}}, "filter 'a' must be a scalar " + kEmDash + " string, number, or bool (no nested objects or arrays)"},
      {{{"n", nullptr}}, "filter 'n' must be a scalar " + kEmDash + " string, number, or bool (no nested objects or arrays)"},
  };
  for (const auto& [filters, message] : cases) {
    EXPECT_EQ(h.call("memory_add", {{"text", "t"}, {"why", "w"}, {"filters", filters}}), refused(message)) << filters;
    EXPECT_TRUE(h.nothingSent());
  }
}

TEST(MemoryEdit, RefusesInTheOrderTheChecksAreListed) {
  test::ToolHarness h;
  const std::pair<json, std::string> cases[] = {
      {{{"id", "m:41"}}, "memory_edit needs 'text', 'why', 'type', 'scope', 'filters' or 'title' " + kEmDash +
                             " the field(s) to change. The id stays."},
      {{{"id", "m:41"}, {"text", 5}, {"title", nullptr}}, "memory_edit needs 'text', 'why', 'type', 'scope', 'filters' or 'title' " +
                                                               kEmDash + " the field(s) to change. The id stays."},
      {{{"id", "m:41"}, {"text", " \n"}, {"why", ""}, {"title", 5}},
       "memory_edit's 'text' is empty " + kEmDash + " omit it to keep the current text, or pass the new memory."},
      {{{"id", "m:41"}, {"text", "x"}, {"why", "\t"}},
       "memory_edit's 'why' is empty " + kEmDash + " omit it to keep the current why, or pass the new one."},
      {{{"id", "m:41"}, {"type", " "}, {"scope", ""}},
       "memory_edit's 'type' is empty " + kEmDash + " omit it to keep the current type, or pass note/rule."},
      {{{"id", "m:41"}, {"scope", ""}}, "memory_edit's 'scope' is empty " + kEmDash + " omit it to keep the current scope, or pass a new one."},
      {{{"id", "m:41"}, {"title", 5}, {"filters", "x"}},
       "memory_edit's 'title' must be a string " + kEmDash + " a short label, or \"\" to clear the title."},
      {{{"id", "m:41"}, {"filters", {{"a", json::object()}}}},
       "filter 'a' must be a scalar " + kEmDash + " string, number, or bool (no nested objects or arrays)"},
  };
  for (const auto& [arguments, message] : cases) {
    EXPECT_EQ(h.call("memory_edit", arguments), refused(message)) << arguments;
    EXPECT_TRUE(h.nothingSent());
  }
}

TEST(MemoryEdit, SendsOnlyTheFieldsGivenAndAnEmptyTitleClearsIt) {
  test::ToolHarness h;
  h.answer(noteID("m:41"));
  EXPECT_EQ(h.call("memory_edit", {{"id", "m:41"}, {"title", ""}}), ok("Updated m:41."));
  EXPECT_EQ(h.sent(), notes(R"({"edit":{"id":"m:41","title":""}})"));

  h.call("memory_edit", {{"id", "m:41"}, {"filters", json::object()}});
  EXPECT_EQ(h.sent(), notes(R"({"edit":{"id":"m:41","filters":{}}})"));

  h.call("memory_edit", {{"id", "m:41"}, {"text", "t"}, {"why", "w"}, {"type", "rule"}, {"scope", "/code"},
                         {"filters", {{"status", "shipped"}}}, {"title", "T"}});
  EXPECT_EQ(h.sent(), notes(R"({"edit":{"id":"m:41","text":"t","why":"w","type":"rule","path":"/code",
                                        "filters":{"status":"shipped"},"title":"T"}})"));
}

TEST(MemoryEdit, ConfirmationEchoesTheChangedLinesDefanged) {
  test::ToolHarness h;
  const json arguments = {{"id", "m:41"}, {"why", "w"}};
  h.answer(noteID("m:41", std::vector<std::string>{"a", "b"}));
  EXPECT_EQ(h.call("memory_edit", arguments), ok("Updated m:41.\na\nb"));
  h.answer(noteID("m:41", std::vector<std::string>{}));
  EXPECT_EQ(h.call("memory_edit", arguments), ok("Updated m:41."));
  h.answer(noteID("m:41", std::vector<std::string>{"text: </quillon-now>"}));
  EXPECT_EQ(h.call("memory_edit", arguments), ok("Updated m:41.\ntext: \xE2\x80\xB9/quillon-now\xE2\x80\xBA"));
  h.answerText("Nothing changed.");
  EXPECT_EQ(h.call("memory_edit", arguments), ok("Nothing changed."));
}

TEST(MemoryPatch, AnEmptyReplaceIsSentAndDeletesThePhrase) {
  test::ToolHarness h;
  h.answer(noteID("m:41"));
  EXPECT_EQ(h.call("memory_patch", {{"id", "m:41"}, {"find", "teh"}, {"replace", ""}}), ok("Updated m:41."));
  EXPECT_EQ(h.sent(), notes(R"({"patch":{"id":"m:41","field":"text","find":"teh","replace":"","replaceAll":false}})"));

  h.call("memory_patch", {{"id", "m:41"}, {"find", "a"}, {"replace", "b"}, {"field", "why"}, {"replace_all", true}});
  EXPECT_EQ(h.sent(), notes(R"({"patch":{"id":"m:41","field":"why","find":"a","replace":"b","replaceAll":true}})"));
}

TEST(MemoryEditFilters, NeedsSetOrUnsetAndUnsetMustListKeys) {
  test::ToolHarness h;
  const std::pair<json, std::string> cases[] = {
      {{{"id", "m:41"}}, "memory_edit_filters needs 'set' (keys to add/change) or 'unset' (keys to remove)."},
      {{{"id", "m:41"}, {"unset", "urgent"}}, "memory_edit_filters' 'unset' must be an array of key names, e.g. [\"urgent\"]."},
      {{{"id", "m:41"}, {"unset", json::array({"urgent", 3})}}, "memory_edit_filters' 'unset' must be an array of key names, e.g. [\"urgent\"]."},
      {{{"id", "m:41"}, {"set", "x"}, {"unset", "y"}},
       "filters must be an object of key\xE2\x86\x92scalar, e.g. {\"status\":\"queued\",\"priority\":\"high\"}"},
  };
  for (const auto& [arguments, message] : cases) {
    EXPECT_EQ(h.call("memory_edit_filters", arguments), refused(message)) << arguments;
    EXPECT_TRUE(h.nothingSent());
  }
  h.answer(noteID("m:41", std::vector<std::string>{"filters: status=shipped"}));
  EXPECT_EQ(h.call("memory_edit_filters", {{"id", "m:41"}, {"set", {{"status", "shipped"}}}, {"unset", json::array({"urgent"})}}),
            ok("Updated m:41.\nfilters: status=shipped"));
  EXPECT_EQ(h.sent(), notes(R"({"editFilters":{"id":"m:41","set":{"status":"shipped"},"unset":["urgent"]}})"));
  h.call("memory_edit_filters", {{"id", "m:41"}, {"unset", json::array()}});
  EXPECT_EQ(h.sent(), notes(R"({"editFilters":{"id":"m:41","unset":[]}})"));
}

TEST(MemoryDelete, OkIsDeletedAndAnythingElseFallsBack) {
  test::ToolHarness h;
  h.answer(wire::GatewayResponse{wire::answer::Ok{}});
  EXPECT_EQ(h.call("memory_delete", {{"id", "m:41"}}), ok("Deleted."));
  EXPECT_EQ(h.sent(), notes(R"({"delete":{"id":"m:41"}})"));
  h.answerText("gone");
  EXPECT_EQ(h.call("memory_delete", {{"id", "m:41"}}), ok(kEmDash));
}

TEST(ScopeAndNameTools, SendTheirNotesRequest) {
  test::ToolHarness h("env-1");
  h.initialize("codex");
  h.answerText("Mapped /Users/mq/code/quillon \xE2\x86\x92 /code/quillon <user-rules>");
  EXPECT_EQ(h.call("scope_map_folder", {{"folder", "/Users/mq/code/quillon"}, {"scope", "/code/quillon"}}),
            ok("Mapped /Users/mq/code/quillon \xE2\x86\x92 /code/quillon \xE2\x80\xB9user-rules\xE2\x80\xBA"));
  EXPECT_EQ(h.sent(), notes(R"({"mapPath":{"folder":"/Users/mq/code/quillon","path":"/code/quillon"}})"));

  h.call("scope_set_for_session", {{"scope", "/code/quillon"}});
  EXPECT_EQ(h.sent(), notes(R"({"setPath":{"path":"/code/quillon","writer":"codex","session":"env-1"}})"));

  h.call("scope_list_all");
  EXPECT_EQ(h.sent(), notes(R"({"listPaths":{}})"));

  h.call("mod_install", {{"name", "tasks"}});
  EXPECT_EQ(h.sent(), notes(R"({"modInstall":{"name":"tasks","writer":"codex"}})"));
}

TEST(ScopeAndNameTools, SelfNamesReadsWithoutNamesAndReplacesWithThem) {
  test::ToolHarness h;
  h.answerText("Mara Quint, MQ4411");
  EXPECT_EQ(h.call("self_names"), ok("Mara Quint, MQ4411"));
  EXPECT_EQ(h.sent(), notes(R"({"selfNames":{}})"));
  h.call("self_names", {{"names", {"Mara Quint", "MQ4411"}}});
  EXPECT_EQ(h.sent(), notes(R"({"selfNames":{"names":["Mara Quint","MQ4411"]}})"));
  h.call("self_names", {{"names", json::array()}});  // the gateway refuses an empty list in its own words
  EXPECT_EQ(h.sent(), notes(R"({"selfNames":{"names":[]}})"));
  for (const json& names : {json("Mara Quint"), json::array({"Mara", 7})}) {
    EXPECT_EQ(h.call("self_names", {{"names", names}}),
              refused("self_names' 'names' must be an array of names, e.g. [\"Mara Quint\", \"MQ4411\"]."));
    EXPECT_TRUE(h.nothingSent());
  }
}

}  // namespace
