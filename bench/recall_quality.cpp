// How well the gateway recalls, on a quality set written for it (bench/recall-quality.json): one
// developer's memories, prompts that should prime a named memory, ordinary prompts that should
// prime nothing, and search queries with the memory they should find. Prints, for primed, the
// share of related prompts whose memory is shown and the share of ordinary prompts left quiet;
// for search, the share whose memory is in the top three; then every miss, to tune by.
// Usage: recall_quality [QUALITY_SET]
#include <unistd.h>

#include <nlohmann/json.hpp>

#include <cstdio>
#include <cstdlib>
#include <ctime>
#include <filesystem>
#include <fstream>
#include <map>
#include <string>
#include <vector>

#include "QuillonGateway/MemoryStore.hpp"
#include "QuillonGateway/StoreGateway.hpp"
#include "QuillonWire/GatewayRequest.hpp"
#include "QuillonWire/GatewayResponse.hpp"
#include "QuillonWire/WireCodec.hpp"
#include "QuillonWire/WireJSON.hpp"

using nlohmann::json;
using namespace quillon;

namespace {

constexpr double kNow = 1795262400;  // 2026-11-21 12:00 UTC

class Gateway {
 public:
  explicit Gateway(const std::string& path) : store_(path), gateway_(store_, {}, [this] { return now; }) {}

  json serve(const json& request) {
    auto decoded = wire::decodeRequest(request.dump());
    if (!decoded.ok()) {
      std::fprintf(stderr, "recall_quality: bad request %s\n", request.dump().c_str());
      std::exit(1);
    }
    return wire::toJSON(gateway_.serve(decoded.value())).value();
  }

  double now = kNow;

 private:
  gateway::MemoryStore store_;
  gateway::StoreGateway gateway_;
};

double share(int part, int whole) { return whole ? 100.0 * part / whole : 0; }

}  // namespace

int main(int argc, char** argv) {
  const std::string setPath = argc > 1 ? argv[1] : QUILLON_QUALITY_SET;
  std::ifstream file(setPath);
  if (!file) {
    std::fprintf(stderr, "recall_quality: cannot read %s\n", setPath.c_str());
    return 1;
  }
  const json set = json::parse(file);
  setenv("TZ", "UTC", 1);
  tzset();

  const auto folder = std::filesystem::temp_directory_path() / ("quillon-recall-quality-" + std::to_string(::getpid()));
  std::filesystem::create_directories(folder);
  int status = 0;
  {
    Gateway gateway((folder / "store.db").string());
    std::map<std::string, std::string> idOf, keyOf;
    for (const auto& memory : set.at("memories")) {
      json write = {{"text", memory.at("text")}, {"why", memory.at("why")}, {"type", memory.at("type")},
                    {"path", memory.value("scope", "/")}, {"writer", "claude-code"}};
      if (memory.contains("title")) write["title"] = memory["title"];
      if (memory.contains("filters")) write["filters"] = memory["filters"];
      gateway.now = kNow - memory.value("daysAgo", 0.0) * 86400;
      const std::string saved = gateway.serve({{"notes", {{"_0", {{"write", write}}}}}}).at("text").at("_0");
      const auto id = saved.substr(6, saved.find(' ', 6) - 6);  // "Saved m:12 (…"
      idOf[memory.at("key")] = id;
      keyOf[id] = memory.at("key");
    }
    gateway.now = kNow;
    for (const auto& mapped : set.value("folders", json::array()))
      gateway.serve(
          {{"notes", {{"_0", {{"mapPath", {{"folder", mapped.at("folder")}, {"path", mapped.at("scope")}}}}}}}});

    const auto named = [&](const json& ids) {
      std::string keys;
      for (const auto& id : ids) keys += (keys.empty() ? "" : ", ") + keyOf[id.get<std::string>()];
      return keys.empty() ? std::string("nothing") : keys;
    };

    int related = 0, found = 0, ordinary = 0, quiet = 0;
    std::vector<std::string> misses;
    for (const auto& asked : set.at("primed")) {
      json payload = {{"prompt", asked.at("prompt")}, {"countsPrompt", false}};
      if (asked.contains("cwd")) payload["cwd"] = asked["cwd"];
      const json cards = gateway.serve({{"read", {{"_0", {{"primed", payload}}}}}}).at("primed").at("_0");
      json ids = json::array();
      for (const auto& card : cards) ids.push_back(card.at("grabId"));
      const std::string prompt = asked.at("prompt");
      if (asked.at("expect").is_null()) {
        ++ordinary;
        if (ids.empty()) ++quiet;
        else misses.push_back("loud   \"" + prompt + "\" → " + named(ids));
      } else {
        ++related;
        const std::string wanted = idOf.at(asked.at("expect"));
        if (std::find(ids.begin(), ids.end(), wanted) != ids.end()) ++found;
        else misses.push_back("missed \"" + prompt + "\" wanted " + asked.at("expect").get<std::string>() + ", got " +
                              named(ids));
      }
    }

    int queries = 0, inTopThree = 0;
    for (const auto& asked : set.at("search")) {
      ++queries;
      const json cards =
          gateway.serve({{"read", {{"_0", {{"recall", {{"query", asked.at("query")}}}}}}}}).at("cards").at("_0");
      json ids = json::array();
      for (const auto& card : cards) ids.push_back(card.at("id"));
      const std::string wanted = idOf.at(asked.at("expect"));
      const auto at = std::find(ids.begin(), ids.end(), wanted) - ids.begin();
      if (at < 3) ++inTopThree;
      else {
        json top = json::array();
        for (std::size_t i = 0; i < ids.size() && i < 3; ++i) top.push_back(ids[i]);
        misses.push_back("search \"" + asked.at("query").get<std::string>() + "\" wanted " +
                         asked.at("expect").get<std::string>() + " (at " +
                         (at < static_cast<long>(ids.size()) ? std::to_string(at + 1) : std::string("none")) +
                         "), top: " + named(top));
      }
    }

    std::printf("quality set: %zu memories\n", set.at("memories").size());
    std::printf("primed: related prompts whose memory is shown   %5.1f%% (%d of %d)\n", share(found, related), found,
                related);
    std::printf("primed: ordinary prompts left quiet              %5.1f%% (%d of %d)\n", share(quiet, ordinary), quiet,
                ordinary);
    std::printf("search: expected memory in the top three         %5.1f%% (%d of %d)\n", share(inTopThree, queries),
                inTopThree, queries);
    for (const auto& miss : misses) std::printf("  %s\n", miss.c_str());
  }
  std::error_code ignored;
  std::filesystem::remove_all(folder, ignored);
  return status;
}
