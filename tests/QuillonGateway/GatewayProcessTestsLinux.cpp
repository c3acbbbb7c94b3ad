// The built quillon-gateway serving the built quillon-mcp over the real socket: what an agent
// reads, a malformed request, start-up refusals, a clean stop, several bridges changing the store
// through kill -9 and restarts with every change made exactly once; and the gateway outliving its
// limits (threads, descriptors, connections, line size and cost, a full disk).
#include <signal.h>
#include <sys/mount.h>
#include <sys/resource.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/un.h>
#include <sys/wait.h>

#include <gtest/gtest.h>
#include <poll.h>

#include <nlohmann/json.hpp>

#include <atomic>
#include <ctime>
#include <filesystem>
#include <fstream>
#include <map>
#include <set>
#include <thread>

#include "ChildProcess.hpp"
#include "DoorTestSupport.hpp"
#include "QuillonGateway/MemoryStore.hpp"
#include "QuillonKit/DoorNamespace.hpp"

namespace quillon::test {
namespace {

using namespace std::chrono_literals;
using nlohmann::json;

bool exists(const std::string& path) {
  struct stat info {};
  return ::lstat(path.c_str(), &info) == 0;
}

// The gateway dates memories by its own clock, in the local zone.
std::string today() {
  const std::time_t now = std::time(nullptr);
  std::tm local{};
  ::localtime_r(&now, &local);
  char text[16];
  std::strftime(text, sizeof text, "%Y-%m-%d", &local);
  return text;
}

mode_t modeOf(const std::string& path) {
  struct stat info {};
  ::stat(path.c_str(), &info);
  return info.st_mode & 0777;
}

// A raw door connection: one JSON line out, one line back.
class DoorSocket {
 public:
  explicit DoorSocket(const std::string& path) : fd_(::socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0)) {
    sockaddr_un address{};
    address.sun_family = AF_UNIX;
    path.copy(address.sun_path, sizeof address.sun_path - 1);
    connected_ = ::connect(fd_, reinterpret_cast<sockaddr*>(&address), sizeof address) == 0;
  }
  ~DoorSocket() { ::close(fd_); }
  bool connected() const { return connected_; }
  // Whether the last readLine met the end of the stream rather than silence.
  bool closed() const { return closed_; }
  bool send(const std::string& line) { return ::send(fd_, line.data(), line.size(), MSG_NOSIGNAL) == static_cast<ssize_t>(line.size()); }
  // The next line, or "" when the gateway closed the connection or said nothing within `timeout`.
  std::string readLine(std::chrono::milliseconds timeout = 10s) {
    for (;;) {
      if (const auto end = buffer_.find('\n'); end != std::string::npos) {
        std::string line = buffer_.substr(0, end);
        buffer_.erase(0, end + 1);
        return line;
      }
      pollfd watched{fd_, POLLIN, 0};
      if (::poll(&watched, 1, static_cast<int>(timeout.count())) <= 0) return {};
      char chunk[4096];
      const auto got = ::recv(fd_, chunk, sizeof chunk, 0);
      closed_ = got <= 0;
      if (got <= 0) return {};
      buffer_.append(chunk, static_cast<std::size_t>(got));
    }
  }

 private:
  int fd_;
  bool connected_ = false;
  bool closed_ = false;
  std::string buffer_;
};

// The cheapest line a gateway answers: a knock, answered with the wire version.
std::string knock(int id) { return R"({"id":)" + std::to_string(id) + R"(,"wire":1})" "\n"; }

// The message of a reply line's failure; "" for any other line.
std::string failureOf(const std::string& line) {
  const json reply = json::parse(line, nullptr, false);
  if (!reply.is_object() || !reply.contains("payload") || !reply["payload"].contains("failure")) return "";
  return reply["payload"]["failure"].value("message", "");
}

class GatewayProcess : public ::testing::Test {
 protected:
  GatewayProcess() {
    std::filesystem::create_directory(runtime);
    std::filesystem::permissions(runtime, std::filesystem::perms::owner_all);
  }

  std::map<std::string, std::string> environment() const {
    return {{"XDG_RUNTIME_DIR", runtime}, {"XDG_DATA_HOME", temp.path() + "/data"},
            {"QUILLON_MCP_GATEWAY_FOR_TESTS", service}, {"CLAUDE_CODE_SESSION_ID", "session-1"}};
  }

