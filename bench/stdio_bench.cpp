// Process-level figures for an MCP server over real pipes, side by side with the canned floor:
//   cold start   spawn to the initialize reply read back (median of many fresh processes)
//   tools/list   round trip of one tools/list request in a warm process (median)
//   ping         round trip of one ping in a warm process (median)
//   exit         end of input to the process reaped (median)
//   peak RSS     maximum resident set of a session that initialises and lists the tools
// The two servers take turns, start by start and trip by trip, so a build running beside the
// benchmark slows both alike instead of whichever happened to run second.
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

double micros(Clock::time_point since) { return std::chrono::duration<double, std::micro>(Clock::now() - since).count(); }

// The child's own high-water mark in KiB from /proc, or 0 where there is none.
long procPeakKiB(pid_t pid) {
  const std::string path = "/proc/" + std::to_string(pid) + "/status";
  FILE* status = std::fopen(path.c_str(), "r");
  if (status == nullptr) return 0;
  long peak = 0;
  char line[256];
  while (std::fgets(line, sizeof line, status))
    if (std::sscanf(line, "VmHWM: %ld kB", &peak) == 1) break;
  std::fclose(status);
  return peak;
}

struct Child : PipedChild {
  Child(const std::string& path, const std::string& argument) : PipedChild(path, argument, environ) {}

  // Closes the input and reaps the process; returns the peak RSS in KiB. The peak is read before
  // the input closes: a spawned child's ru_maxrss starts from the spawning process's own peak (the
  // kernel carries the old address space's mark over exec), so it would report this benchmark's
  // few megabytes for any server smaller than that.
  long finish(double* exitMicros = nullptr) {
    const long peak = procPeakKiB(pid);
    const auto closed = Clock::now();
    ::close(in);
    int status = 0;
    rusage usage{};
    ::wait4(pid, &status, 0, &usage);
    if (exitMicros) *exitMicros = micros(closed);
    ::close(out);
    return peak > 0 ? peak : usage.ru_maxrss;
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

struct Server {
  Server(std::string program, std::string programArgument) : path(std::move(program)), argument(std::move(programArgument)) {}

  std::string path, argument;
  std::vector<double> cold, exits, lists, pings;
  long peakKiB = 0;

  void coldStart() {
    const auto begin = Clock::now();
    Child child(path, argument);
    child.send(kInitialize);
    child.receive();
    cold.push_back(micros(begin));
    double exitMicros = 0;
    peakKiB = std::max(peakKiB, child.finish(&exitMicros));
    exits.push_back(exitMicros);
  }

  void roundTrips(Child& child) {
    auto begin = Clock::now();
    child.send(kToolsList);
    child.receive();
    lists.push_back(micros(begin));
    begin = Clock::now();
    child.send(kPing);
    child.receive();
    pings.push_back(micros(begin));
  }
};

void measure(Server& bridge, Server& floor, int starts, int trips) {
  for (int i = 0; i < starts; ++i) {
    bridge.coldStart();
    floor.coldStart();
  }
  Child warmBridge(bridge.path, bridge.argument), warmFloor(floor.path, floor.argument);
  for (Child* child : {&warmBridge, &warmFloor}) {
    child->send(kInitialize);
    child->receive();
  }
  for (int i = 0; i < trips; ++i) {
    bridge.roundTrips(warmBridge);
    floor.roundTrips(warmFloor);
  }
  bridge.peakKiB = std::max(bridge.peakKiB, warmBridge.finish());
  floor.peakKiB = std::max(floor.peakKiB, warmFloor.finish());
}

}  // namespace

int main(int argc, char** argv) {
  if (argc < 3) {
    std::fprintf(stderr, "usage: %s BRIDGE FLOOR [FLOOR_ARGUMENT]\n", argv[0]);
    return 2;
  }
  const int starts = 300, trips = 3000;
  Server bridge(argv[1], ""), floor(argv[2], argc > 3 ? argv[3] : "");
  measure(bridge, floor, starts, trips);
  std::printf("%-28s %14s %14s %8s\n", "median over pipes", "quillon-mcp", "canned floor", "ratio");
  const auto row = [](const char* name, const std::vector<double>& a, const std::vector<double>& b) {
    const double ours = median(a), theirs = median(b);
    std::printf("%-28s %11.1f us %11.1f us %7.2fx\n", name, ours, theirs, ours / theirs);
  };
  row("cold start to initialize", bridge.cold, floor.cold);
  row("tools/list round trip", bridge.lists, floor.lists);
  row("ping round trip", bridge.pings, floor.pings);
  row("end of input to exit", bridge.exits, floor.exits);
  std::printf("%-28s %11ld KiB %10ld KiB %7.2fx\n", "peak RSS", bridge.peakKiB, floor.peakKiB,
              static_cast<double>(bridge.peakKiB) / static_cast<double>(floor.peakKiB));
  std::printf("(%d cold starts, %d warm round trips each)\n", starts, trips);
  return 0;
}
