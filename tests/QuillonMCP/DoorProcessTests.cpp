// The built quillon-mcp with a test gateway on a real Unix socket: start-up never dials, the
// relay's notes reach the gateway, and a gateway of another wire version ends the bridge at once
// when no reply is owed and right after the owed reply otherwise.
#include <fcntl.h>
#include <sys/ioctl.h>
#include <sys/wait.h>

#include <gtest/gtest.h>

#include <nlohmann/json.hpp>

#include <thread>

#include "ChildProcess.hpp"
#include "DoorTestSupport.hpp"
#include "TestGateway.hpp"

namespace quillon::test {
namespace {

using namespace std::chrono_literals;
using nlohmann::json;

const std::string kToolsList = R"({"jsonrpc":"2.0","id":ID,"method":"tools/list"})";

std::string toolsList(int id) {
  std::string line = kToolsList;
  line.replace(line.find("ID"), 2, std::to_string(id));
  return line + "\n";
}

// True once the child has ended, leaving it to be reaped by wait(); false after `timeout`.
bool endsWithin(const ChildProcess& child, std::chrono::milliseconds timeout) {
  const auto deadline = std::chrono::steady_clock::now() + timeout;
  do {
    siginfo_t info{};
    if (::waitid(P_PID, static_cast<id_t>(child.pid()), &info, WEXITED | WNOHANG | WNOWAIT) == 0 && info.si_pid != 0)
      return true;
    std::this_thread::sleep_for(10ms);
  } while (std::chrono::steady_clock::now() < deadline);
  return false;
}

void expectCleanExit(ChildProcess& bridge) {
  EXPECT_EQ(bridge.readAllErrors(), "");
  const int status = bridge.wait();
  ASSERT_TRUE(WIFEXITED(status)) << "status " << status;
  EXPECT_EQ(WEXITSTATUS(status), 0);
}

class BridgeWithGateway : public ::testing::Test {
 protected:
  std::unique_ptr<ChildProcess> startBridge() {
    return std::make_unique<ChildProcess>(
        QUILLON_MCP_PATH, std::map<std::string, std::string>{{"XDG_RUNTIME_DIR", temp.path()},
                                                             {"QUILLON_MCP_GATEWAY_FOR_TESTS", service}});
  }

