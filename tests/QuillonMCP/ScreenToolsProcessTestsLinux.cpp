// The screen tools through the built quillon-mcp: real HEIC and PNG frames from a gateway on a
// real socket, PNG files written into the exported-screens folder under TMPDIR and decoded again,
// and a script standing in for xdg-open that logs each run, may fail, and chatters on its output.
#include <gtest/gtest.h>

#include <sys/stat.h>
#include <unistd.h>

#include <filesystem>
#include <fstream>
#include <iterator>
#include <nlohmann/json.hpp>
#include <sstream>

#include "ChildProcess.hpp"
#include "DoorTestSupport.hpp"
#include "QuillonWire/Base64.hpp"
#include "TestFrames.hpp"
#include "TestGateway.hpp"

namespace quillon::test {
namespace {

using nlohmann::json;

std::vector<std::uint8_t> bytesOf(const std::string& path) {
  std::ifstream in(path, std::ios::binary);
  return {std::istreambuf_iterator<char>(in), std::istreambuf_iterator<char>()};
}

std::string textOf(const std::string& path) {
  std::stringstream text;
  text << std::ifstream(path).rdbuf();
  return text.str();
}

class ScreenToolsThroughTheBridge : public ::testing::Test {
 protected:
  void SetUp() override {
    ASSERT_TRUE(gateway.start()) << gateway.lastError();
    ASSERT_EQ(::mkdir(tmp.c_str(), 0700), 0);
    setOpener(0);
  }

  // The stand-in opener logs its arguments, prints to both outputs, and exits with `status`.
  void setOpener(int status) {
    std::ofstream(opener) << "#!/bin/sh\necho \"$*\" >> " << temp.path() << "/opened\necho '{\"jsonrpc\":\"2.0\"}'\n"
                          << "echo noise >&2\nexit " << status << "\n";
    ::chmod(opener.c_str(), 0755);
  }

  void answerWith(wire::GatewayResponse response) {
    gateway.setScript([response](const Received&) { return answer(response); });
  }

  // One tools/call through a fresh bridge; nothing but replies may appear on its output.
  json call(const std::string& tool, const json& arguments) {
    ChildProcess bridge(QUILLON_MCP_PATH, {{"XDG_RUNTIME_DIR", temp.path()},
                                           {"QUILLON_MCP_GATEWAY_FOR_TESTS", service},
                                           {"TMPDIR", tmp},
                                           {"QUILLON_MCP_OPENER_FOR_TESTS", opener}});
    const json message = {{"jsonrpc", "2.0"}, {"id", 1}, {"method", "tools/call"},
                          {"params", {{"name", tool}, {"arguments", arguments}}}};
    bridge.write(message.dump() + "\n");
    const json reply = json::parse(bridge.readLine());
    bridge.closeInput();
    EXPECT_EQ(bridge.readRemainingOutput(), "");
    EXPECT_EQ(bridge.readAllErrors(), "");
    bridge.wait();
    return reply["result"];
  }

  std::string folder() const { return tmp + "/quillon-" + std::to_string(::geteuid()) + "-screens"; }
  std::string opened() const { return textOf(temp.path() + "/opened"); }