  // A gateway that is serving once this returns.
  // Started with the fixture's environment, or another `runtimeDir` whose door holds `at`.
  std::unique_ptr<ChildProcess> startGateway(const std::string& runtimeDir = "", const std::string& at = "",
                                            const std::vector<std::string>& arguments = {}) {
    auto variables = environment();
    if (!runtimeDir.empty()) variables["XDG_RUNTIME_DIR"] = runtimeDir;
    auto gateway =
        std::make_unique<ChildProcess>(QUILLON_GATEWAY_PATH, variables, ChildProcess::Inherit::everything, arguments);
    // Serving means accepting: a stale socket file may be there before the gateway listens.
    bool serving = false;
    const std::string& path = at.empty() ? socket : at;
    for (int i = 0; i < 500 && !(serving = DoorSocket(path).connected()); ++i) std::this_thread::sleep_for(10ms);
    EXPECT_TRUE(serving) << gateway->readAllErrors();
    return gateway;
  }

  std::unique_ptr<ChildProcess> startBridge(int session = 1) {
    auto environment = this->environment();
    environment["CLAUDE_CODE_SESSION_ID"] = "session-" + std::to_string(session);
    auto started = std::make_unique<ChildProcess>(QUILLON_MCP_PATH, environment);
    started->write(R"({"jsonrpc":"2.0","id":0,"method":"initialize","params":{"clientInfo":{"name":"claude-code"}}})" "\n");
    started->readLine();
    return started;
  }

  // The whole tool result of one call.
  static json result(ChildProcess& session, const std::string& tool, const json& arguments) {
    static std::atomic<int> id{1};
    const json message = {{"jsonrpc", "2.0"}, {"id", id++}, {"method", "tools/call"},
                          {"params", {{"name", tool}, {"arguments", arguments}}}};
    session.write(message.dump() + "\n");
    return json::parse(session.readLine())["result"];
  }

  // What the agent reads for one call: the text, marked "ERROR: " when the result is an error.
  static std::string call(ChildProcess& session, const std::string& tool, const json& arguments) {
    const json answer = result(session, tool, arguments);
    return (answer.value("isError", false) ? "ERROR: " : "") + answer["content"][0]["text"].get<std::string>();
  }

  std::string call(const std::string& tool, const json& arguments) {
    if (!bridge) bridge = startBridge();
    return call(*bridge, tool, arguments);
  }

  // SIGTERM, then the exit status; the socket must be gone and nothing said on standard error.
  static void stop(ChildProcess& gateway, const std::string& socket) {
    ::kill(gateway.pid(), SIGTERM);
    EXPECT_EQ(gateway.readAllErrors(), "");
    const int status = gateway.wait();
    EXPECT_TRUE(WIFEXITED(status) && WEXITSTATUS(status) == 0) << status;
    EXPECT_FALSE(exists(socket));
  }

  // The bridge closed, then the gateway stopped as `stop` checks.
  void finish(ChildProcess& gateway) {
    bridge.reset();
    stop(gateway, socket);
  }

  // `count` fresh connections, each knocking once.
  std::vector<std::unique_ptr<DoorSocket>> knockMany(int count) const {
    std::vector<std::unique_ptr<DoorSocket>> doors;
    for (int i = 0; i < count; ++i) { doors.push_back(std::make_unique<DoorSocket>(socket)); doors.back()->send(knock(i)); }
    return doors;
  }

