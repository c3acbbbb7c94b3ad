// The gateway's reads in process, on a store of 100,000 memories: getByType as the bridge sends
// it (a backlog filter, a scope prefix, a bare type capped at the newest 200), a grab, and recall
// (search, grep, and primed on ordinary, related and 100 KB prompts, with median and p99 per
// call), all through StoreGateway::serve on one store connection, as a serving thread holds it.
// The door and the bridge are left out here; gateway_stdio_bench times the whole path.
#include <benchmark/benchmark.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <chrono>
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

wire::GatewayRequest readRequest(wire::ReadRequest::Cases verb) {
  return wire::GatewayRequest{wire::request::Read{wire::ReadRequest{std::move(verb)}}};
}

// A prompt as developers type them all day: function words, a few asking words and some
// vocabulary drawn as it falls, so mostly the store's common words and now and then a rare one.
std::string ordinaryPrompt(std::mt19937_64& random) {
  static constexpr std::array<std::string_view, 8> kOpenings = {
      "could you rename", "why does", "please fix the", "add a test for", "explain how the", "make the",
      "what is wrong with", "refactor"};
  const auto& words = bench::SeedWords::shared();
  std::string prompt(kOpenings[random() % kOpenings.size()]);
  const int count = 3 + static_cast<int>(random() % 5);
  for (int i = 0; i < count; ++i) prompt += " " + std::string(i % 2 ? words.common(random) : words.drawn(random));
  return prompt + "?";
}

// A prompt about one stored memory: three of its words among function words.
std::string relatedPrompt(std::mt19937_64& random, const std::string& text) {
  std::vector<std::string> words;
  for (std::size_t at = 0; at < text.size();) {
    const auto end = std::min(text.find(' ', at), text.size());
    if (end - at > 4) words.push_back(text.substr(at, end - at));
    at = end + 1;
  }
  std::string prompt = "remember the note about";
  for (int i = 0; i < 3 && !words.empty(); ++i) prompt += " " + words[random() % words.size()] + " and";
  return prompt + " the rest?";
}

// Each call timed on its own, so the counters can say the median and the 99th percentile.
void timedCalls(benchmark::State& state, const std::vector<wire::GatewayRequest>& requests) {
  auto& gateway = *seeded().gateway;
  std::vector<double> micros;
  std::size_t next = 0, cards = 0;
  for (auto _ : state) {
    const auto begin = std::chrono::steady_clock::now();
    auto response = gateway.serve(requests[next++ % requests.size()]);
    micros.push_back(std::chrono::duration<double, std::micro>(std::chrono::steady_clock::now() - begin).count());
    if (const auto* primed = std::get_if<wire::answer::Primed>(&response.value)) cards += primed->cards.size();
    if (const auto* found = std::get_if<wire::answer::Cards>(&response.value)) cards += found->cards.size();
    benchmark::DoNotOptimize(response);
  }
  std::sort(micros.begin(), micros.end());
  state.counters["p50_us"] = micros[micros.size() / 2];
  state.counters["p99_us"] = micros[micros.size() * 99 / 100];
  state.counters["cards"] = static_cast<double>(cards) / static_cast<double>(micros.size());
}

wire::GatewayRequest primedRequest(std::string prompt) {
  return readRequest(wire::read::Primed{.prompt = std::move(prompt), .cwd = "/home/mara/code/quillon",
                                        .writer = "bench", .session = "bench-session", .transcript = {},
                                        .countsPrompt = true});
}

void BM_PrimedOrdinary(benchmark::State& state) {
  std::mt19937_64 random(3);
  std::vector<wire::GatewayRequest> requests;
  for (int i = 0; i < 512; ++i) requests.push_back(primedRequest(ordinaryPrompt(random)));
  timedCalls(state, requests);
}
BENCHMARK(BM_PrimedOrdinary)->Unit(benchmark::kMicrosecond);

void BM_PrimedRelated(benchmark::State& state) {
  auto& store = seeded();
  std::mt19937_64 random(5);
  std::vector<wire::GatewayRequest> requests;
  for (int i = 0; i < 512; ++i)
    if (const auto memory = store.store->find(store.ids[random() % store.ids.size()]))
      requests.push_back(primedRequest(relatedPrompt(random, memory->text)));
  timedCalls(state, requests);
}
BENCHMARK(BM_PrimedRelated)->Unit(benchmark::kMicrosecond);

// A pasted log of 100 KB: the work stops at the words it needs.
void BM_PrimedLongPrompt(benchmark::State& state) {
  std::mt19937_64 random(9);
  std::string prompt;
  while (prompt.size() < 100'000) prompt += bench::seedText(random, 12) + "\n";
  timedCalls(state, {primedRequest(prompt)});
}
BENCHMARK(BM_PrimedLongPrompt)->Unit(benchmark::kMicrosecond);

void BM_Search(benchmark::State& state) {
  const auto& words = bench::SeedWords::shared();
  std::mt19937_64 random(13);
  std::vector<wire::GatewayRequest> requests;
  for (int i = 0; i < 512; ++i) {
    std::string query = words.drawn(random) + " " + words.drawn(random);
    if (i % 2) query += " " + words.drawn(random);
    requests.push_back(readRequest(wire::read::Recall{.query = std::move(query), .from = {}, .to = {}}));
  }
  timedCalls(state, requests);
}
BENCHMARK(BM_Search)->Unit(benchmark::kMicrosecond);

// A word of the vocabulary, or the middle of one, as a literal: from the most common to the rare.
void BM_Grep(benchmark::State& state) {
  const auto& words = bench::SeedWords::shared();
  std::mt19937_64 random(17);
  std::vector<wire::GatewayRequest> requests;
  for (int i = 0; i < 512; ++i) {
    std::string literal = words.ranked(random() % 2000);
    if (i % 3 == 0 && literal.size() > 4) literal = literal.substr(1, literal.size() - 2);
    requests.push_back(readRequest(wire::read::Grep{.query = std::move(literal), .from = {}, .to = {}}));
  }
  timedCalls(state, requests);
}
BENCHMARK(BM_Grep)->Unit(benchmark::kMicrosecond);

// What grep would cost without its trigram index: two characters no memory holds make no trigram,
// so every field of every memory is read, newest first, as a scan would for any literal.
void BM_GrepScanningEveryMemory(benchmark::State& state) {
  timedCalls(state, {readRequest(wire::read::Grep{.query = "qz", .from = {}, .to = {}})});
}
BENCHMARK(BM_GrepScanningEveryMemory)->Unit(benchmark::kMillisecond);

}  // namespace

BENCHMARK_MAIN();