  TempFolder temp;
  const std::string tmp = temp.path() + "/tmp";
  const std::string opener = temp.path() + "/opener";
  const std::string service = freshServiceName();
  TestGateway gateway{temp.path() + "/quillon", service};
};

TEST_F(ScreenToolsThroughTheBridge, ScreenGetWritesAnHEICFrameAsAPNGOfTheSamePixels) {
  const auto heic = encodeHEIC(testPattern(64, 48));
  if (!heic) GTEST_SKIP() << "this libheif has no HEVC encoder to make a frame with";
  answerWith(wire::GatewayResponse{wire::answer::Image{.base64 = wire::base64Encode(*heic), .mimeType = "image/heic"}});

  const std::string path = folder() + "/moment-812-w3.png";
  const json result = call("screen_get", {{"id", 812}, {"window", "w3"}});
  EXPECT_EQ(result["content"][0]["text"], "PNG: " + path + "\nRead that path to see the window full size.");
  EXPECT_FALSE(result.contains("isError"));
  EXPECT_EQ(decodePNG(bytesOf(path)), decodeHEIC(*heic));
  struct stat info {};
  ASSERT_EQ(::stat(path.c_str(), &info), 0);
  EXPECT_EQ(info.st_mode & 0777, 0600u);
}

TEST_F(ScreenToolsThroughTheBridge, ScreenOpenWritesTwoFramesOpensEachAndListsTheWindowWithoutAPicture) {
  const Pixels first = testPattern(40, 30, 4), second = testPattern(20, 10, 3, 99);
  answerWith(wire::GatewayResponse{wire::answer::Images{.images = {
      {.moment = 9, .window = "w1", .heic = encodePNG(first), .note = std::nullopt},
      {.moment = 9, .window = "w2", .heic = std::nullopt, .note = std::nullopt},
      {.moment = 9, .window = "w3", .heic = encodePNG(second), .note = "Terminal"},
  }}});

  const json result = call("screen_open", {{"screens", {{{"moment", 9}}}}});
  const std::string one = folder() + "/moment-9-w1.png", three = folder() + "/moment-9-w3.png";
  EXPECT_EQ(result["content"][0]["text"], "Opened 2 on the Mac with `open`:\n- moment 9 w1: " + one +
                                              "\n- moment 9 w2: no picture\n- moment 9 w3: " + three + " (Terminal)");
  EXPECT_EQ(opened(), one + "\n" + three + "\n");  // xdg-open takes one path a run
  EXPECT_EQ(decodePNG(bytesOf(one)), first);
  EXPECT_EQ(decodePNG(bytesOf(three)), second);
}

TEST_F(ScreenToolsThroughTheBridge, AnUndecodableFrameIsReportedAndTheOthersAreStillOpened) {
  answerWith(wire::GatewayResponse{wire::answer::Images{.images = {
      {.moment = 4, .window = "w1", .heic = std::vector<std::uint8_t>{0, 0, 0, 0x18, 'f', 't', 'y', 'p'}, .note = std::nullopt},
      {.moment = 4, .window = "w2", .heic = encodePNG(testPattern(8, 8)), .note = std::nullopt},
  }}});
  EXPECT_EQ(call("screen_open", {{"screens", {{{"moment", 4}}}}})["content"][0]["text"],
            "Opened 1 on the Mac with `open`:\n- moment 4 w1: the frame for moment 4 could not be written: the stored "
            "frame is not a decodable image\n- moment 4 w2: " + folder() + "/moment-4-w2.png");
  EXPECT_EQ(opened(), folder() + "/moment-4-w2.png\n");
}

TEST_F(ScreenToolsThroughTheBridge, AFailingOpenerIsNamedWithItsStatusAndTheFileStays) {
  setOpener(3);
  answerWith(wire::GatewayResponse{wire::answer::Images{.images = {
      {.moment = 5, .window = "w1", .heic = encodePNG(testPattern(8, 8)), .note = std::nullopt}}}});
  const std::string path = folder() + "/moment-5-w1.png";
  EXPECT_EQ(call("screen_open", {{"screens", {{{"moment", 5}}}}})["content"][0]["text"],
            "Wrote 1, but `open` failed: " + opener + " exited 3\n- moment 5 w1: " + path);
  EXPECT_EQ(decodePNG(bytesOf(path)), testPattern(8, 8));
}

TEST_F(ScreenToolsThroughTheBridge, AFolderReplacedByALinkIsRefusedAndNothingIsWritten) {
  const std::string elsewhere = temp.path() + "/elsewhere";
  ASSERT_EQ(::mkdir(elsewhere.c_str(), 0700), 0);
  ASSERT_EQ(::symlink(elsewhere.c_str(), folder().c_str()), 0);
  answerWith(wire::GatewayResponse{wire::answer::Images{.images = {
      {.moment = 5, .window = "w1", .heic = encodePNG(testPattern(8, 8)), .note = std::nullopt}}}});
  EXPECT_EQ(call("screen_open", {{"screens", {{{"moment", 5}}}}})["content"][0]["text"],
            "Nothing was opened.\n- moment 5 w1: the frame for moment 5 could not be written: " + folder() +
                " is not a plain folder; nothing is written through it");
  EXPECT_EQ(std::distance(std::filesystem::directory_iterator(elsewhere), std::filesystem::directory_iterator()), 0);
}

}  // namespace
}  // namespace quillon::test