  TempFolder temp;
  const std::string runtime = temp.path() + "/run";
  const std::string service = freshServiceName();
  const std::string socket = runtime + "/quillon/" + service;
  const std::string store = temp.path() + "/data/quillon/store.db";
  std::unique_ptr<ChildProcess> bridge;
};

TEST_F(GatewayProcess, AMemoryLivesAndDiesThroughTheBridge) {
  auto gateway = startGateway();
  EXPECT_EQ(call("memory_add", {{"text", "The staging DB retires in July"}, {"why", "plan the move"},
                                {"type", "ticket"}, {"scope", "/code/quillon"}, {"filters", {{"status", "queued"}}}}),
            "Saved m:1 (ticket) under /code/quillon — a new scope; scope_list_all shows the scopes that already exist.");
  EXPECT_EQ(call("memory_get_by_type", {{"type", "ticket"}, {"scope", "/code"}}),
            "1 ticket memory under /code:\n\nm:1 · \"The staging DB retires in July\" · status=queued · " + today());
  EXPECT_EQ(call("memory_patch", {{"id", "m:1"}, {"find", "July"}, {"replace", "August"}}),
            "Updated m:1.\ntext: The staging DB retires in August");
  EXPECT_EQ(call("memory_edit", {{"id", "m:1"}, {"title", "Retire staging"}}), "Updated m:1.\ntitle: Retire staging");
  EXPECT_EQ(call("memory_edit_filters", {{"id", "m:1"}, {"set", {{"status", "shipped"}}}}),
            "Updated m:1.\nfilters: status=shipped");
  const std::string card = call("grab", {{"id", "m:1"}});
  EXPECT_EQ(card.substr(0, card.find(" · 20")), "[ticket] m:1 · \"Retire staging\"");
  EXPECT_NE(card.find("\n  The staging DB retires in August\n  why: plan the move\n  filters: status=shipped\n  "
                      "filed: /code/quillon"),
            std::string::npos)
      << card;
  EXPECT_EQ(call("scope_list_all", json::object()), "/code/quillon — 0 rules · 1 note");
  EXPECT_EQ(call("memory_delete", {{"id", "m:1"}}), "Deleted.");
  EXPECT_EQ(call("grab", {{"id", "m:1"}}), "No such thing.");
  finish(*gateway);
}

TEST_F(GatewayProcess, SessionScopeNamesAndModsThroughTheBridge) {
  auto gateway = startGateway();
  EXPECT_EQ(call("scope_set_for_session", {{"scope", "/code/quillon"}}),
            "Session scope: /code/quillon (before: none, so /). It holds for two hours, or until you set another.");
  EXPECT_EQ(call("memory_add", {{"text", "Use the staging bucket"}, {"why", "uploads"}}),
            "Saved m:1 (note) under /code/quillon, the session's scope.");
  // Another agent session has a scope of its own.
  auto other = startBridge(2);
  EXPECT_EQ(call(*other, "memory_add", {{"text", "elsewhere"}, {"why", "w"}}), "Saved m:2 (note) under /.");
  EXPECT_EQ(call("memory_add", {{"text", "x"}, {"why", "y"}, {"scope", "/a/b/c/d"}}),
            "ERROR: Scope '/a/b/c/d' breaks the scope law: lowercase letters, digits and dashes, up to 3 levels (e.g. "
            "/code/quillon). It has 4 levels; a scope is a place the memory belongs to, never a container to stash "
            "data in — name the place and put the detail in text or filters.");
  EXPECT_EQ(call("self_names", {{"names", {"Mara Quint", "MQ4411"}}}),
            "Names saved: Mara Quint, MQ4411. Mara Quint labels the user's own transcript lines.");
  EXPECT_EQ(call(*other, "self_names", json::object()), "Mara Quint, MQ4411");
  EXPECT_EQ(call("mod_install", {{"name", "tasks"}}).substr(0, 40), "Installed the tasks mod as 5 memories: m");
  const std::string again = call("mod_install", {{"name", "tasks"}});
  EXPECT_EQ(again.substr(0, again.find(" carry it")), "ERROR: The tasks mod is already installed: m:3, m:4, m:5, m:6, m:7");
  EXPECT_EQ(call("day_get", json::object()), "ERROR: getDay isn't available yet.");
  EXPECT_EQ(call("meeting_list", json::object()), "ERROR: meetingList isn't available yet.");
  other.reset();
  finish(*gateway);
}

TEST_F(GatewayProcess, RecallThroughTheBridge) {
  auto gateway = startGateway();
  call("memory_add", {{"text", "Deploy atlas to staging with make release-stg, then watch the rollout."},
                      {"why", "three steps that are easy to forget"}, {"type", "recipe"},
                      {"title", "Deploying atlas to staging"}, {"scope", "/code/atlas"}});
  call("memory_add", {{"text", "Set RETRY_BACKOFF_MS=250 for the DHL webhooks"}, {"why", "flaky callbacks"}});
  call("memory_add", {{"text", "Summarise yesterday's commits for the standup"}, {"why", "every morning"},
                      {"type", "shortcut"}, {"filters", {{"name", "standup"}}}});
  for (int i = 0; i < 12; ++i) call("memory_add", {{"text", "garden note " + std::to_string(i)}, {"why", "w"}});

  const std::string found = call("search", {{"query", "deploying atlas"}});
  EXPECT_EQ(found.substr(0, found.find(" · 20")), "[recipe] m:1 · \"Deploying atlas to staging\"") << found;
  EXPECT_EQ(call("search", {{"query", "atlas"}, {"to", "2001-01-01"}}),
            "No matches — nothing matched in that time window.");
  EXPECT_EQ(call("search", {{"query", "atlas"}, {"from", "yesterday"}}).substr(0, 35),
            "ERROR: 'from' is not a date: 'yeste");
  EXPECT_EQ(call("grep", {{"query", "retry_backoff"}}).substr(0, 10), "[note] m:2");
  EXPECT_EQ(call("grep", {{"query", "no such literal"}}), "No matches.");

  const std::string primed = call("memory_get_relevant", {{"prompt", "remind me how deploying atlas to staging goes"}});
  EXPECT_NE(primed.find("\n• " + today() + " (today) · /code/atlas · recipe\n  Deploying atlas to staging\n  evidence: "),
            std::string::npos)
      << primed;
  EXPECT_NE(primed.find("\n  more: grab m:1\n</quillon-memory>"), std::string::npos) << primed;
  EXPECT_NE(call("memory_get_relevant", {{"prompt", "rename this variable to count"}})
                .find("\n\nno strongly relevant memory\n</quillon-memory>"),
            std::string::npos);

  const json fired = result(*bridge, "memory_get_relevant", {{"prompt", "\\standup for the team"}});
  EXPECT_EQ(fired["_meta"]["quillon/shortcut"],
            "<quillon-shortcut>\nThe user's message begins with \\standup — one of their own saved shortcuts. Follow "
            "it for this message. This is the user's instruction, not observed content.\n\nSummarise yesterday's "
            "commits for the standup\n\nargument: for the team\n</quillon-shortcut>");
  EXPECT_EQ(fired["_meta"]["quillon/replyKind"], "empty");
  const json listed = result(*bridge, "memory_get_relevant", {{"prompt", "\\"}});
  EXPECT_NE(listed["_meta"]["quillon/shortcut"].get<std::string>().find("\n\\standup — saved " + today() + " (today)\n"),
            std::string::npos);
  const json menu = result(*bridge, "memory_get_relevant", {{"prompt", "?"}, {"cwd", "/tmp"}});
  const std::string door = menu["_meta"]["quillon/shortcut"];
  EXPECT_NE(door.find("\nQuillon. This scope: /.\n"), std::string::npos) << door;
  EXPECT_NE(door.find("\nYOUR SHORTCUTS   \\standup\n"), std::string::npos) << door;
  EXPECT_NE(door.find("\nMemories 15 • v"), std::string::npos) << door;
  finish(*gateway);
}

TEST_F(GatewayProcess, TheDoorAnswersKnocksRefusesMalformedCostlyAndLongLinesAloneAndSkipsNoise) {
  auto gateway = startGateway();
  DoorSocket door(socket);
  ASSERT_TRUE(door.connected());
  door.send("not json at all\n");
  door.send(R"({"id":7,"wire":1,"payload":{"read":{"_0":{"noSuchVerb":{}}}}})" "\n");
  json reply = json::parse(door.readLine());
  EXPECT_TRUE(reply["served_ms"].is_number_unsigned());
  reply.erase("served_ms");
  EXPECT_EQ(reply, json::parse(R"({"id":7,"wire":1,"payload":{"failure":{"message":"malformed request"}}})"));
  door.send(R"({"id":8,"wire":1})" "\n");
  EXPECT_EQ(json::parse(door.readLine()), json::parse(R"({"id":8,"wire":1})"));
  door.send(R"({"id":9,"wire":1,"payload":{"control":{"_0":{"shutdown":{}}}}})" "\n");
  EXPECT_EQ(json::parse(door.readLine())["payload"], json::parse(R"({"unimplemented":{"verb":"shutdown"}})"));
  // A line too costly or too long is refused alone.
  std::string arrays = "[]";
  for (int i = 0; i < 150'000; ++i) arrays += ",[]";
  door.send(R"({"id":4,"wire":1,"payload":[)" + arrays + "]}\n");
  EXPECT_EQ(failureOf(door.readLine()),
            "The request holds more than 100,000 JSON values, more than the Quillon gateway reads in one request; "
            "nothing was changed.");
  // Without an id there is no one to tell; the connection serves on.
  door.send(R"({"wire":1,"payload":[)" + arrays + "]}\n");
  door.send(knock(5));
  EXPECT_EQ(json::parse(door.readLine()), json::parse(R"({"id":5,"wire":1})"));
  // Past 16 MiB the request is answered from the line's start, the rest passed over, and the
  // lines after it served: a bridge must hear why, never redial to send it again.
  door.send(R"({"id":6,"wire":1,"payload":")" + std::string(std::size_t{17} << 20, 'x') + "\"}\n" + knock(7));
  EXPECT_EQ(failureOf(door.readLine()),
            "The request is over 16 MiB, more than the Quillon gateway reads in one request; nothing was changed. A "
            "memory's text holds at most 1 MiB.");
  EXPECT_EQ(json::parse(door.readLine()), json::parse(R"({"id":7,"wire":1})"));
  finish(*gateway);
}

TEST_F(GatewayProcess, StartUpRefusesALiveGatewayAndReplacesAStaleSocket) {
  // A socket file left by a gateway that died: bound, never listened on, nobody behind it.
  std::filesystem::create_directory(runtime + "/quillon");
  std::filesystem::permissions(runtime + "/quillon", std::filesystem::perms::owner_all);
  {
    const int stale = ::socket(AF_UNIX, SOCK_STREAM, 0);
    sockaddr_un address{};
    address.sun_family = AF_UNIX;
    socket.copy(address.sun_path, sizeof address.sun_path - 1);
    ASSERT_EQ(::bind(stale, reinterpret_cast<sockaddr*>(&address), sizeof address), 0);
    ::close(stale);
  }
  auto gateway = startGateway();
  EXPECT_EQ(call("self_names", json::object()).substr(0, 12), "No names yet");

  ChildProcess second(QUILLON_GATEWAY_PATH, environment());
  EXPECT_EQ(second.readAllErrors(), "quillon-gateway: a gateway already serves " + service + " at " + socket + "\n");
  const int status = second.wait();
  EXPECT_TRUE(WIFEXITED(status) && WEXITSTATUS(status) == 1);
  EXPECT_EQ(call("self_names", json::object()).substr(0, 12), "No names yet");  // the first serves on

  // Everything it keeps is the user's alone.
  EXPECT_EQ(modeOf(temp.path() + "/data/quillon"), 0700u);
  EXPECT_EQ(modeOf(store), 0600u);
  EXPECT_EQ(modeOf(temp.path() + "/data/quillon/gateway.log"), 0600u);
  finish(*gateway);
}

TEST_F(GatewayProcess, APeerOfAnotherUserIsClosedUnanswered) {
  if (::geteuid() != 0) GTEST_SKIP() << "needs root to connect as another user";
  auto gateway = startGateway();
  // Open the way on purpose, so that only the gateway's own check stands between.
  for (const auto& folder : {temp.path(), runtime, runtime + "/quillon"}) ::chmod(folder.c_str(), 0711);
  ::chmod(socket.c_str(), 0666);
  const pid_t child = ::fork();
  if (child == 0) {
    if (::setuid(65534) != 0) ::_exit(2);
    DoorSocket door(socket);
    if (!door.connected()) ::_exit(3);
    door.send(R"({"id":1,"wire":1,"payload":{"notes":{"_0":{"selfNames":{}}}}})" "\n");
    const std::string line = door.readLine(5s);
    ::_exit(line.empty() ? 0 : 4);
  }
  int status = 0;
  ::waitpid(child, &status, 0);
  EXPECT_TRUE(WIFEXITED(status) && WEXITSTATUS(status) == 0) << "child status " << status;
  EXPECT_EQ(call("self_names", json::object()).substr(0, 12), "No names yet");
  finish(*gateway);
}

TEST_F(GatewayProcess, RestartsInBurstsOfChangesServeEveryChangeOnce) {
  auto gateway = startGateway();
  constexpr int kBridges = 3;
  std::vector<std::unique_ptr<ChildProcess>> bridges;
  for (int i = 0; i < kBridges; ++i) {
    bridges.push_back(startBridge(i));
    // Each bridge's tally: a patch applied twice would leave its mark twice.
    ASSERT_EQ(call(*bridges.back(), "memory_add", {{"text", "tally " + std::to_string(i) + " #end"}, {"why", "w"}}),
              "Saved m:" + std::to_string(i + 1) + " (note) under /.");
  }
  struct Call {
    int op, n;  // op 0 adds "burst <bridge>/<n>", 1 patches the tally, 2 deletes the newest add
    bool succeeded;
    std::string id, said;
  };
  std::vector<std::vector<Call>> calls(kBridges);
  std::atomic<bool> going{true};
  std::vector<std::thread> agents;
  for (int i = 0; i < kBridges; ++i)
    agents.emplace_back([&, i] {
      auto& session = *bridges[static_cast<std::size_t>(i)];
      std::vector<std::string> written;
      for (int n = 0; going; ++n) {
        const int op = written.empty() ? 0 : n % 3;
        std::string said, id;
        if (op == 0) {
          said = call(session, "memory_add", {{"text", "burst " + std::to_string(i) + "/" + std::to_string(n)}, {"why", "w"}});
          if (said.starts_with("Saved ")) written.push_back(id = said.substr(6, said.find(' ', 6) - 6));
        } else if (op == 1) {
          said = call(session, "memory_patch", {{"id", "m:" + std::to_string(i + 1)}, {"find", "#end"},
                                               {"replace", "#" + std::to_string(n) + " #end"}});
        } else {
          id = written.back();
          written.pop_back();
          said = call(session, "memory_delete", {{"id", id}});
        }
        calls[static_cast<std::size_t>(i)].push_back({op, n, !said.starts_with("ERROR: "), id, said});
      }
    });
  // Kills far enough apart that no call meets two: a call whose retry is cut off too has no one
  // left to ask, and may then fail although its change was made.
  for (int restart = 0; restart < 8; ++restart) {
    std::this_thread::sleep_for(400ms);
    ::kill(gateway->pid(), SIGKILL);
    gateway->wait();
    gateway = startGateway();
  }
  going = false;
  for (auto& agent : agents) agent.join();

  // Every change that answered success was made exactly once; every one that answered failure,
  // not at all.
  gateway::MemoryStore reopened(store);
  std::size_t total = 0;
  for (const auto& mine : calls) total += mine.size();
  std::map<std::string, int> copies;
  for (std::int64_t id = 1; id <= static_cast<std::int64_t>(total) + kBridges; ++id)
    if (const auto memory = reopened.find(id)) ++copies[memory->text];
  for (int i = 0; i < kBridges; ++i) {
    const auto& mine = calls[static_cast<std::size_t>(i)];
    const std::string tally = reopened.find(i + 1).value().text;
    std::set<std::string> deleted;
    for (const auto& made : mine)
      if (made.op == 2 && made.succeeded) deleted.insert(made.id);
    for (const auto& made : mine) {
      if (made.op == 0) {
        const std::string text = "burst " + std::to_string(i) + "/" + std::to_string(made.n);
        EXPECT_EQ(copies[text], made.succeeded && !deleted.contains(made.id) ? 1 : 0) << text << ": " << made.said;
      } else if (made.op == 1) {
        const std::string mark = "#" + std::to_string(made.n) + " ";
        int marks = 0;
        for (auto at = tally.find(mark); at != std::string::npos; at = tally.find(mark, at + 1)) ++marks;
        EXPECT_EQ(marks, made.succeeded ? 1 : 0) << "patch " << made.n << " of bridge " << i << ": " << made.said;
      }
    }
  }
  EXPECT_GT(total, 30u);
  RecordProperty("calls", static_cast<int>(total));
  bridges.clear();
  finish(*gateway);
}

TEST_F(GatewayProcess, ABridgeWhoseAgentCleanedTheEnvironmentFindsAGatewayOfTheLoginSession) {
  // The login manager's runtime folder for this user; made here when the machine has none.
  const std::string userRuntime = std::string(kit::DoorNamespace::userRuntimeRoot) + "/" + std::to_string(::geteuid());
  bool made = false;
  if (!exists(userRuntime)) {
    std::error_code ignored;
    std::filesystem::create_directories(kit::DoorNamespace::userRuntimeRoot, ignored);
    made = ::mkdir(userRuntime.c_str(), 0700) == 0;
    if (!made) GTEST_SKIP() << "cannot make " << userRuntime;
  }
  struct Tidy {
    std::string folder, socket;
    bool made;
    ~Tidy() {
      std::error_code ignored;
      if (made) std::filesystem::remove_all(folder, ignored);
    }
  } tidy{userRuntime, userRuntime + "/quillon/" + service, made};
  // The bridge's own rule must pick it: a folder others may enter is not the login manager's.
  if (kit::DoorNamespace::folder(kit::fixedEnvironment({}), ::geteuid()) != userRuntime + "/quillon")
    GTEST_SKIP() << userRuntime << " is not a private folder of this user";

  // The gateway as a login shell starts it: XDG_RUNTIME_DIR names the runtime folder.
  auto gateway = startGateway(userRuntime, tidy.socket);

  // The bridge as Codex, the Inspector or the SDK start it: HOME and PATH, no XDG_RUNTIME_DIR.
  ChildProcess cleaned(QUILLON_MCP_PATH,
                       {{"HOME", temp.path()}, {"PATH", "/usr/bin:/bin"}, {"QUILLON_MCP_GATEWAY_FOR_TESTS", service}},
                       ChildProcess::Inherit::nothing);
  EXPECT_EQ(call(cleaned, "memory_add", {{"text", "found the gateway"}, {"why", "w"}}), "Saved m:1 (note) under /.");
  cleaned.closeInput();
  stop(*gateway, tidy.socket);
}

TEST_F(GatewayProcess, SaysItsVersionAndWhereItServesAndKeepsItsFiles) {
  ChildProcess version(QUILLON_GATEWAY_PATH, {}, ChildProcess::Inherit::everything, {"--version"});
  const std::string said = version.readLine();
  EXPECT_TRUE(said.starts_with("quillon-gateway ") && said.size() > 16 && said != "quillon-gateway 0") << said;
  EXPECT_EQ(version.readAllErrors(), "");
  EXPECT_EQ(version.wait(), 0);

  auto variables = environment();
  variables["XDG_DATA_HOME"] = temp.path() + "/it's data";
  ChildProcess paths(QUILLON_GATEWAY_PATH, variables, ChildProcess::Inherit::everything, {"--paths"});
  const std::string data = "'" + temp.path() + "/it'\\''s data/quillon";
  EXPECT_EQ(paths.readRemainingOutput(),
            "quillon_service='" + service + "'\n"
            "quillon_door='" + runtime + "/quillon'\n"
            "quillon_socket='" + socket + "'\n"
            "quillon_data=" + data + "'\n"
            "quillon_store=" + data + "/store.db'\n"
            "quillon_log=" + data + "/gateway.log'\n"
            "quillon_diagnostics=" + data + "/diagnostic.log'\n"
            "quillon_runbooks=" + data + "/runbooks'\n");
  EXPECT_EQ(paths.wait(), 0);
  EXPECT_FALSE(exists(temp.path() + "/it's data"));  // asking creates nothing
}

TEST_F(GatewayProcess, UnderSystemdItLogsToTheJournalAndVerboseAddsALinePerRequest) {
  // As systemd starts it: JOURNAL_STREAM names the very stream its standard error is.
  ChildProcess gateway("/bin/sh", environment(), ChildProcess::Inherit::everything,
                       {"-c", "JOURNAL_STREAM=$(stat -L -c %d:%i /proc/self/fd/2) exec \"$0\" --verbose",
                        QUILLON_GATEWAY_PATH});
  for (int i = 0; i < 500 && !DoorSocket(socket).connected(); ++i) std::this_thread::sleep_for(10ms);
  EXPECT_EQ(call("memory_add", {{"text", "A secret text"}, {"why", "w"}}).substr(0, 8), "Saved m:");
  bridge.reset();
  ::kill(gateway.pid(), SIGTERM);
  const std::string journal = "\n" + gateway.readAllErrors();
  EXPECT_EQ(gateway.wait(), 0);
  // Unstamped (the journal stamps each line), never a memory's words, and no file beside it.
  EXPECT_NE(journal.find("\nserving " + service + " at "), std::string::npos) << journal;
  EXPECT_NE(journal.find("\nrequest notes.write: text in "), std::string::npos) << journal;
  EXPECT_TRUE(journal.ends_with("\nstopped\n")) << journal;
  EXPECT_EQ(journal.find("secret"), std::string::npos);
  EXPECT_FALSE(exists(temp.path() + "/data/quillon/gateway.log"));
}

// Sets only the soft limit of `resource` for the process `pid`; gives the old limit.
rlimit limitSoftly(pid_t pid, __rlimit_resource resource, rlim_t soft) {
  rlimit old{};
  ::prlimit(pid, resource, nullptr, &old);
  const rlimit tight{soft, old.rlim_max};
  EXPECT_EQ(::prlimit(pid, resource, &tight, nullptr), 0);
  return old;
}

TEST_F(GatewayProcess, OutOfThreadsTheNewPeersAreToldAndTheGatewayServesOn) {
#ifdef __SANITIZE_ADDRESS__
  GTEST_SKIP() << "the address sanitizer's own mappings need the address space this test takes away";
#endif
  auto gateway = startGateway();
  // No room left for another thread's stack, as under a 1 GiB address-space limit.
  std::ifstream status("/proc/" + std::to_string(gateway->pid()) + "/status");
  std::string field;
  std::uint64_t kilobytes = 0;
  while (status >> field && field != "VmSize:") {}
  status >> kilobytes;
  ASSERT_GT(kilobytes, 0u);
  const rlimit old = limitSoftly(gateway->pid(), RLIMIT_AS, (kilobytes << 10) + (4 << 20));
  auto doors = knockMany(12);
  int told = 0;
  for (int i = 0; i < 12; ++i) {
    // A thread ended earlier leaves its stack for reuse: the first few peers may still be served,
    // and one whose thread then finds no memory is closed; the gateway serves on.
    const std::string line = doors[static_cast<std::size_t>(i)]->readLine();
    if (line.empty()) {
      EXPECT_TRUE(doors[static_cast<std::size_t>(i)]->closed()) << "peer " << i << " was left waiting";
      continue;
    }
    if (const std::string failure = failureOf(line); !failure.empty()) {
      EXPECT_EQ(failure.substr(0, 63), "The Quillon gateway could not take another connection just now ");
      ++told;
    } else {
      EXPECT_EQ(json::parse(line), json::parse(R"({"id":)" + std::to_string(i) + R"(,"wire":1})"));
    }
  }
  // Telling takes a little memory too: where even that ran out, the peers were closed instead.
  RecordProperty("told", told);
  ::prlimit(gateway->pid(), RLIMIT_AS, &old, nullptr);
  doors.clear();
  EXPECT_EQ(call("self_names", json::object()).substr(0, 12), "No names yet");
  finish(*gateway);
}

TEST_F(GatewayProcess, OutOfDescriptorsEveryNewPeerIsAnsweredOrClosed) {
#ifdef __SANITIZE_ADDRESS__
  // The sanitizers' vptr check probes memory through a pipe, which a process out of descriptors
  // cannot open: it then reports a sound thread start as a bad object and stops the gateway.
  GTEST_SKIP() << "the sanitizers' memory probe needs the descriptors this test takes away";
#endif
  auto gateway = startGateway();
  const std::string descriptors = "/proc/" + std::to_string(gateway->pid()) + "/fd";
  const auto open = std::distance(std::filesystem::directory_iterator(descriptors), {});
  const rlimit old = limitSoftly(gateway->pid(), RLIMIT_NOFILE, static_cast<rlim_t>(open) + 4);
  auto doors = knockMany(30);
  int answered = 0, closed = 0;
  for (auto& door : doors) {
    if (!door->readLine(5s).empty()) {
      ++answered;
    } else {
      ASSERT_TRUE(door->closed()) << "a peer was left waiting, neither answered nor closed";
      ++closed;
    }
  }
  EXPECT_GT(answered, 0);
  EXPECT_GT(closed, 0);
  doors.clear();
  ::prlimit(gateway->pid(), RLIMIT_NOFILE, &old, nullptr);
  EXPECT_EQ(call("self_names", json::object()).substr(0, 12), "No names yet");
  finish(*gateway);
}

TEST_F(GatewayProcess, AFullGatewaySaysItIsBusyAndSilentConnectionsMakeRoom) {
  auto gateway = startGateway("", "", {"--idle-seconds", "4"});
  EXPECT_EQ(call("self_names", json::object()).substr(0, 12), "No names yet");  // the bridge holds one
  std::vector<std::unique_ptr<DoorSocket>> silent;
  for (int i = 0; i < 511; ++i) silent.push_back(std::make_unique<DoorSocket>(socket));
  DoorSocket late(socket);
  late.send(knock(513));
  EXPECT_EQ(failureOf(late.readLine()),
            "The Quillon gateway is busy: it already serves 512 connections. Try again in a moment.");
  // Silent connections are closed in time, the bridge's too; it dials again on its next call.
  EXPECT_EQ(silent.back()->readLine(), "");
  EXPECT_TRUE(silent.back()->closed());
  EXPECT_EQ(call("self_names", json::object()).substr(0, 12), "No names yet");
  silent.clear();
  finish(*gateway);
}


TEST_F(GatewayProcess, AFullDiskFailsEveryWriteAndIsNamedAtStart) {
  const std::string data = temp.path() + "/data";
  std::filesystem::create_directories(data);
  if (::mount("tmpfs", data.c_str(), "tmpfs", 0, "size=2m,mode=0700") != 0)
    GTEST_SKIP() << "needs root to mount a small file system";
  struct Unmount {
    std::string at;
    ~Unmount() { ::umount2(at.c_str(), MNT_DETACH); }
  } unmount{data};
  const auto fill = [&] {
    std::ofstream filler(data + "/filler", std::ios::binary | std::ios::app);
    const std::string block(512, 'f');
    while (filler.write(block.data(), static_cast<std::streamsize>(block.size())) && filler.flush()) {}
  };
  auto gateway = startGateway();
  EXPECT_EQ(call("memory_add", {{"text", "before the disk filled"}, {"why", "w"}}), "Saved m:1 (note) under /.");
  fill();
  const std::pair<std::string, json> writes[] = {
      {"memory_add", {{"text", std::string(20'000, 'a')}, {"why", "w"}}},
      {"scope_set_for_session", {{"scope", "/code/quillon"}}},
      {"scope_map_folder", {{"folder", "/home/mq/code"}, {"scope", "/code"}}},
      {"self_names", {{"names", {"Mara Quint"}}}},
      {"memory_edit", {{"id", "m:1"}, {"text", std::string(20'000, 'b')}}},
      {"memory_patch", {{"id", "m:1"}, {"find", "before"}, {"replace", "after"}}},
      {"memory_edit_filters", {{"id", "m:1"}, {"set", {{"status", "full"}}}}},
      {"memory_delete", {{"id", "m:1"}}},
      {"mod_install", {{"name", "tasks"}}},
  };
  for (const auto& [tool, arguments] : writes) EXPECT_EQ(call(tool, arguments).substr(0, 7), "ERROR: ") << tool;
  finish(*gateway);

  // The last connection to close takes the WAL and its index with it: opening again needs room.
  std::filesystem::remove(data + "/filler");
  { gateway::MemoryStore closing(store); }
  fill();
  ChildProcess again(QUILLON_GATEWAY_PATH, environment());
  const std::string said = again.readAllErrors();
  EXPECT_EQ(said.substr(0, said.find(" (")), "quillon-gateway: store " + store + ": the disk holding " + data +
                                                 "/quillon is full; free some space there and start the gateway again");
  const int status = again.wait();
  EXPECT_TRUE(WIFEXITED(status) && WEXITSTATUS(status) == 1);
}

}  // namespace
}  // namespace quillon::test
