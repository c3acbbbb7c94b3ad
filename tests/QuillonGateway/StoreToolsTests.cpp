// The store's tools as a person runs them: an export brought into another store whole and only
// once, an import that stops before writing anything, a backup and a status taken while the built
// gateway serves writes.
#include <signal.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/un.h>
#include <unistd.h>

#include <gtest/gtest.h>
#include <poll.h>

#include <filesystem>
#include <fstream>
#include <iostream>
#include <sstream>
#include <thread>

#include "ChildProcess.hpp"
#include "DoorTestSupport.hpp"
#include "QuillonGateway/MemoryStore.hpp"
#include "QuillonGateway/ShapeLaws.hpp"
#include "QuillonGateway/Sqlite.hpp"
#include "QuillonGateway/StoreTools.hpp"
#include "QuillonKit/DoorFrame.hpp"
#include "QuillonWire/ClientVersion.hpp"

namespace quillon::gateway {
namespace {

using namespace std::chrono_literals;

struct Ran { int code; std::string out, err; };

class StoreToolsTest : public ::testing::Test {
 protected:
  StoreToolsTest() {
    std::filesystem::create_directories(runtime);
    std::filesystem::permissions(runtime, std::filesystem::perms::owner_all);
  }
  std::map<std::string, std::string, std::less<>> environment(const std::string& data = "data") const {
    return {{"XDG_RUNTIME_DIR", runtime}, {"XDG_DATA_HOME", temp.path() + "/" + data},
            {"QUILLON_MCP_GATEWAY_FOR_TESTS", service}, {"HOME", temp.path()}};
  }
  Ran run(std::vector<std::string> arguments, const std::string& data = "data") const {
    std::ostringstream out, err;
    const auto code = StoreTools::run(arguments, kit::fixedEnvironment(environment(data)), out, err);
    return {code.value_or(-1), out.str(), err.str()};
  }
  std::string storeOf(const std::string& data) const { return temp.path() + "/" + data + "/quillon/store.db"; }
  std::string write(const std::string& name, const std::string& text) const {
    std::ofstream(temp.path() + "/" + name) << text;
    return temp.path() + "/" + name;
  }

