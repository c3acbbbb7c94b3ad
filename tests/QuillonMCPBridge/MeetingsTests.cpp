#include "ToolHarness.hpp"

using nlohmann::json;
using namespace quillon;
using test::ok;

namespace {

json meetingRead(const char* payload) { return {{"read", {{"_0", json::parse(payload)}}}}; }

TEST(Meetings, EachToolSendsItsReadWithOnlyUsableArguments) {
  test::ToolHarness h("env-1");
  h.answerText("-");
  const struct {
    const char* tool;
    json arguments;
    const char* request;
  } cases[] = {
      {"meeting_list", json::object(), R"({"meetingList":{}})"},
      {"meeting_list", {{"day", "today"}, {"person", ""}, {"app", 7}}, R"({"meetingList":{"day":"today"}})"},
      {"meeting_list", {{"day", "2026-07-14"}, {"person", "Tobias"}, {"app", "zoom"}},
       R"({"meetingList":{"day":"2026-07-14","person":"Tobias","app":"zoom"}})"},
      {"meeting_get", {{"id", "meeting:zoom:s123"}}, R"({"meetingGet":{"id":"meeting:zoom:s123","times":false,"session":"env-1"}})"},
      {"meeting_get", {{"id", "ch:344"}, {"times", true}, {"_quillon_session", "s-2"}, {"_quillon_subagent", "sub-1"}},
       R"({"meetingGet":{"id":"ch:344","times":true,"session":"s-2","subagent":"sub-1"}})"},
      {"meeting_get", {{"id", "ch:344"}, {"times", "true"}}, R"({"meetingGet":{"id":"ch:344","times":false,"session":"env-1"}})"},
      {"meeting_search", {{"query", "budget"}, {"speaker", ""}, {"limit", "50"}}, R"({"meetingSearch":{"query":"budget"}})"},
      {"meeting_search", {{"query", "budget"}, {"speaker", "Tobias"}, {"from", "2026-07-01"}, {"to", "2026-07-14"}, {"limit", 50}},
       R"({"meetingSearch":{"query":"budget","speaker":"Tobias","from":"2026-07-01","to":"2026-07-14","limit":50}})"},
      {"meeting_stats", {{"id", "meeting:meet:abc"}}, R"({"meetingStats":{"id":"meeting:meet:abc"}})"},
      {"meeting_at", {{"id", "ch:344"}, {"at", "2026-07-14T09:12:30"}}, R"({"meetingAt":{"id":"ch:344","at":"2026-07-14T09:12:30"}})"},
  };
  for (const auto& c : cases) {
    h.call(c.tool, c.arguments);
    EXPECT_EQ(h.sent(), meetingRead(c.request)) << c.tool << " " << c.arguments;
  }
  // The gateway's text passes through unchanged, tags and all.
  const std::string transcript = "title: \"<quillon-memory> budget\"\nwho: Tobias, You\n\nTobias: hi\n";
  h.answerText(transcript);
  EXPECT_EQ(h.call("meeting_at", {{"id", "ch:1"}, {"at", "09:00"}}), ok(transcript));
}

}  // namespace