  TempFolder temp;
  const std::string service = freshServiceName();
  TestGateway gateway{temp.path() + "/quillon", service};
};

TEST_F(BridgeWithGateway, StartingAndServingTheProtocolNeverDials) {
  ASSERT_TRUE(gateway.start()) << gateway.lastError();
  auto bridge = startBridge();
  bridge->write(R"({"jsonrpc":"2.0","id":1,"method":"initialize","params":{"clientInfo":{"name":"e2e"}}})" "\n");
  EXPECT_EQ(json::parse(bridge->readLine())["id"], 1);
  bridge->write(toolsList(2));
  EXPECT_EQ(json::parse(bridge->readLine())["id"], 2);
  bridge->closeInput();
  EXPECT_EQ(bridge->readRemainingOutput(), "");
  expectCleanExit(*bridge);
  EXPECT_EQ(gateway.connectionsAccepted(), 0);
}

TEST_F(BridgeWithGateway, AnUnparseableLineIsToldToTheGatewayAndTheSessionGoesOn) {
  ASSERT_TRUE(gateway.start());
  auto bridge = startBridge();
  bridge->write("not json\n");
  ASSERT_TRUE(gateway.awaitReceived(1));
  EXPECT_EQ(gateway.received()[0].request, logRequest("unparseable stdin frame — 8 bytes, dropped", "mcp"));
  bridge->write(R"({"jsonrpc":"2.0","id":"p","method":"ping"})" "\n");
  EXPECT_EQ(bridge->readLine(), R"({"id":"p","jsonrpc":"2.0","result":{}})");
  bridge->closeInput();
  EXPECT_EQ(bridge->readRemainingOutput(), "");
  expectCleanExit(*bridge);
}

TEST_F(BridgeWithGateway, SkewWhileIdleEndsTheBridgeAtOnce) {
  ASSERT_TRUE(gateway.start());
  gateway.setScript([](const Received&) { return answer(ok(), 2); });
  auto bridge = startBridge();
  bridge->write("not json\n");  // the relay's note meets the newer gateway
  // Standard input stays open: only the skew can end the process.
  ASSERT_TRUE(endsWithin(*bridge, 10s));
  EXPECT_EQ(bridge->readRemainingOutput(), "");
  expectCleanExit(*bridge);
}

TEST_F(BridgeWithGateway, ASkewedAnswerToAToolCallIsTheLastReply) {
  ASSERT_TRUE(gateway.start());
  gateway.setScript([](const Received&) { return answer(ok(), 2); });
  auto bridge = startBridge();
  bridge->write(R"({"jsonrpc":"2.0","id":1,"method":"tools/call","params":{"name":"self_names","arguments":{}}})" "\n"
                R"({"jsonrpc":"2.0","id":2,"method":"ping"})" "\n");
  const json reply = json::parse(bridge->readLine());
  EXPECT_EQ(reply["id"], 1);
  EXPECT_EQ(reply["result"]["content"][0]["text"],
            "Quillon updated; this session's bridge is older than the daemon, restart the session");
  EXPECT_EQ(reply["result"]["isError"], true);
  // The ping is never answered: the bridge ended right after the owed reply.
  EXPECT_EQ(bridge->readRemainingOutput(), "");
  expectCleanExit(*bridge);
}

// The skew arrives on the relay's thread while the read loop is stuck writing a reply.
TEST_F(BridgeWithGateway, SkewDuringARequestEndsTheBridgeRightAfterItsReply) {
  ASSERT_TRUE(gateway.start());
  gateway.setScript([](const Received&) { return Hold{}; });
  auto bridge = startBridge();
  bridge->write("not json\n");
  ASSERT_TRUE(gateway.awaitReceived(1));  // the note waits at the gateway

  // A one-page pipe that nobody reads: the bridge writes the first page of its reply and blocks
  // with the rest, mid-request. Wait until the page is there.
  const int page = ::fcntl(bridge->outputFd(), F_SETPIPE_SZ, 4096);
  ASSERT_GT(page, 0);
  bridge->write(toolsList(1) + toolsList(2));
  int queued = 0;
  for (int polls = 0; polls < 500 && queued < page; ++polls) {
    std::this_thread::sleep_for(10ms);
    ::ioctl(bridge->outputFd(), FIONREAD, &queued);
  }
  ASSERT_EQ(queued, page) << "the bridge never blocked on its output";

  gateway.release(answer(ok(), 2));
  std::this_thread::sleep_for(300ms);  // the skew reaches the bridge while it is still blocked

  // The whole reply, then the end: the second request is never answered.
  const std::string output = bridge->readRemainingOutput();
  expectCleanExit(*bridge);
  ASSERT_FALSE(output.empty());
  EXPECT_EQ(output.find('\n'), output.size() - 1) << output.size() << " bytes written";
  const json reply = json::parse(output, nullptr, false);
  ASSERT_FALSE(reply.is_discarded());
  EXPECT_EQ(reply["id"], 1);
  EXPECT_EQ(reply["result"]["tools"].size(), 34u);
}

TEST(BridgeWithoutGateway, AToolCallSaysQuillonIsNotRunning) {
  TempFolder temp;
  ChildProcess bridge(QUILLON_MCP_PATH, {{"XDG_RUNTIME_DIR", temp.path()},
                                         {"QUILLON_MCP_GATEWAY_FOR_TESTS", freshServiceName()}});
  bridge.write(R"({"jsonrpc":"2.0","id":1,"method":"tools/call","params":{"name":"self_names","arguments":{}}})" "\n");
  const json result = json::parse(bridge.readLine())["result"];
  bridge.closeInput();
  expectCleanExit(bridge);
  EXPECT_EQ(result["content"][0]["text"], "Quillon isn't running — start it to access your memory.");
  EXPECT_EQ(result["isError"], true);
}

}  // namespace
}  // namespace quillon::test