  test::TempFolder temp;
  const std::string runtime = temp.path() + "/run";
  const std::string service = test::freshServiceName();
  const std::string socket = runtime + "/quillon/" + service;
};

constexpr double kNoon = 1795262400;  // 2026-11-21 12:00 UTC

Memory memory(std::string type, std::string scope, std::string text) {
  Memory made;
  made.type = std::move(type), made.scope = std::move(scope), made.text = std::move(text);
  made.why = "because", made.writer = "claude-code", made.created = kNoon;
  return made;
}

TEST_F(StoreToolsTest, AnExportComesBackWholeWithItsIdsRenumberedAndOnlyOnce) {
  std::filesystem::create_directories(temp.path() + "/data/quillon");
  {
    MemoryStore store(storeOf("data"));
    store.remove(store.insert(memory("note", "/", "gone")));  // ids start at 2 here, at 1 in the new store
    auto ticket = memory("ticket", "/code/quillon", "Follows m:3, not m:33 nor xm:3; m:99 is elsewhere");
    ticket.title = "After m:3";
    ticket.session = "s-1";
    ticket.subagent = "reviewer";
    ticket.created = kNoon + 0.25;
    ticket.edited = kNoon + 3600;
    ticket.filters = {{.key = "after", .value = wire::FilterValue::string("m:3")},
                      {.key = "pinned", .value = wire::FilterValue::boolean(true)},
                      {.key = "ratio", .value = wire::FilterValue::number(2.5)},
                      {.key = "stars", .value = wire::FilterValue::number(4)}};
    store.insert(ticket);
    store.insert(memory("rule", "/code", "Run the tests"));
    store.mapFolder("/home/mq/code", "/code");
    store.setSelfNames({"Mara Quint", "MQ4411"});
  }
  const std::string file = temp.path() + "/notes.jsonl";
  EXPECT_EQ(run({"export", file}).out, "Exported 2 memories, 1 folder mapping and 2 names to " + file + ".\n");
  std::ifstream lines(file);
  std::string header, line;
  std::getline(lines, header);
  std::getline(lines, line);
  EXPECT_EQ(header.substr(0, 51) + std::to_string(header.size()), R"({"format":"quillon-export","version":1,"exported":")" "73");
  EXPECT_EQ(line, R"({"record":"memory","id":"m:2","type":"ticket","scope":"/code/quillon","title":"After m:3",)"
                  R"("text":"Follows m:3, not m:33 nor xm:3; m:99 is elsewhere","why":"because","filters":{"after":"m:3",)"
                  R"("pinned":true,"ratio":2.5,"stars":4},"writer":"claude-code","session":"s-1","subagent":"reviewer",)"
                  R"("created":"2026-11-21T12:00:00.250Z","edited":"2026-11-21T13:00:00.000Z"})");
  EXPECT_EQ(run({"export", file}).err, "quillon-gateway: export: " + file + " already exists; pass --force to replace it\n");

  EXPECT_EQ(run({"import", file}, "fresh").out, "Imported 2 memories, 1 folder mapping, 2 names from " + file + ".\n");
  std::ifstream exported(file);  // the second time through standard input, as `import -` reads it
  auto* const input = std::cin.rdbuf(exported.rdbuf());
  const Ran again = run({"import", "-"}, "fresh");
  std::cin.rdbuf(input);
  EXPECT_EQ(again.out, "Imported 0 memories (2 already there), 0 folder mappings (1 already there), 0 names (2 already "
                       "there) from standard input.\n");
  MemoryStore fresh(storeOf("fresh"));
  const auto ticket = fresh.find(1);
  ASSERT_TRUE(ticket);
  EXPECT_EQ(ticket->text, "Follows m:2, not m:33 nor xm:3; m:99 is elsewhere");
  EXPECT_EQ(ticket->title, "After m:2");
  EXPECT_EQ(ticket->filters.front().value, wire::FilterValue::string("m:2"));
  EXPECT_EQ(ticket->filters.back().value, wire::FilterValue::number(4));
  EXPECT_EQ(ticket->filters[1].value, wire::FilterValue::boolean(true));
  EXPECT_EQ(std::make_tuple(ticket->session, ticket->subagent, ticket->created, ticket->edited),
            std::make_tuple(std::optional<std::string>("s-1"), std::optional<std::string>("reviewer"), kNoon + 0.25,
                            std::optional<double>(kNoon + 3600)));
  EXPECT_EQ(fresh.find(2)->type, "rule");
  EXPECT_FALSE(fresh.find(3));
  EXPECT_EQ(fresh.scopeForFolder("/home/mq/code/x"), "/code");
  EXPECT_EQ(fresh.selfNames(), (std::vector<std::string>{"Mara Quint", "MQ4411"}));
}

TEST_F(StoreToolsTest, ABadLineOrADryRunWritesNothing) {
  const std::string header = R"({"format":"quillon-export","version":1})" "\n";
  const std::string good = R"({"record":"memory","id":"m:7","type":"note","scope":"/","text":"t","why":"w","writer":"me","created":"2026-11-21T12:00:00Z"})" "\n";
  const std::vector<std::pair<std::string, std::string>> refused = {
      {header + good + R"({"record":"memory","id":"m:8")", "line 3: not JSON (it breaks at byte 30)"},
      {header + good + good, "line 3: m:7 is on line 2 already"},
      {R"({"format":"quillon-export","version":2})", "line 1: a version 2 export, newer than this quillon-gateway reads (1); import it with a newer one"},
      {good, "line 1: not the start of a Quillon export (a first line such as {\"format\":\"quillon-export\",\"version\":1})"},
      {header + R"({"record":"memory","id":"m:7","type":"shortcut","scope":"/code","text":"t","why":"w","writer":"me","created":"2026-11-21T12:00:00Z"})",
       "line 2: a shortcut lives at /, not at /code"}};
  for (const auto& [text, why] : refused) {
    const std::string file = write("bad.jsonl", text);
    EXPECT_EQ(run({"import", file}).err, "quillon-gateway: import " + file + ": " + why + "; nothing was imported\n");
  }
  EXPECT_FALSE(std::filesystem::exists(storeOf("data")));
  const std::string file = write("good.jsonl", header + good);
  EXPECT_EQ(run({"import", file, "--dry-run"}).out, "Would import 1 memory, 0 folder mappings, 0 names from " + file + ".\n");
  EXPECT_FALSE(std::filesystem::exists(storeOf("data")));
  EXPECT_EQ(run({"import", "--dry-run"}).code, StoreTools::kUsageError);
}

// Notes written through the door of the gateway at `socket`, each answered before the next.
int writeThroughDoor(const std::string& socket, int count) {
  const int fd = ::socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0);
  sockaddr_un address{.sun_family = AF_UNIX, .sun_path = {}};
  socket.copy(address.sun_path, sizeof address.sun_path - 1);
  int saved = 0;
  if (::connect(fd, reinterpret_cast<sockaddr*>(&address), sizeof address) == 0) {
    for (int i = 0; i < count; ++i) {
      const auto payload = R"({"notes":{"_0":{"write":{"text":"burst )" + std::to_string(i) +
                           R"(","why":"load","writer":"test","type":"","path":""}}}})";
      const auto line = kit::DoorFrame::encode({.id = 1, .message = {.payload = payload, .wire = 1}});
      std::string reply(4096, '\0');
      pollfd watched{fd, POLLIN, 0};
      if (::send(fd, line->data(), line->size(), MSG_NOSIGNAL) < 0 || ::poll(&watched, 1, 10000) != 1) break;
      reply.resize(static_cast<std::size_t>(std::max<ssize_t>(0, ::recv(fd, reply.data(), reply.size(), 0))));
      saved += reply.find("Saved m:") != std::string::npos ? 1 : 0;
    }
  }
  ::close(fd);
  return saved;
}

