// The screen tools through MCPBridge::handle with seams that record what they were asked to write
// and open: the request sent, the texts the model reads, and which files reach the opener.
#include <gtest/gtest.h>

#include "QuillonWire/Base64.hpp"
#include "ToolHarness.hpp"

namespace quillon::test {
namespace {

using nlohmann::json;
using bridge::FrameWritten;
using bridge::ScreenFailure;

const std::vector<std::uint8_t> kBad{'b', 'a', 'd'};

class ScreenTools : public ::testing::Test {
 protected:
  // A frame of bytes kBad does not convert; any other is "written" to /shots/<moment>-<window>.png.
  bridge::ScreenSeams seams{
      [this](std::span<const std::uint8_t> frame, std::int64_t moment, const std::string& window) -> FrameWritten {
        written.emplace_back(frame.begin(), frame.end());
        if (written.back() == kBad) return ScreenFailure{"the stored frame is not a decodable image"};
        return "/shots/" + std::to_string(moment) + "-" + window + ".png";
      },
      [this](const std::vector<std::string>& paths) {
        opened.push_back(paths);
        return openFailure;
      }};

  json call(const std::string& name, json arguments) {
    bridge::MCPBridge bridge(scripted.client, std::nullopt, seams);
    scripted.gateway.requests.clear();
    const auto reply = bridge.handle({{"id", 1}, {"method", "tools/call"},
                                      {"params", {{"name", name}, {"arguments", std::move(arguments)}}}});
    return (*reply)["result"];
  }
  json sent() const { return wire::toJSON(scripted.gateway.requests.at(0)).value(); }
  void answer(wire::GatewayResponse response) { scripted.gateway.answer(std::move(response)); }

  static wire::ScreenImage shot(std::int64_t moment, std::string window, std::optional<std::vector<std::uint8_t>> heic,
                                std::optional<std::string> note = std::nullopt) {
    return wire::ScreenImage{.moment = moment, .window = std::move(window), .heic = std::move(heic), .note = std::move(note)};
  }

