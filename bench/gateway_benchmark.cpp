// The gateway's reads in process, on a store of 100,000 memories: getByType as the bridge sends
// it (a backlog filter, a scope prefix, a bare type capped at the newest 200) and a grab, all
// through StoreGateway::serve on one store connection, as a serving thread holds it. The door
// and the bridge are left out here; gateway_stdio_bench times the whole path.
#include <benchmark/benchmark.h>
#include <unistd.h>

#include <filesystem>
#include <memory>
#include <optional>
#include <random>
#include <string>
#include <variant>
#include <vector>

#include "QuillonGateway/MemoryStore.hpp"
#include "QuillonGateway/StoreGateway.hpp"
#include "QuillonWire/GatewayRequest.hpp"
#include "QuillonWire/GatewayResponse.hpp"
#include "gateway_seed.hpp"

using namespace quillon;

namespace {

constexpr std::int64_t kMemories = 100000;

// The seeded store, made before the first benchmark's timed loop and removed at exit, with a
// fresh connection for serving, as a bridge's serving thread opens one.
struct Seeded {
  std::filesystem::path folder =
      std::filesystem::temp_directory_path() / ("quillon-gateway-benchmark-" + std::to_string(::getpid()));
  std::vector<std::int64_t> ids;
  std::unique_ptr<gateway::MemoryStore> store;
  std::unique_ptr<gateway::StoreGateway> gateway;

  Seeded() {
    std::filesystem::create_directories(folder);
    const std::string path = (folder / "store.db").string();
    ids = bench::seedStore(path, kMemories);
    store = std::make_unique<gateway::MemoryStore>(path);
    gateway = std::make_unique<gateway::StoreGateway>(*store, nullptr, gateway::StoreGateway::systemClock());
  }
  ~Seeded() {
    gateway.reset();
    store.reset();
    std::error_code ignored;
    std::filesystem::remove_all(folder, ignored);
  }
};

Seeded& seeded() {
  static Seeded once;
  return once;
}

wire::GatewayRequest byType(std::string type, std::optional<std::string> path, std::optional<wire::Filters> filters) {
  return wire::GatewayRequest{wire::request::Read{wire::ReadRequest{
      wire::read::GetByType{.type = std::move(type), .path = std::move(path), .filters = std::move(filters), .session = {}}}}};
}

std::size_t cardsIn(const wire::GatewayResponse& response) {
  if (const auto* listed = std::get_if<wire::answer::KindCards>(&response.value)) return listed->cards.size();
  if (const auto* thing = std::get_if<wire::answer::Thing>(&response.value)) return thing->card ? 1 : 0;
  return 0;
}

void BM_GetByType(benchmark::State& state, const wire::GatewayRequest& request) {
  auto& gateway = *seeded().gateway;
  std::size_t cards = 0;
  for (auto _ : state) {
    auto response = gateway.serve(request);
    cards = cardsIn(response);
    benchmark::DoNotOptimize(response);
  }
  // Shown beside the time, so that a query that quietly matched nothing cannot pass for a fast one.
  state.counters["cards"] = static_cast<double>(cards);
}

using wire::FilterValue;
BENCHMARK_CAPTURE(BM_GetByType, ticket_status_queued,
                  byType("ticket", std::nullopt, wire::Filters{{"status", FilterValue::string("queued")}}))
    ->Unit(benchmark::kMillisecond)->Repetitions(9)->ReportAggregatesOnly(true);
BENCHMARK_CAPTURE(BM_GetByType, note_under_home, byType("note", "/home", std::nullopt))
    ->Unit(benchmark::kMillisecond)->Repetitions(9)->ReportAggregatesOnly(true);
// No filter and no scope: the newest 200, the gateway's cap.
BENCHMARK_CAPTURE(BM_GetByType, note_newest_200, byType("note", std::nullopt, std::nullopt))
    ->Unit(benchmark::kMillisecond)->Repetitions(9)->ReportAggregatesOnly(true);
// The narrow end: few rows match, so the whole of the type's index is walked to fill the page.
BENCHMARK_CAPTURE(BM_GetByType, bug_bridge_scope_doing_urgent,
                  byType("bug", "/code/quillon/bridge",
                         wire::Filters{{"status", FilterValue::string("doing")}, {"urgent", FilterValue::boolean(true)}}))
    ->Unit(benchmark::kMillisecond)->Repetitions(9)->ReportAggregatesOnly(true);

// A different memory each time, so the figure is not one cached row.
void BM_GrabRandom(benchmark::State& state) {
  auto& store = seeded();
  std::mt19937_64 random(7);
  std::vector<wire::GatewayRequest> grabs;
  for (int i = 0; i < 4096; ++i)
    grabs.push_back(wire::GatewayRequest{wire::request::Read{wire::ReadRequest{wire::read::Grab{
        .id = "m:" + std::to_string(store.ids[random() % store.ids.size()]), .session = {}, .full = false, .subagent = {}}}}});
  std::size_t next = 0, found = 0, asked = 0;
  for (auto _ : state) {
    auto response = store.gateway->serve(grabs[next++ % grabs.size()]);
    found += cardsIn(response);
    ++asked;
    benchmark::DoNotOptimize(response);
  }
  state.counters["found"] = asked ? static_cast<double>(found) / static_cast<double>(asked) : 0;
}
BENCHMARK(BM_GrabRandom)->Unit(benchmark::kMicrosecond)->Repetitions(9)->ReportAggregatesOnly(true);

}  // namespace

BENCHMARK_MAIN();