TEST_F(StoreToolsTest, BackupAndStatusWhileTheGatewayServesWrites) {
  const auto variables = environment();
  test::ChildProcess gateway(QUILLON_GATEWAY_PATH, {variables.begin(), variables.end()});
  bool serving = false;
  for (int i = 0; i < 500 && !(serving = writeThroughDoor(socket, 1) == 1); ++i) std::this_thread::sleep_for(10ms);
  ASSERT_TRUE(serving) << gateway.readAllErrors();

  const Ran running = run({"status"});
  EXPECT_EQ(running.code, 0);
  EXPECT_EQ(running.out.substr(0, running.out.find(", up ")),
            "quillon-gateway is running: pid " + std::to_string(gateway.pid()) + ", version " + wire::ClientVersion::current());
  EXPECT_NE(running.out.find("\n  service " + service + "\n  socket  ~/run/quillon/" + service + "\nstore ~/data/quillon/store.db · "), std::string::npos);

  int saved = 0;
  std::thread writer([&] { saved = writeThroughDoor(socket, 200); });
  const std::string copy = temp.path() + "/backup.db";
  const Ran backedUp = run({"backup", copy});
  writer.join();
  EXPECT_EQ(saved, 200);
  EXPECT_EQ(backedUp.out.substr(0, 21), "Backed up the store (") << backedUp.err;
  struct stat facts {};
  ASSERT_EQ(::stat(copy.c_str(), &facts), 0);
  EXPECT_EQ(facts.st_mode & 0777, 0600u);
  {
    Database opened(copy, Database::Access::readOnly);
    auto& check = opened.cached("PRAGMA integrity_check");
    EXPECT_TRUE(check.step() && check.text(0) == "ok");
    auto& count = opened.cached("SELECT COUNT(*) FROM memories");
    EXPECT_TRUE(count.step() && count.integer(0) >= 1 && count.integer(0) <= 201);
  }
  EXPECT_EQ(run({"backup", copy}).err, "quillon-gateway: backup: " + copy + " already exists; pass --force to replace it\n");
  EXPECT_EQ(run({"backup", copy, "--force"}).code, 0);

  ::kill(gateway.pid(), SIGSTOP);  // stuck: it holds its lock and its socket takes the knock unanswered
  const Ran stuck = run({"status"});
  ::kill(gateway.pid(), SIGCONT);
  EXPECT_EQ(stuck.code, 1);
  EXPECT_EQ(stuck.out.substr(0, stuck.out.find(", up ")),
            "quillon-gateway holds the door but does not answer: pid " + std::to_string(gateway.pid()) + ", version " +
                wire::ClientVersion::current());
  EXPECT_NE(stuck.out.find("socket  ~/run/quillon/" + service + " (no answer to the knock within 2 s)\n"),
            std::string::npos);

  ::kill(gateway.pid(), SIGTERM);
  gateway.wait();
  const Ran stopped = run({"status"});
  EXPECT_EQ(stopped.code, StoreTools::kNotRunning);
  std::error_code noWal;
  const auto wal = std::filesystem::file_size(storeOf("data") + "-wal", noWal);
  const auto bytes = std::filesystem::file_size(storeOf("data")) + (noWal ? 0 : wal);
  EXPECT_EQ(stopped.out, "quillon-gateway is not running\n  service " + service + "\n  socket  ~/run/quillon/" + service +
                             "\nstore ~/data/quillon/store.db · " + ShapeLaws::size(bytes) +
                             " · schema 5\n  201 memories: note 201 · 1 scope · 0 folders mapped\n");
}

}  // namespace
}  // namespace quillon::gateway
