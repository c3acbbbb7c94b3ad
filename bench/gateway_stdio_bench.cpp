// The whole path an agent's call takes, on a store of 100,000 memories: MCP over pipes into
// quillon-mcp, the door's Unix socket, quillon-gateway and its SQLite store, and back.
//   grab                 round trip of one grab of a random existing memory (median, p90, p99)
//   memory_get_by_type   round trip listing queued tickets, a full page of 200 (median, p90, p99)
//   memory_get_relevant  round trip of the primed lane on an ordinary prompt (median, p90, p99)
//   quillon-hook prompt  spawn to exit of the prompt hook, beside cat as the floor
//   memory_add           sequential writes for a few seconds from one bridge (writes per second),
//                        then from several bridges at once
// Everything runs in a temporary folder of its own (data, runtime folder, a test service name),
// so no gateway or store of the user's is touched; the gateway is stopped with SIGTERM at the end.
// Usage: gateway_stdio_bench [GATEWAY BRIDGE]
#include <fcntl.h>
#include <signal.h>
#include <spawn.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <random>
#include <sstream>
#include <string>
#include <thread>
#include <vector>

#include "PipedChild.hpp"
#include "gateway_seed.hpp"

extern char** environ;

namespace {

using Clock = std::chrono::steady_clock;

constexpr std::int64_t kMemories = 100000;
constexpr int kGrabs = 3000;
constexpr int kListings = 300;
constexpr int kPrimes = 1000;
constexpr int kHookRuns = 300;
constexpr double kWriteSeconds = 3.0;
constexpr int kConcurrentBridges = 4;

double micros(Clock::time_point since) { return std::chrono::duration<double, std::micro>(Clock::now() - since).count(); }

double at(std::vector<double> values, double fraction) {
  std::sort(values.begin(), values.end());
  return values[std::min(values.size() - 1, static_cast<std::size_t>(fraction * static_cast<double>(values.size())))];
}

// The environment of both processes: ours, with the three names that point them at the
// temporary folder and the test service.
struct Environment {
  std::vector<std::string> entries;
  std::vector<char*> pointers;

  Environment(const std::vector<std::pair<std::string, std::string>>& overrides) {
    for (char** entry = environ; *entry; ++entry) {
      const std::string line = *entry;
      const bool replaced = std::any_of(overrides.begin(), overrides.end(),
                                        [&](const auto& pair) { return line.rfind(pair.first + "=", 0) == 0; });
      if (!replaced) entries.push_back(line);
    }
    for (const auto& [name, value] : overrides) entries.push_back(name + "=" + value);
    for (auto& entry : entries) pointers.push_back(entry.data());
    pointers.push_back(nullptr);
  }
  char** get() { return pointers.data(); }
};

struct Bridge : PipedChild {
  Bridge(const std::string& path, char** environment) : PipedChild(path, "", environment) {}

  std::string call(const std::string& line) {
    send(line);
    return receive();
  }

  void finish() {
    ::close(in);
    int status = 0;
    ::waitpid(pid, &status, 0);
    ::close(out);
  }
};

const std::string kInitialize =
    R"({"jsonrpc":"2.0","id":0,"method":"initialize","params":{"protocolVersion":"2024-11-05","capabilities":{},"clientInfo":{"name":"bench","version":"1"}}})"
    "\n";

std::string toolCall(long id, const std::string& name, const std::string& arguments) {
  return R"({"jsonrpc":"2.0","id":)" + std::to_string(id) + R"(,"method":"tools/call","params":{"name":")" + name +
         R"(","arguments":)" + arguments + "}}\n";
}

// A reply that failed would make a fast figure meaningless: say so and stop.
bool answered(const std::string& reply, const char* what) {
  if (!reply.empty() && reply.find("\"result\"") != std::string::npos && reply.find("\"isError\":true") == std::string::npos)
    return true;
  std::fprintf(stderr, "gateway_stdio_bench: %s failed: %.400s\n", what, reply.empty() ? "(no reply)" : reply.c_str());
  return false;
}

// The temporary folder, the gateway and its end: whatever happens, the gateway gets SIGTERM and
// the folder goes.
struct Session {
  std::filesystem::path folder;
  pid_t gateway = -1;

