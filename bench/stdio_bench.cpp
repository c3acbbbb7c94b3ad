// Process-level figures for an MCP server over real pipes, side by side with the canned floor:
//   cold start   spawn to the initialize reply read back (median of many fresh processes)
//   tools/list   round trip of one tools/list request in a warm process (median)
//   ping         round trip of one ping in a warm process (median)
//   exit         end of input to the process reaped (median)
//   peak RSS     maximum resident set of a session that initialises and lists the tools
// Usage: stdio_bench BRIDGE FLOOR [FLOOR_ARGUMENT]
#include <sys/resource.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <string>
#include <vector>

#include "PipedChild.hpp"

extern char** environ;

namespace {

using Clock = std::chrono::steady_clock;

struct Child : PipedChild {
  Child(const std::string& path, const std::string& argument) : PipedChild(path, argument, environ) {}

  // Closes the input and reaps the process; returns the peak RSS in KiB.
  long finish(double* exitMicros = nullptr) {
    const auto closed = Clock::now();
    ::close(in);
    int status = 0;
    rusage usage{};
    ::wait4(pid, &status, 0, &usage);
    if (exitMicros) *exitMicros = std::chrono::duration<double, std::micro>(Clock::now() - closed).count();
    ::close(out);
    return usage.ru_maxrss;
  }
};

const std::string kInitialize =
    R"({"jsonrpc":"2.0","id":1,"method":"initialize","params":{"protocolVersion":"2024-11-05","capabilities":{},"clientInfo":{"name":"bench","version":"1"}}})"
    "\n";
const std::string kToolsList = R"({"jsonrpc":"2.0","id":2,"method":"tools/list"})" "\n";
const std::string kPing = R"({"jsonrpc":"2.0","id":3,"method":"ping"})" "\n";

double median(std::vector<double> values) {
  std::sort(values.begin(), values.end());
  return values[values.size() / 2];
}

struct Figures {
  double coldStart, toolsList, ping, exit;
  long peakKiB;
};

Figures measure(const std::string& path, const std::string& argument, int starts, int trips) {
  std::vector<double> cold, exits;
  long peak = 0;
  for (int i = 0; i < starts; ++i) {
    const auto begin = Clock::now();
    Child child(path, argument);
    child.send(kInitialize);
    child.receive();
    cold.push_back(std::chrono::duration<double, std::micro>(Clock::now() - begin).count());
    double exitMicros = 0;
    peak = std::max(peak, child.finish(&exitMicros));
    exits.push_back(exitMicros);
  }

  Child child(path, argument);
  child.send(kInitialize);
  child.receive();
  std::vector<double> lists, pings;
  std::size_t listBytes = 0;
  for (int i = 0; i < trips; ++i) {
    auto begin = Clock::now();
    child.send(kToolsList);
    listBytes = child.receive().size();
    lists.push_back(std::chrono::duration<double, std::micro>(Clock::now() - begin).count());
    begin = Clock::now();
    child.send(kPing);
    child.receive();
    pings.push_back(std::chrono::duration<double, std::micro>(Clock::now() - begin).count());
  }
  (void)listBytes;
  peak = std::max(peak, child.finish());
  return {median(cold), median(lists), median(pings), median(exits), peak};
}

}  // namespace

int main(int argc, char** argv) {
  if (argc < 3) {
    std::fprintf(stderr, "usage: %s BRIDGE FLOOR [FLOOR_ARGUMENT]\n", argv[0]);
    return 2;
  }
  const int starts = 300, trips = 3000;
  const Figures bridge = measure(argv[1], "", starts, trips);
  const Figures floor = measure(argv[2], argc > 3 ? argv[3] : "", starts, trips);
  std::printf("%-28s %14s %14s %8s\n", "median over pipes", "quillon-mcp", "canned floor", "ratio");
  const auto row = [](const char* name, double a, double b, const char* unit) {
    std::printf("%-28s %11.1f %-2s %11.1f %-2s %7.2fx\n", name, a, unit, b, unit, a / b);
  };
  row("cold start to initialize", bridge.coldStart, floor.coldStart, "us");
  row("tools/list round trip", bridge.toolsList, floor.toolsList, "us");
  row("ping round trip", bridge.ping, floor.ping, "us");
  row("end of input to exit", bridge.exit, floor.exit, "us");
  std::printf("%-28s %11ld KiB %10ld KiB %7.2fx\n", "peak RSS", bridge.peakKiB, floor.peakKiB,
              static_cast<double>(bridge.peakKiB) / static_cast<double>(floor.peakKiB));
  std::printf("(%d cold starts, %d warm round trips each)\n", starts, trips);
  return 0;
}
