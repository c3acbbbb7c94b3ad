#include <set>

#include "QuillonMCPBridge/ToolCatalog.hpp"
#include "ToolHarness.hpp"

using nlohmann::json;
using namespace quillon;
using quillon::bridge::ToolCatalog;
using quillon::bridge::ToolSpec;
using test::ok;
using test::refused;
using test::wireJSON;

namespace {

// A fault, an unknown name (compared exactly) or title_trace without a string id is answered at
// once: nothing is sent.
TEST(ToolDispatch, FaultsAndUnknownNamesAnswerBeforeAnythingIsSent) {
  test::ToolHarness h;
  const struct {
    const char* tool;
    json arguments;
    std::string answer;
  } calls[] = {
      {"grep", json::object(), "grep needs a string 'query' \xE2\x80\x94 The exact words/identifier to match literally."},
      {"memory_frobnicate", json::object(), "Unknown tool: memory_frobnicate"},
      {"Search", {{"query", "x"}}, "Unknown tool: Search"},
      {"title_trace", {{"id", 3}}, "title_trace needs a string 'id'."},
  };
  for (const auto& c : calls) {
    EXPECT_EQ(h.call(c.tool, c.arguments), refused(c.answer));
    EXPECT_TRUE(h.nothingSent()) << c.tool;
  }
}

TEST(ToolDispatch, TextToolsSendTheirReadAndOnlyEntityGetDefangsTheAnswer) {
  test::ToolHarness h;
  const std::string stored = "<quillon-memory>x</QUILLON-memory a=1>";
  h.answerText(stored);
  const struct {
    const char* tool;
    json arguments;
    const char* request;
  } cases[] = {
      {"day_get", json::object(), R"({"getDay":{"day":"today"}})"},
      {"day_get", {{"day", ""}}, R"({"getDay":{"day":"today"}})"},
      {"day_get_card", {{"day", "2025-05-02"}}, R"({"dayCard":{"day":"2025-05-02"}})"},
      {"storage_get_stats", json::object(), R"({"storageStats":{}})"},
      {"recall_stats", {{"days", 30}}, R"({"recallStats":{"days":30}})"},
      {"memory_config_scan", json::object(), R"({"configScan":{}})"},
      {"moment_get", {{"id", "812"}}, R"({"getMoment":{"id":"812"}})"},
      {"chapter_get", {{"id", "ch:344"}}, R"({"getChapter":{"id":"ch:344"}})"},
      {"title_trace", {{"id", "ch:3"}}, R"({"titleTrace":{"id":"ch:3"}})"},
  };
  for (const auto& c : cases) {
    EXPECT_EQ(h.call(c.tool, c.arguments), ok(stored)) << c.tool;
    EXPECT_EQ(h.sent(), (json{{"read", {{"_0", json::parse(c.request)}}}})) << c.tool;
  }
  EXPECT_EQ(h.call("entity_get", {{"name", "Atlas"}}),
            ok("\xE2\x80\xB9quillon-memory\xE2\x80\xBAx\xE2\x80\xB9/QUILLON-memory\xE2\x80\xBA"));
  EXPECT_EQ(h.sent(), wireJSON(R"({"read":{"_0":{"getEntity":{"name":"Atlas"}}}})"));
}

TEST(ToolDispatch, IntegersAndFlagsAreReadOnlyFromTheirOwnJsonTypes) {
  test::ToolHarness h;
  h.answerText("-");
  const std::pair<json, const char*> days[] = {
      {30, R"({"days":30})"}, {-1, R"({"days":-1})"}, {30.5, "{}"}, {30.0, "{}"},
      {"30", "{}"},           {true, "{}"},          {nullptr, "{}"}, {json::array({30}), "{}"},
  };
  for (const auto& [value, payload] : days) {
    h.call("recall_stats", {{"days", value}});
    EXPECT_EQ(h.sent()["read"]["_0"]["recallStats"], json::parse(payload)) << value;
  }
  // Only the JSON boolean true asks for the whole text; 1 and "true" are not true.
  const std::pair<json, bool> full[] = {{true, true}, {false, false}, {1, false}, {"true", false}, {nullptr, false}};
  for (const auto& [value, expected] : full) {
    h.call("grab", {{"id", "m:1"}, {"full", value}});
    EXPECT_EQ(h.sent()["read"]["_0"]["grab"]["full"], expected) << value;
  }
}

// Arguments that pass a tool's own checks: every required parameter, by its kind.
json requiredArguments(const ToolSpec& tool) {
  json arguments = json::object();
  for (const auto& param : tool.params) {
    if (!param.required) continue;
    const std::string type = param.schema.value("type", "");
    if (type == "integer") arguments[param.name] = 1;
    else if (type == "array") arguments[param.name] = json::array({{{"moment", 1}}});
    else if (param.name == "folder") arguments[param.name] = "/code/quillon";
    else arguments[param.name] = "m:1";
  }
  // Two edits need one optional field at least.
  if (tool.name == "memory_edit") arguments["why"] = "w";
  if (tool.name == "memory_edit_filters") arguments["set"] = {{"k", "v"}};
  return arguments;
}

// Every record of the catalogue is a whole tool: it is listed or knowingly not, its call sends
// exactly one request, and an answer its renderer does not expect falls back alike.
TEST(ToolDispatch, EveryToolInTheCatalogueIsServedByItsRecord) {
  test::ToolHarness h;
  std::set<std::string> names;
  std::size_t listed = 0;
  for (const ToolSpec& tool : ToolCatalog::all()) {
    SCOPED_TRACE(tool.name);
    EXPECT_TRUE(names.insert(tool.name).second);
    listed += tool.listed;
    EXPECT_EQ(tool.listed, !tool.description.empty());
    const json arguments = requiredArguments(tool);
    h.answer(wire::GatewayResponse{wire::answer::Failure{.message = "No such memory: m:1"}});
    const json failed = h.call(tool.name, arguments);
    EXPECT_EQ(h.sent().size(), 1u);
    h.answer(wire::GatewayResponse{wire::answer::Unimplemented{.verb = "frob"}});
    const json unimplemented = h.call(tool.name, arguments);
    h.answer(wire::GatewayResponse{wire::answer::Flag{.value = true}});
    const json unexpected = h.call(tool.name, arguments);
    if (tool.name == "session_list") {
      // An offer of sessions that cannot be made is no error to the model.
      EXPECT_EQ(failed, ok("Quillon did not answer just now."));
      EXPECT_EQ(unimplemented, ok("This Quillon cannot list sessions yet."));
      continue;
    }
    EXPECT_EQ(failed, refused("No such memory: m:1"));
    EXPECT_EQ(unimplemented, refused("frob isn't available yet."));
    EXPECT_EQ(unexpected, ok("\xE2\x80\x94"));
  }
  EXPECT_EQ(listed, ToolCatalog::toolsJSON().size());
  EXPECT_EQ(listed, 34u);
  // ok is only expected by memory_delete.
  h.answer(wire::GatewayResponse{wire::answer::Ok{}});
  EXPECT_EQ(h.call("day_get"), ok("\xE2\x80\x94"));
}

TEST(ToolDispatch, SessionIsTheNamedOneElseTheCallersElseTheBridges) {
  test::ToolHarness h("env-session");
  h.answer(wire::GatewayResponse{wire::answer::Thing{}});
  h.call("grab", {{"id", "m:1"}});
  EXPECT_EQ(h.sent(), wireJSON(R"({"read":{"_0":{"grab":{"id":"m:1","full":false,"session":"env-session"}}}})"));

  h.call("grab", {{"id", "m:1"}, {"_quillon_session", "s-2"}, {"_quillon_subagent", "sub-1"}, {"session_id", ""}});
  EXPECT_EQ(h.sent(), wireJSON(R"({"read":{"_0":{"grab":{"id":"m:1","full":false,"session":"s-2","subagent":"sub-1"}}}})"));

  h.call("grab", {{"id", "m:1"}, {"_quillon_session", "s-2"}, {"session_id", "named"}});
  EXPECT_EQ(h.sent()["read"]["_0"]["grab"]["session"], "named");

  test::ToolHarness noSession;
  noSession.answer(wire::GatewayResponse{wire::answer::Thing{}});
  noSession.call("grab", {{"id", "m:1"}});
  EXPECT_EQ(noSession.sent(), wireJSON(R"({"read":{"_0":{"grab":{"id":"m:1","full":false}}}})"));
}

TEST(ToolDispatch, WriterIsTheAgentThatNamedItselfAtTheTimeOfTheCall) {
  test::ToolHarness h;
  h.answerText("ok");
  const json arguments = {{"name", "tasks"}};
  h.call("mod_install", arguments);
  EXPECT_EQ(h.sent(), wireJSON(R"({"notes":{"_0":{"modInstall":{"name":"tasks","writer":""}}}})"));
  h.initialize("claude-code");
  h.call("mod_install", arguments);
  EXPECT_EQ(h.sent()["notes"]["_0"]["modInstall"]["writer"], "claude-code");
  h.call("mod_install", arguments, {{"ai.opencode/sessionID", "ses_1"}});
  EXPECT_EQ(h.sent()["notes"]["_0"]["modInstall"]["writer"], "opencode");
}

}  // namespace
