// Requests as the daemon reads them: exact shapes, the decoder's exact errors and its strictness.
#include <gtest/gtest.h>

#include <limits>

#include "QuillonWire/GatewayRequest.hpp"
#include "WireTestSupport.hpp"

namespace quillon::wire {
namespace {

using namespace testing;

WireError requestError(std::string_view text) {
  const auto decoded = decodeRequest(text);
  EXPECT_FALSE(decoded.ok()) << text;
  return decoded ? WireError{} : decoded.error();
}

// Each request is one case key inside its family's envelope. An absent optional is left out and
// an empty one written, so they stay different messages; required flags and counts are always
// written; unlabelled positions are keyed by position. Every shape reads back as itself.
TEST(GatewayRequest, ShapesAsTheDaemonReadsThem) {
  const std::pair<GatewayRequest, const char*> shapes[] = {
      {asRequest(ReadRequest{read::Recall{.query = "x"}}), R"({"read":{"_0":{"recall":{"query":"x"}}}})"},
      {asRequest(ReadRequest{read::Recall{.query = "x", .from = "monday", .to = "today"}}),
       R"({"read":{"_0":{"recall":{"query":"x","from":"monday","to":"today"}}}})"},
      {asRequest(ReadRequest{read::Health{}}), R"({"read":{"_0":{"health":{}}}})"},
      {asRequest(ControlRequest{control::Pause{}}), R"({"control":{"_0":{"pause":{}}}})"},
      {asRequest(NotesRequest{notes::ListPaths{}}), R"({"notes":{"_0":{"listPaths":{}}}})"},
      {asRequest(ReadRequest{read::GetByType{.type = "decision"}}), R"({"read":{"_0":{"getByType":{"type":"decision"}}}})"},
      {asRequest(ReadRequest{read::GetByType{.type = "decision", .filters = Filters{}}}),
       R"({"read":{"_0":{"getByType":{"type":"decision","filters":{}}}}})"},
      {asRequest(NotesRequest{notes::SelfNames{}}), R"({"notes":{"_0":{"selfNames":{}}}})"},
      {asRequest(NotesRequest{notes::SelfNames{.names = std::vector<std::string>{}}}),
       R"({"notes":{"_0":{"selfNames":{"names":[]}}}})"},
      {asRequest(NotesRequest{notes::Patch{.id = "m", .field = "text", .find = "a", .replace = "b"}}),
       R"({"notes":{"_0":{"patch":{"id":"m","field":"text","find":"a","replace":"b","replaceAll":false}}}})"},
      {asRequest(ControlRequest{control::PauseFor{.minutes = 0}}), R"({"control":{"_0":{"pauseFor":{"minutes":0}}}})"},
      {asRequest(ReadRequest{read::OpenScreens{}}), R"({"read":{"_0":{"openScreens":{"_0":[]}}}})"},
      {asRequest(ControlRequest{control::AddConcept{"espresso"}}), R"({"control":{"_0":{"addConcept":{"_0":"espresso"}}}})"},
      {asRequest(ControlRequest{control::SetFrameKeep{true}}), R"({"control":{"_0":{"setFrameKeep":{"_0":true}}}})"},
      {asRequest(ReadRequest{read::OpenScreens{{ScreenRef{.moment = 7}, ScreenRef{8, "Editor"}}}}),
       R"({"read":{"_0":{"openScreens":{"_0":[{"moment":7},{"moment":8,"window":"Editor"}]}}}})"},
      {asRequest(DiagnosticRequest{diagnostic::Log{"mcp", "ready"}}),
       R"({"diagnostic":{"_0":{"log":{"source":"mcp","line":"ready"}}}})"},
  };
  for (const auto& [request, expected] : shapes) {
    EXPECT_EQ(jsonOf(request), json::parse(expected));
    EXPECT_EQ(overTheWire(request).value(), request) << expected;
  }
}

TEST(GatewayRequest, FilterValuesKeepTheirJSONKind) {
  const auto decoded = decodeRequest(
      R"({"notes":{"_0":{"editFilters":{"id":"m1","set":{"n":1,"b":true,"s":"1","f":2.5},"unset":["old"]}}}})");
  ASSERT_TRUE(decoded.ok()) << decoded.error().describe();
  const auto& edit = std::get<notes::EditFilters>(std::get<request::Notes>(decoded.value().value).request.value);
  const Filters expected{{"n", FilterValue::number(1.0)},
                         {"b", FilterValue::boolean(true)},
                         {"s", FilterValue::string("1")},
                         {"f", FilterValue::number(2.5)}};
  EXPECT_EQ(edit.set, expected);
  EXPECT_EQ(edit.unset, std::vector<std::string>{"old"});
  EXPECT_NE(FilterValue::number(1), FilterValue::boolean(true));
  EXPECT_NE(FilterValue::string("1"), FilterValue::number(1));

  const auto written = jsonOf(decoded.value())["notes"]["_0"]["editFilters"]["set"];
  EXPECT_TRUE(written["b"].is_boolean());
  EXPECT_TRUE(written["n"].is_number());
  EXPECT_TRUE(written["s"].is_string());
}

TEST(GatewayRequest, FilterValueThatIsNotAScalarFailsWithItsOwnText) {
  for (const char* value : {"{}", "[1]", "null"}) {
    const auto error = requestError(std::string(R"({"notes":{"_0":{"edit":{"id":"m","filters":{"k":)") + value + "}}}}}");
    EXPECT_EQ(error.message, "a filter value must be a scalar — string, number, or bool (no nesting or arrays)");
    EXPECT_EQ(error.path, R"(notes._0.edit.filters["k"])");
  }
}

TEST(GatewayRequest, SixtyFourBitRowidsSurviveExactly) {
  // 2^53 + 1 has no double of its own: it must never pass through one.
  const auto request = asRequest(ControlRequest{control::DeleteUtterance{"meet", 9007199254740993, "w"}});
  EXPECT_EQ(encode(request).value(), R"({"control":{"_0":{"deleteUtterance":{"meeting":"meet","rowid":9007199254740993,"witness":"w"}}}})");
  EXPECT_EQ(overTheWire(request).value(), request);
  const auto extreme = asRequest(ControlRequest{control::DeleteUtterance{"m", std::numeric_limits<Int64>::min(), "w"}});
  EXPECT_EQ(overTheWire(extreme).value(), extreme);
}

TEST(GatewayRequest, ReadRequestWordsItsOwnCaseKeyErrors) {
  auto error = requestError(R"({"read":{"_0":{}}})");
  EXPECT_EQ(error.message, "ReadRequest expects exactly one case key, got 0");
  EXPECT_EQ(error.path, "read._0");
  EXPECT_EQ(requestError(R"({"read":{"_0":{"health":{},"grants":{}}}})").message,
            "ReadRequest expects exactly one case key, got 2");
  EXPECT_EQ(requestError(R"({"read":{"_0":{"recal":{"query":"x"}}}})").message, "Unknown ReadRequest case: recal");
  EXPECT_EQ(requestError(R"({"read":{"_0":{"Recall":{"query":"x"}}}})").message, "Unknown ReadRequest case: Recall");
}

TEST(GatewayRequest, OtherFamiliesUseTheGenericCaseKeyErrors) {
  const auto error = requestError("{}");
  EXPECT_EQ(error.message, "Invalid number of keys found, expected one.");
  EXPECT_EQ(error.path, "");
  EXPECT_EQ(requestError(R"({"control":{"_0":{"pause":{},"resume":{}}}})").message,
            "Invalid number of keys found, expected one.");
  EXPECT_EQ(requestError(R"({"control":{"_0":{"reboot":{}}}})").message, "Unknown ControlRequest case: reboot");
  EXPECT_EQ(requestError(R"({"write":{"_0":{}}})").message, "Unknown GatewayRequest case: write");
}

TEST(GatewayRequest, MissingRequiredFieldIsNamedWithItsPath) {
  const auto error = requestError(R"({"read":{"_0":{"grab":{"id":"t1"}}}})");
  EXPECT_EQ(error.path, "read._0.grab.full");
  EXPECT_EQ(error.message, "missing required field \"full\"");
  EXPECT_EQ(error.describe(), "read._0.grab.full: missing required field \"full\"");
  EXPECT_EQ(requestError(R"({"read":{"_0":{"health":null}}})").path, "read._0.health");
}

TEST(GatewayRequest, ScalarsAreStrictAboutTheirJSONKind) {
  const auto search = [](const std::string& limit) {
    return decodeRequest(R"({"read":{"_0":{"search":{"query":"q","limit":)" + limit + "}}}}");
  };
  EXPECT_EQ(std::get<read::Search>(std::get<request::Read>(search("2").value().value).request.value).limit, 2);
  EXPECT_FALSE(std::get<read::Search>(std::get<request::Read>(search("null").value().value).request.value).limit);
  for (const char* bad : {"2.5", "2.0", "\"2\"", "true", "1e2", "9223372036854775808"}) {
    const auto decoded = search(bad);
    ASSERT_FALSE(decoded.ok()) << bad;
    EXPECT_EQ(decoded.error().path, "read._0.search.limit");
  }
  EXPECT_EQ(search("true").error().message, "expected an integer, got true");

  const auto grab = [](const std::string& full) {
    return decodeRequest(R"({"read":{"_0":{"grab":{"id":"t","full":)" + full + "}}}}");
  };
  EXPECT_TRUE(grab("false").ok());
  EXPECT_EQ(grab("1").error().message, "expected true or false, got integer 1");
  EXPECT_EQ(grab("\"true\"").error().message, "expected true or false, got a string");
  EXPECT_EQ(decodeRequest(R"({"read":{"_0":{"recall":{"query":7}}}})").error().message,
            "expected a string, got integer 7");
}

TEST(GatewayRequest, UnknownKeysInsidePayloadsAreIgnored) {
  const auto decoded = decodeRequest(R"({"read":{"_0":{"recall":{"query":"x","rank":"new"}},"_1":3}})");
  ASSERT_TRUE(decoded.ok()) << decoded.error().describe();
  EXPECT_EQ(decoded.value(), asRequest(ReadRequest{read::Recall{.query = "x"}}));
}

TEST(GatewayRequest, NonFiniteNumbersCannotBeEncoded) {
  Filters filters{{"score", FilterValue::number(std::numeric_limits<double>::quiet_NaN())}};
  const auto request = asRequest(NotesRequest{notes::Edit{.id = "m", .filters = filters}});
  const auto encoded = encode(request);
  ASSERT_FALSE(encoded.ok());
  EXPECT_EQ(encoded.error().path, R"(notes._0.edit.filters["score"])");
}

}  // namespace
}  // namespace quillon::wire
