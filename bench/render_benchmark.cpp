// Rendering figures: a full hit list rendered to the tool result, and the framing-tag defanger on
// large fields, to show that its time grows in step with the text (hostile input included).
#include <benchmark/benchmark.h>

#include <string>
#include <vector>

#include "QuillonMCPBridge/CardRendering.hpp"
#include "QuillonMCPBridge/TextCleaning.hpp"

using namespace quillon;

namespace {

// About 2 KB of card: a moment with a body of ~30 lines, or a note with filters and a long text.
wire::Card sampleCard(int index) {
  std::string text;
  for (int line = 0; line < 30; ++line)
    text += "Line " + std::to_string(line) + " of what was on screen: build log, </quillon-memory> and more text\n";
  if (index % 2 == 0) {
    return wire::Card{.kind = "moment",
                      .id = "m:" + std::to_string(1000 + index),
                      .snippet = "Xcode \xC2\xB7 build failed in MinedTitleChore.txt",
                      .why = "dwell 4m \xC2\xB7 linked to ch:344",
                      .when = "2025-05-02 09:12",
                      .chapter = "ch:344",
                      .excerpt = "MinedTitleChore",
                      .body = wire::MomentBody{.text = text, .hidden = 16000, .source = "ocr", .cleaned = true,
                                               .sessionArtifact = "claude s-1",
                                               .startedBy = wire::SessionLink{.id = "s-1", .name = "Planning"}}};
  }
  return wire::Card{.kind = "note",
                    .id = "m:" + std::to_string(1000 + index),
                    .snippet = text,
                    .why = "the user said so twice",
                    .when = "2025-05-02",
                    .filed = "/code/quillon",
                    .memoryKind = "decision",
                    .filters = std::vector<wire::FilterPair>{{"status", wire::FilterValue::string("queued")},
                                                             {"urgent", wire::FilterValue::boolean(true)},
                                                             {"priority", wire::FilterValue::number(2)}},
                    .title = "Use the staging bucket"};
}

void BM_CardsAnswer50(benchmark::State& state) {
  wire::answer::Cards hits;
  for (int i = 0; i < 50; ++i) hits.cards.push_back(sampleCard(i));
  const wire::GatewayResponse response{hits};
  std::size_t bytes = 0;
  for (auto _ : state) {
    auto result = bridge::cards(response, false);
    bytes = result["content"][0]["text"].get_ref<const std::string&>().size();
    benchmark::DoNotOptimize(result);
  }
  state.counters["text_bytes"] = static_cast<double>(bytes);
}
BENCHMARK(BM_CardsAnswer50)->Unit(benchmark::kMicrosecond)->Repetitions(5)->ReportAggregatesOnly(true);

std::string repeated(const std::string& unit, std::size_t size) {
  std::string out;
  out.reserve(size + unit.size());
  while (out.size() < size) out += unit;
  return out;
}

// Plain text with a framing tag now and then: the everyday case.
void BM_DefangProse(benchmark::State& state) {
  const std::string field = repeated(std::string(1000, 'a') + " <quillon-memory id=3> ", static_cast<std::size_t>(state.range(0)));
  for (auto _ : state) benchmark::DoNotOptimize(bridge::defangEnvelope(field));
  state.SetBytesProcessed(static_cast<std::int64_t>(state.iterations()) * state.range(0));
}

// "<" and blanks only: the input that makes a backtracking matcher quadratic.
void BM_DefangAngleBlanks(benchmark::State& state) {
  const std::string field = repeated("< \t\n", static_cast<std::size_t>(state.range(0)));
  for (auto _ : state) benchmark::DoNotOptimize(bridge::defangEnvelope(field));
  state.SetBytesProcessed(static_cast<std::int64_t>(state.iterations()) * state.range(0));
}

// Tag names that never close, then one ">" at the very end.
void BM_DefangUnclosedTags(benchmark::State& state) {
  const std::string field = repeated("</ QUILLON-rules \n", static_cast<std::size_t>(state.range(0))) + ">";
  for (auto _ : state) benchmark::DoNotOptimize(bridge::defangEnvelope(field));
  state.SetBytesProcessed(static_cast<std::int64_t>(state.iterations()) * state.range(0));
}

constexpr std::int64_t kKB = 1024;
BENCHMARK(BM_DefangProse)->Arg(256 * kKB)->Arg(1024 * kKB)->Arg(4096 * kKB)->Unit(benchmark::kMillisecond);
BENCHMARK(BM_DefangAngleBlanks)->Arg(256 * kKB)->Arg(1024 * kKB)->Arg(4096 * kKB)->Unit(benchmark::kMillisecond);
BENCHMARK(BM_DefangUnclosedTags)->Arg(256 * kKB)->Arg(1024 * kKB)->Arg(4096 * kKB)->Unit(benchmark::kMillisecond);

}  // namespace

BENCHMARK_MAIN();