  ScriptedClient scripted;
  std::vector<std::vector<std::uint8_t>> written;
  std::vector<std::vector<std::string>> opened;
  std::optional<std::string> openFailure;
};

TEST_F(ScreenTools, ScreenGetWritesTheImageAndNamesItsPath) {
  answer(wire::GatewayResponse{wire::answer::Image{.base64 = wire::base64Encode(std::vector<std::uint8_t>{1, 2}),
                                                   .mimeType = "image/heic"}});
  EXPECT_EQ(call("screen_get", {{"id", 812}, {"window", "w3"}}),
            ok("PNG: /shots/812-w3.png\nRead that path to see the window full size."));
  EXPECT_EQ(sent(), json::parse(R"({"read":{"_0":{"getScreen":{"momentID":812,"window":"w3"}}}})"));
  EXPECT_EQ(written, (std::vector<std::vector<std::uint8_t>>{{1, 2}}));
}

TEST_F(ScreenTools, ScreenGetReportsAFrameThatCannotBeWrittenAsAnError) {
  answer(wire::GatewayResponse{wire::answer::Image{.base64 = wire::base64Encode(kBad), .mimeType = "image/heic"}});
  EXPECT_EQ(call("screen_get", {{"id", 1}, {"window", "w1"}}), refused("the stored frame is not a decodable image"));
  answer(wire::GatewayResponse{wire::answer::Image{.base64 = "not base64!", .mimeType = "image/heic"}});
  EXPECT_EQ(call("screen_get", {{"id", 1}, {"window", "w1"}}), refused("the stored frame is not a decodable image"));
}

TEST_F(ScreenTools, ScreenGetWithFramesWritesEachAndSaysWhichFailed) {
  answer(wire::GatewayResponse{wire::answer::Images{
      .images = {shot(5, "w1", std::vector<std::uint8_t>{7}), shot(5, "w2", std::nullopt), shot(6, "w1", kBad)}}});
  EXPECT_EQ(call("screen_get", {{"id", 5}, {"window", "w1"}}),
            ok("PNG: /shots/5-w1.png\nRead that path to see the window full size.\n\n"
               "the frame for moment 6 could not be written: the stored frame is not a decodable image"));
  answer(wire::GatewayResponse{wire::answer::Images{}});
  EXPECT_EQ(call("screen_get", {{"id", 5}, {"window", "w1"}}), ok("—"));
}

TEST_F(ScreenTools, ScreenOpenOpensTheWrittenFilesInOneCallAndListsEveryWindow) {
  answer(wire::GatewayResponse{wire::answer::Images{.images = {
                                   shot(9, "w1", std::vector<std::uint8_t>{1}, "the editor"),
                                   shot(9, "w2", std::nullopt),
                                   shot(9, "w3", std::vector<std::uint8_t>{2}),
                                   shot(9, "w4", std::nullopt, "a transcript moment: grab mo:9"),
                                   shot(10, "w1", kBad),
                               }}});
  EXPECT_EQ(call("screen_open", {{"screens", {{{"moment", 9}}, {{"moment", 10}, {"window", "w1"}}}}}),
            ok("Opened 2 on the Mac with `open`:\n"
               "- moment 9 w1: /shots/9-w1.png (the editor)\n"
               "- moment 9 w2: no picture\n"
               "- moment 9 w3: /shots/9-w3.png\n"
               "- moment 9 w4: a transcript moment: grab mo:9\n"
               "- moment 10 w1: the frame for moment 10 could not be written: the stored frame is not a decodable image"));
  EXPECT_EQ(sent(), json::parse(R"({"read":{"_0":{"openScreens":{"_0":[{"moment":9},{"moment":10,"window":"w1"}]}}}})"));
  EXPECT_EQ(opened, (std::vector<std::vector<std::string>>{{"/shots/9-w1.png", "/shots/9-w3.png"}}));
}

TEST_F(ScreenTools, ScreenOpenHeadingWhenOpenFailsOrNothingWasWritten) {
  openFailure = "xdg-open exited 3";
  answer(wire::GatewayResponse{wire::answer::Images{.images = {shot(9, "w1", std::vector<std::uint8_t>{1})}}});
  EXPECT_EQ(call("screen_open", {{"screens", {{{"moment", 9}}}}}),
            ok("Wrote 1, but `open` failed: xdg-open exited 3\n- moment 9 w1: /shots/9-w1.png"));

  answer(wire::GatewayResponse{wire::answer::Images{.images = {shot(9, "w2", std::nullopt)}}});
  EXPECT_EQ(call("screen_open", {{"screens", {{{"moment", 9}}}}}), ok("Nothing was opened.\n- moment 9 w2: no picture"));
  EXPECT_EQ(opened.size(), 1u);

  answer(wire::GatewayResponse{wire::answer::Images{}});
  EXPECT_EQ(call("screen_open", {{"screens", json::array()}}), ok("No screens were named to open."));
}

TEST_F(ScreenTools, ABridgeWithoutSeamsSaysSoInPlaceOfTheFile) {
  ToolHarness h;
  h.answer(wire::GatewayResponse{wire::answer::Images{.images = {shot(3, "w1", std::vector<std::uint8_t>{1})}}});
  EXPECT_EQ(h.call("screen_open", {{"screens", {{{"moment", 3}}}}}),
            ok("Nothing was opened.\n- moment 3 w1: the frame for moment 3 could not be written: this bridge has no "
               "screen writer wired"));
}

TEST_F(ScreenTools, ArgumentsThatAreNotMomentsAreRefusedBeforeAnythingIsSent) {
  EXPECT_EQ(call("screen_get", {{"id", "812"}, {"window", "w1"}}), refused("screen_get needs an integer 'id' — Moment id."));
  for (const json& screens : {json("9"), json{{{"window", "w1"}}}, json{9}, json{{{"moment", 2.5}}}}) {
    EXPECT_TRUE(call("screen_open", {{"screens", screens}}).contains("isError")) << screens;
  }
  EXPECT_TRUE(scripted.gateway.requests.empty());
}

TEST_F(ScreenTools, GatewayTextIsShownAsEveryToolShowsIt) {
  answer(wire::GatewayResponse{wire::answer::Text{.text = "mo:4 is a transcript moment; grab it"}});
  EXPECT_EQ(call("screen_get", {{"id", 4}, {"window", "w1"}}), ok("mo:4 is a transcript moment; grab it"));
}

}  // namespace
}  // namespace quillon::test
