// Serves a sequence of wire requests, one per line, from a fresh store in memory, then checks the
// store's own invariants: SQLite's integrity check, the foreign keys, and both recall indexes in
// step with the memories they index. serve must never throw, and every answer must encode, since
// the daemon could not send one that does not.
//
// Two kinds of line are not plain requests: "+N" moves the gateway's clock N seconds on (scopes
// declared for a session expire), and "@TOKEN REQUEST" serves the request once per token as the
// door's retry does; a change retried with the same token must get the answer it got first.
#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <map>
#include <string>
#include <string_view>

#include "QuillonGateway/MemoryStore.hpp"
#include "QuillonGateway/Sqlite.hpp"
#include "QuillonGateway/StoreGateway.hpp"
#include "QuillonWire/GatewayRequest.hpp"
#include "QuillonWire/GatewayResponse.hpp"
#include "QuillonWire/WireCodec.hpp"

namespace {

using namespace quillon;

[[noreturn]] void fail(const char* what, std::string_view detail) {
  std::fprintf(stderr, "gateway_fuzz: %s: %.*s\n", what, static_cast<int>(detail.size() > 2000 ? 2000 : detail.size()),
               detail.data());
  std::abort();
}

constexpr double kStart = 1795262400;  // a fixed noon, so a crash replays exactly

struct Kept {
  std::string request;
  std::string answer;
  double at;
};

void checkInvariants(gateway::Database& database) {
  try {
    database.settle();
    auto& integrity = database.cached("PRAGMA integrity_check");
    if (!integrity.step() || integrity.text(0) != "ok") fail("integrity_check", integrity.text(0));
    integrity.reset();
    auto& keys = database.cached("PRAGMA foreign_key_check");
    if (keys.step()) fail("foreign_key_check names a row of", keys.text(0));
    keys.reset();
    // Rank 1 checks each index against its content, the memories, not only against itself.
    database.exec("INSERT INTO recall_words(recall_words, rank) VALUES('integrity-check', 1)");
    database.exec("INSERT INTO recall_grams(recall_grams, rank) VALUES('integrity-check', 1)");
  } catch (const gateway::SqlError& error) {
    fail("the store's check failed", error.what());
  }
}

}  // namespace

// The agent inventory looks through the home's settings: a home that does not exist keeps every
// run the same whatever machine fuzzes.
extern "C" int LLVMFuzzerInitialize(int*, char***) {
  setenv("HOME", "/nonexistent/quillon-fuzz-home", 1);
  setenv("PATH", "/nonexistent", 1);
  unsetenv("CODEX_HOME");
  unsetenv("XDG_CONFIG_HOME");
  return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  std::string_view rest(reinterpret_cast<const char*>(data), size);
  gateway::MemoryStore store(":memory:");
  double now = kStart;
  gateway::StoreGateway served(store, [](std::string_view, std::string_view) {}, [&now] { return now; });
  std::map<std::string, Kept, std::less<>> kept;

  while (!rest.empty()) {
    const auto feed = rest.find('\n');
    std::string_view line = rest.substr(0, feed);
    rest.remove_prefix(feed == std::string_view::npos ? rest.size() : feed + 1);
    if (!line.empty() && line.front() == '+') {
      const double seconds = std::strtod(std::string(line.substr(1)).c_str(), nullptr);
      if (seconds > 0 && seconds < 1e9) now += seconds;
      continue;
    }
    std::string_view token;
    const bool once = !line.empty() && line.front() == '@';
    if (once) {
      const auto space = line.find(' ');
      if (space == std::string_view::npos) continue;
      token = line.substr(1, space - 1);
      line.remove_prefix(space + 1);
    }
    const auto request = wire::decodeRequest(line);
    if (!request) continue;
    wire::GatewayResponse answer;
    try {
      answer = once ? served.serveOnce(request.value(), token) : served.serve(request.value());
    } catch (const std::exception& error) {
      fail("serve threw", error.what());
    } catch (...) {
      fail("serve threw", line);
    }
    const auto encoded = wire::encode(answer);
    if (!encoded) fail("an answer does not encode, to", line);
    if (!once || token.empty() || token.size() > gateway::StoreGateway::kMaxTokenBytes ||
        !wire::changesStore(request.value()) || std::holds_alternative<wire::answer::Failure>(answer.value))
      continue;
    const auto first = kept.find(token);
    if (first == kept.end()) {
      kept.emplace(std::string(token), Kept{std::string(line), encoded.value(), now});
    } else if (first->second.request == line && now - first->second.at < gateway::MemoryStore::kTokenSeconds / 2 &&
               first->second.answer != encoded.value()) {
      fail("a retry with the same token got another answer", first->second.answer + " then " + encoded.value());
    }
  }
  checkInvariants(store.database());
  return 0;
}
