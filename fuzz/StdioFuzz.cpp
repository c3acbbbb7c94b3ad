// Feeds lines to the bridge's read loop as an agent would write them on its standard input, with
// a gateway in the same process. Lines starting with "<" are not input: they are the gateway's
// answers (wire JSON), given out in order to the requests the tool calls make; once they run out,
// the gateway answers from a fixed rotation of plausible answers. Beyond "no crash, no hang",
// every line the bridge writes must be exactly one compact JSON object, as nlohmann writes it:
// an agent reads one message per line, and anything else on our output breaks its session.
#include <sys/mman.h>
#include <unistd.h>

#include <nlohmann/json.hpp>

#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <deque>
#include <string>
#include <string_view>
#include <vector>

#include "QuillonMCPBridge/ExitGate.hpp"
#include "QuillonMCPBridge/MCPBridge.hpp"
#include "QuillonMCPBridge/StdioLoop.hpp"
#include "QuillonWire/Gateway.hpp"
#include "QuillonWire/GatewayRequest.hpp"
#include "QuillonWire/GatewayResponse.hpp"
#include "QuillonWire/InProcessClient.hpp"
#include "QuillonWire/WireCodec.hpp"

namespace {

using namespace quillon;

[[noreturn]] void fail(const char* what, std::string_view line) {
  std::fprintf(stderr, "stdio_fuzz: %s: %.*s\n", what, static_cast<int>(line.size() > 2000 ? 2000 : line.size()),
               line.data());
  std::abort();
}

const std::vector<wire::GatewayResponse>& plausibleAnswers() {
  static const std::vector<wire::GatewayResponse> answers = [] {
    std::vector<wire::GatewayResponse> all;
    for (const char* json : {
             R"({"text":{"_0":"Saved.\nSee m:1"}})",
             R"({"noteID":{"_0":"m:1","echo":["type: note","filters: none"]}})",
             R"({"ok":{}})",
             R"({"cards":{"_0":[{"kind":"memory","id":"m1","why":"asked","src":2,"filters":[{"key":"lang","value":"swift"}],"session":{"files":["a.swift"],"filesMore":0,"tickets":[],"ticketsMore":0,"tail":["done"],"startedBy":{"id":"s0"}}}]}})",
             R"({"primed":{"_0":[{"when":"9:14","whenRelative":"now","chapter":"c","gist":"g","evidence":"e","grabId":"g1"}],"distilled":false,"shortcut":{"list":{"_0":[{"name":"deploy","when":"today","duplicates":1}],"card":{"scope":"/","moments":1,"memories":2,"meetings":3}}}}})",
             R"({"failure":{"message":"the store is busy"}})",
             R"({"unimplemented":{"verb":"getDay"}})",
             R"({"flag":{"_0":true}})",
         }) {
      auto decoded = wire::decodeResponse(json);
      if (!decoded) fail("a plausible answer does not decode", json);
      all.push_back(decoded.value());
    }
    return all;
  }();
  return answers;
}

// Answers from the queue the input wrote, then from the rotation; never waits.
class QueuedGateway final : public wire::Gateway {
 public:
  wire::GatewayResponse serve(const wire::GatewayRequest&) override {
    if (!queued.empty()) {
      auto next = std::move(queued.front());
      queued.pop_front();
      return next;
    }
    const auto& answers = plausibleAnswers();
    return answers[served_++ % answers.size()];
  }

  std::deque<wire::GatewayResponse> queued;

 private:
  std::size_t served_ = 0;
};

// A file in memory: writes never block and the loop reads it to its end like a closed pipe.
int memoryFile() {
  const int fd = ::memfd_create("stdio_fuzz", MFD_CLOEXEC);
  if (fd < 0) std::abort();
  return fd;
}

void writeAll(int fd, std::string_view bytes) {
  while (!bytes.empty()) {
    const ssize_t n = ::write(fd, bytes.data(), bytes.size());
    if (n <= 0) std::abort();
    bytes.remove_prefix(static_cast<std::size_t>(n));
  }
}

std::string readAll(int fd) {
  std::string bytes;
  char chunk[1 << 16];
  ssize_t n;
  while ((n = ::pread(fd, chunk, sizeof chunk, static_cast<off_t>(bytes.size()))) > 0)
    bytes.append(chunk, static_cast<std::size_t>(n));
  return bytes;
}

void checkOutput(std::string_view output) {
  if (!output.empty() && output.back() != '\n') fail("output ends without a line feed", output);
  while (!output.empty()) {
    const auto feed = output.find('\n');
    const auto line = output.substr(0, feed);
    output.remove_prefix(feed + 1);
    const auto parsed = nlohmann::json::parse(line, nullptr, false);
    if (parsed.is_discarded()) fail("an output line is not JSON", line);
    if (!parsed.is_object()) fail("an output line is not an object", line);
    std::string again;
    try {
      again = parsed.dump();
    } catch (const nlohmann::json::exception&) {
      fail("an output line does not dump again", line);
    }
    if (again != line) fail("an output line is not compact JSON as dump() writes it", line);
  }
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  std::string_view rest(reinterpret_cast<const char*>(data), size);
  QueuedGateway gateway;
  std::string input;
  while (!rest.empty()) {
    const auto feed = rest.find('\n');
    const auto line = rest.substr(0, feed);
    const bool lastWithoutFeed = feed == std::string_view::npos;
    rest.remove_prefix(lastWithoutFeed ? rest.size() : feed + 1);
    if (!line.empty() && line.front() == '<') {
      if (auto answer = wire::decodeResponse(line.substr(1))) gateway.queued.push_back(std::move(answer.value()));
      continue;
    }
    input.append(line);
    if (!lastWithoutFeed) input.push_back('\n');
  }

  const int in = memoryFile();
  const int out = memoryFile();
  writeAll(in, input);
  ::lseek(in, 0, SEEK_SET);
  {
    wire::InProcessClient client(gateway);
    bridge::MCPBridge mcp(client, std::string("fuzz-session"));
    bridge::MCPExitGate gate;
    bridge::StdioLoop loop(in, out, mcp, gate, [](std::string) {});
    loop.run();
  }
  checkOutput(readAll(out));
  ::close(in);
  ::close(out);
  return 0;
}