  ~Session() {
    if (gateway > 0) {
      ::kill(gateway, SIGTERM);
      int status = 0;
      const auto deadline = Clock::now() + std::chrono::seconds(5);
      while (::waitpid(gateway, &status, WNOHANG) == 0) {
        if (Clock::now() > deadline) {
          std::fprintf(stderr, "gateway_stdio_bench: the gateway ignored SIGTERM for 5 s; killing it\n");
          ::kill(gateway, SIGKILL);
          ::waitpid(gateway, &status, 0);
          break;
        }
        std::this_thread::sleep_for(std::chrono::milliseconds(5));
      }
    }
    if (!folder.empty()) {
      std::error_code ignored;
      std::filesystem::remove_all(folder, ignored);
    }
  }
};

std::string gatewayOutput(const std::filesystem::path& file) {
  std::ifstream in(file);
  std::stringstream text;
  text << in.rdbuf();
  return text.str();
}

struct WriteFigures {
  long writes = 0;
  double seconds = 0;
  double medianMicros = 0;
  bool ok = true;
};

// Sequential memory_add calls on one bridge until `until`.
WriteFigures writeUntil(Bridge& bridge, Clock::time_point until, long firstId, int writer) {
  WriteFigures figures;
  std::vector<double> latencies;
  const auto start = Clock::now();
  for (long id = firstId; Clock::now() < until; ++id) {
    const std::string arguments = R"({"text":"Bench write )" + std::to_string(writer) + "-" + std::to_string(id) +
                                  R"(: retry the socket when the gateway restarts","why":"measures sustained writes","type":"ticket","filters":{"status":"queued"}})";
    const auto begin = Clock::now();
    const std::string reply = bridge.call(toolCall(id, "memory_add", arguments));
    latencies.push_back(micros(begin));
    if (!answered(reply, "memory_add") || reply.find("Saved m:") == std::string::npos) {
      figures.ok = false;
      break;
    }
    ++figures.writes;
  }
  figures.seconds = std::chrono::duration<double>(Clock::now() - start).count();
  if (!latencies.empty()) figures.medianMicros = at(latencies, 0.5);
  return figures;
}

}  // namespace

