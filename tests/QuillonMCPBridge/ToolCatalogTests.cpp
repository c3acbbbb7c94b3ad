#include "QuillonMCPBridge/ToolCatalog.hpp"

#include <gtest/gtest.h>

using nlohmann::json;
using quillon::bridge::ToolCatalog;

namespace {

const json& tool(const std::string& name) {
  for (const auto& entry : ToolCatalog::toolsJSON())
    if (entry["name"] == name) return entry;
  static const json none;
  ADD_FAILURE() << "no tool " << name;
  return none;
}

TEST(ToolCatalog, ListsTheThirtyFourToolsInOrder) {
  const std::vector<std::string> expected = {
      "search", "memory_get_relevant", "rules_get", "grep", "grab", "day_get", "day_get_card",
      "day_get_hours_by_app", "entity_get", "storage_get_stats", "recall_stats", "memory_config_scan",
      "moment_get", "chapter_get", "screen_get", "screen_open", "memory_add", "memory_delete", "memory_edit",
      "memory_patch", "memory_edit_filters", "session_list", "scope_list_all", "memory_get_by_type",
      "memory_list_types", "scope_map_folder", "scope_set_for_session", "mod_install", "self_names",
      "meeting_list", "meeting_get", "meeting_search", "meeting_stats", "meeting_at"};
  std::vector<std::string> names;
  for (const auto& entry : ToolCatalog::toolsJSON()) names.push_back(entry["name"]);
  EXPECT_EQ(names, expected);
  EXPECT_EQ(ToolCatalog::find("search")->verb, "recall");
  EXPECT_EQ(ToolCatalog::find("memory_get_relevant")->verb, "primed");
  EXPECT_EQ(ToolCatalog::find("grab")->verb, "grab");
  EXPECT_FALSE(ToolCatalog::find("title_trace")->listed);  // served, never listed
  EXPECT_TRUE(ToolCatalog::titleTraceTools().empty());
}

// Only name, description and schema are published, built once; "required" is there only when it
// has something in it.
TEST(ToolCatalog, EntriesPublishOnlyNameDescriptionAndSchema) {
  for (const auto& entry : ToolCatalog::toolsJSON()) {
    EXPECT_EQ(entry.size(), 3u) << entry["name"];
    EXPECT_TRUE(entry["description"].is_string());
    EXPECT_NE(entry["inputSchema"].value("required", json::array({0})), json::array()) << entry["name"];
  }
  for (const char* name : {"storage_get_stats", "memory_config_scan", "scope_list_all"})
    EXPECT_EQ(tool(name)["inputSchema"], json::parse(R"({"type":"object","properties":{}})")) << name;
  EXPECT_FALSE(tool("rules_get")["inputSchema"].contains("required"));
  EXPECT_EQ(&ToolCatalog::toolsJSONText(), &ToolCatalog::toolsJSONText());
  EXPECT_EQ(json::parse(ToolCatalog::toolsJSONText()), ToolCatalog::toolsJSON());
}

TEST(ToolCatalog, ScreenOpenItemsCarryTheirOwnRequiredList) {
  EXPECT_EQ(tool("screen_open")["inputSchema"], json::parse(R"({
    "type":"object","required":["screens"],
    "properties":{"screens":{"type":"array","items":{"type":"object","required":["moment"],"properties":{
      "moment":{"type":"integer","description":"Moment id"},
      "window":{"type":"string","description":"Window handle wN; omit for every framed window"}}}}}})"));
}

TEST(ToolCatalog, SchemasKeepTypesRequiredListsAndDescriptions) {
  EXPECT_EQ(tool("screen_get")["inputSchema"], json::parse(R"({"type":"object","required":["id","window"],
    "properties":{"id":{"type":"integer","description":"Moment id"},
                  "window":{"type":"string","description":"Window handle, e.g. w1"}}})"));
  EXPECT_EQ(tool("memory_patch")["inputSchema"]["required"], json::parse(R"(["id","find","replace"])"));
  EXPECT_EQ(tool("memory_edit_filters")["inputSchema"]["properties"]["unset"]["items"], json::parse(R"({"type":"string"})"));
  EXPECT_EQ(tool("memory_add")["inputSchema"]["properties"]["filters"]["type"], "object");
  EXPECT_EQ(tool("recall_stats")["inputSchema"]["properties"]["days"]["type"], "integer");
  EXPECT_EQ(tool("meeting_get")["inputSchema"]["properties"]["times"]["type"], "boolean");
  // Some parameters carry their type alone.
  EXPECT_EQ(tool("entity_get")["inputSchema"]["properties"]["name"], json::parse(R"({"type":"string"})"));
  EXPECT_EQ(tool("day_get")["inputSchema"]["properties"]["day"], json::parse(R"({"type":"string"})"));
  EXPECT_EQ(tool("meeting_at")["inputSchema"]["properties"]["id"], json::parse(R"({"type":"string"})"));

  // Only memory_patch's replace may be blank.
  int blank = 0;
  for (const auto& entry : ToolCatalog::all())
    for (const auto& param : entry.params) blank += entry.listed && param.blankOK;
  EXPECT_EQ(blank, 1);
  EXPECT_TRUE(ToolCatalog::find("memory_patch")->params[3].blankOK);
}

TEST(ToolCatalog, DescriptionsAreKeptToTheByte) {
  EXPECT_EQ(tool("entity_get")["description"],
            "Everything about a recurring project/entity + counted stats: chapters, days, total minutes, last active.");
  const std::string type = tool("memory_add")["inputSchema"]["properties"]["type"]["description"];
  EXPECT_NE(type.find("by typing \\name (filters.name is the \\name"), std::string::npos);
  EXPECT_NE(type.find("ticket, recipe, contact\xE2\x80\xA6 One lowercase word"), std::string::npos);
  EXPECT_EQ(tool("memory_patch")["inputSchema"]["properties"]["replace"]["description"],
            "What to put in its place \xE2\x80\x94 an empty string \"\" deletes the phrase");
  EXPECT_EQ(tool("scope_map_folder")["description"],
            "Map an absolute project folder on disk to a memory scope, so memories saved while working there can be "
            "scoped to it (e.g. /Users/mq/code/quillon \xE2\x86\x92 /code/quillon). Writes the folder\xE2\x86\x92scope "
            "registry and echoes the mapping.");
}

}  // namespace