int main(int argc, char** argv) {
#if defined(QUILLON_GATEWAY_PATH) && defined(QUILLON_MCP_PATH)
  std::string gatewayPath = QUILLON_GATEWAY_PATH, bridgePath = QUILLON_MCP_PATH;
#else
  std::string gatewayPath, bridgePath;
#endif
  if (argc == 3) {
    gatewayPath = argv[1];
    bridgePath = argv[2];
  } else if (argc != 1 || gatewayPath.empty()) {
    std::fprintf(stderr, "usage: %s [GATEWAY BRIDGE]\n", argv[0]);
    return 2;
  }

  Session session;
  // /tmp rather than a long TMPDIR: the socket's path must fit a Unix socket address (107 bytes).
  char folderTemplate[] = "/tmp/quillon-gateway-bench-XXXXXX";
  if (!::mkdtemp(folderTemplate)) {
    std::perror("mkdtemp");
    return 1;
  }
  session.folder = folderTemplate;
  const auto run = session.folder / "run", data = session.folder / "data";
  ::mkdir(run.c_str(), 0700);
  ::mkdir(data.c_str(), 0700);
  ::mkdir((data / "quillon").c_str(), 0700);

  const auto seedStart = Clock::now();
  const auto ids = quillon::bench::seedStore((data / "quillon" / "store.db").string(), kMemories);
  const double seedSeconds = micros(seedStart) / 1e6;

  const std::string service = "example.fernhollow.quillon.test.bench-" + std::to_string(::getpid());
  Environment environment({{"XDG_RUNTIME_DIR", run.string()},
                           {"XDG_DATA_HOME", data.string()},
                           {"QUILLON_MCP_GATEWAY_FOR_TESTS", service}});

  const auto gatewayLog = session.folder / "gateway.out";
  {
    posix_spawn_file_actions_t actions;
    posix_spawn_file_actions_init(&actions);
    posix_spawn_file_actions_addopen(&actions, 0, "/dev/null", O_RDONLY, 0);
    posix_spawn_file_actions_addopen(&actions, 1, gatewayLog.c_str(), O_WRONLY | O_CREAT | O_TRUNC, 0600);
    posix_spawn_file_actions_adddup2(&actions, 1, 2);
    std::string program = gatewayPath;
    char* gatewayArgv[] = {program.data(), nullptr};
    if (posix_spawn(&session.gateway, gatewayPath.c_str(), &actions, nullptr, gatewayArgv, environment.get()) != 0) {
      std::perror("spawn gateway");
      session.gateway = -1;
      return 1;
    }
    posix_spawn_file_actions_destroy(&actions);
  }
  const auto socket = run / "quillon" / service;
  const auto startedAt = Clock::now();
  for (;;) {
    struct stat status {};
    if (::stat(socket.c_str(), &status) == 0 && S_ISSOCK(status.st_mode)) break;
    int exitStatus = 0;
    if (::waitpid(session.gateway, &exitStatus, WNOHANG) == session.gateway) {
      session.gateway = -1;
      std::fprintf(stderr, "gateway_stdio_bench: the gateway ended before serving:\n%s", gatewayOutput(gatewayLog).c_str());
      return 1;
    }
    if (Clock::now() - startedAt > std::chrono::seconds(10)) {
      std::fprintf(stderr, "gateway_stdio_bench: no socket at %s after 10 s\n", socket.c_str());
      return 1;
    }
    std::this_thread::sleep_for(std::chrono::milliseconds(2));
  }
  const double gatewayStartMillis = micros(startedAt) / 1e3;

  std::printf("store: %lld memories seeded in %.1f s; gateway serving %.0f ms after spawn\n",
              static_cast<long long>(kMemories), seedSeconds, gatewayStartMillis);
  std::fflush(stdout);

  Bridge bridge(bridgePath, environment.get());
  if (!answered(bridge.call(kInitialize), "initialize")) return 1;

  std::mt19937_64 random(11);
  long id = 1;
  // The first call dials the socket; a few more warm the gateway's statements.
  for (int i = 0; i < 20; ++i)
    if (!answered(bridge.call(toolCall(id++, "grab", R"({"id":"m:)" + std::to_string(ids[random() % ids.size()]) + R"("})")), "grab"))
      return 1;

  std::vector<double> grabs;
  for (int i = 0; i < kGrabs; ++i) {
    const std::string wanted = "m:" + std::to_string(ids[random() % ids.size()]);
    const std::string line = toolCall(id++, "grab", R"({"id":")" + wanted + R"("})");
    const auto begin = Clock::now();
    const std::string reply = bridge.call(line);
    grabs.push_back(micros(begin));
    if (!answered(reply, "grab")) return 1;
    if (reply.find(wanted + " ") == std::string::npos) {
      std::fprintf(stderr, "gateway_stdio_bench: grab %s found nothing: %.400s\n", wanted.c_str(), reply.c_str());
      return 1;
    }
  }

  std::vector<double> listings;
  std::size_t listingBytes = 0;
  const std::string listing = R"({"type":"ticket","filters":{"status":"queued"}})";
  for (int i = 0; i < kListings; ++i) {
    const std::string line = toolCall(id++, "memory_get_by_type", listing);
    const auto begin = Clock::now();
    const std::string reply = bridge.call(line);
    listings.push_back(micros(begin));
    if (!answered(reply, "memory_get_by_type")) return 1;
    listingBytes = reply.size();
  }

  // The prompt hook's call on every user message: ordinary prompts, as a hook sends them.
  std::vector<double> primes;
  const auto& vocabulary = quillon::bench::SeedWords::shared();
  for (int i = 0; i < kPrimes; ++i) {
    std::string prompt = "please look at why the";
    for (int w = 0; w < 4; ++w) prompt += " " + vocabulary.drawn(random) + " " + std::string(vocabulary.common(random));
    const std::string line = toolCall(id++, "memory_get_relevant",
                                      R"({"prompt":")" + prompt + R"(","cwd":"/home/mara/code","session_id":"bench"})");
    const auto begin = Clock::now();
    const std::string reply = bridge.call(line);
    primes.push_back(micros(begin));
    if (!answered(reply, "memory_get_relevant")) return 1;
  }

  // The agent's prompt hook: quillon-hook spawned with the hook JSON on its input, until it exits;
  // beside it cat, the floor of spawning any program and moving the bytes.
  const std::string hookPath = std::filesystem::path(bridgePath).parent_path() / "quillon-hook";
  const auto spawnToExit = [&](const std::string& program, const std::string& argument, const std::string& input) {
    const auto begin = Clock::now();
    PipedChild child(program, argument, environment.get());
    child.send(input);
    ::close(child.in);
    char sink[1 << 16];
    while (::read(child.out, sink, sizeof sink) > 0) {
    }
    ::close(child.out);
    int status = 0;
    ::waitpid(child.pid, &status, 0);
    return micros(begin);
  };
  std::vector<double> hooks, cats;
  for (int i = 0; i < kHookRuns; ++i) {
    std::string prompt = "please look at why the";
    for (int w = 0; w < 4; ++w) prompt += " " + vocabulary.drawn(random);
    const std::string input = R"({"session_id":"bench-hook","prompt":")" + prompt +
                              R"(","cwd":"/home/mara/code","hook_event_name":"UserPromptSubmit"})";
    hooks.push_back(spawnToExit(hookPath, "prompt", input));
    cats.push_back(spawnToExit("/bin/cat", "", input));
  }

  std::printf("%-44s %10s %10s %10s\n", "round trip over pipes and the door", "median", "p90", "p99");
  std::printf("%-44s %7.0f us %7.0f us %7.0f us\n", "grab m:<random id>", at(grabs, 0.5), at(grabs, 0.9), at(grabs, 0.99));
  std::printf("%-44s %7.0f us %7.0f us %7.0f us\n", "memory_get_by_type ticket status=queued", at(listings, 0.5),
              at(listings, 0.9), at(listings, 0.99));
  std::printf("%-44s %7.0f us %7.0f us %7.0f us\n", "memory_get_relevant, an ordinary prompt", at(primes, 0.5),
              at(primes, 0.9), at(primes, 0.99));
  std::printf("(%d grabs, %d listings of %zu bytes each, %d prompts, one bridge, sequential)\n", kGrabs, kListings,
              listingBytes, kPrimes);
  std::printf("%-44s %7.0f us %7.0f us %7.0f us\n", "quillon-hook prompt, spawn to exit", at(hooks, 0.5),
              at(hooks, 0.9), at(hooks, 0.99));
  std::printf("%-44s %7.0f us %7.0f us %7.0f us\n", "cat, spawn to exit (the floor)", at(cats, 0.5), at(cats, 0.9),
              at(cats, 0.99));
  std::fflush(stdout);

  const auto one = writeUntil(bridge, Clock::now() + std::chrono::duration_cast<Clock::duration>(
                                                          std::chrono::duration<double>(kWriteSeconds)),
                              id, 0);
  if (!one.ok) return 1;
  bridge.finish();
  std::printf("%-44s %10.0f /s (median %.0f us each, %ld in %.1f s)\n", "memory_add, one bridge, sequential",
              static_cast<double>(one.writes) / one.seconds, one.medianMicros, one.writes, one.seconds);
  std::fflush(stdout);

  std::vector<std::unique_ptr<Bridge>> bridges;
  for (int i = 0; i < kConcurrentBridges; ++i) {
    bridges.push_back(std::make_unique<Bridge>(bridgePath, environment.get()));
    if (!answered(bridges.back()->call(kInitialize), "initialize")) return 1;
  }
  std::vector<WriteFigures> several(kConcurrentBridges);
  {
    const auto until = Clock::now() + std::chrono::duration_cast<Clock::duration>(std::chrono::duration<double>(kWriteSeconds));
    std::vector<std::thread> writers;
    for (int i = 0; i < kConcurrentBridges; ++i)
      writers.emplace_back([&, i] { several[static_cast<std::size_t>(i)] = writeUntil(*bridges[static_cast<std::size_t>(i)], until, 1, i + 1); });
    for (auto& writer : writers) writer.join();
  }
  for (auto& each : bridges) each->finish();
  long severalWrites = 0;
  double severalSeconds = 0;
  for (const auto& figures : several) {
    if (!figures.ok) return 1;
    severalWrites += figures.writes;
    severalSeconds = std::max(severalSeconds, figures.seconds);
  }
  std::printf("%-44s %10.0f /s (%ld in %.1f s)\n",
              (std::string("memory_add, ") + std::to_string(kConcurrentBridges) + " bridges at once").c_str(),
              static_cast<double>(severalWrites) / severalSeconds, severalWrites, severalSeconds);

  return 0;
}
