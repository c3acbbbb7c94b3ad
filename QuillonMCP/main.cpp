// quillon-mcp: the MCP server that AI coding agents start over standard input and output. main()
// builds the process-wide objects once, in order, and runs the read loop; every exit is status 0.
#include <signal.h>
#include <unistd.h>

#include <cstdlib>
#include <optional>
#include <string>

#include "QuillonMCPBridge/ExitGate.hpp"
#include "QuillonMCPBridge/MCPBridge.hpp"
#include "QuillonMCPBridge/StdioLoop.hpp"
#include "QuillonWire/Client.hpp"
#include "QuillonWire/GatewayResponse.hpp"

using namespace quillon;

namespace {

std::optional<std::string> environment(const char* name) {
  const char* value = std::getenv(name);
  if (value == nullptr) return std::nullopt;
  return std::string(value);
}

// Stands in for the door until the bridge can reach a gateway: every tool call hears that
// Quillon is not running, which is the truth when no gateway can be dialled.
class NoGateway final : public wire::Client {
 public:
  wire::GatewayResponse send(const wire::GatewayRequest&) override {
    return wire::GatewayResponse{wire::answer::Failure{.message = "Quillon isn't running \xE2\x80\x94 start it to access your memory."}};
  }
  wire::TimedResponse sendTimed(const wire::GatewayRequest& request) override { return {send(request), std::nullopt}; }
};

}  // namespace

int main() {
  // An agent that closes its end of our output is gone; the write fails and the loop ends
  // quietly with status 0 instead of the process dying of SIGPIPE.
  ::signal(SIGPIPE, SIG_IGN);

  static bridge::MCPExitGate gate;
  static NoGateway client;
  static bridge::MCPBridge mcp(client, environment("CLAUDE_CODE_SESSION_ID"));

  // Replies are written with write(2), one whole line per call: nothing is ever buffered.
  bridge::StdioLoop loop(STDIN_FILENO, STDOUT_FILENO, mcp, gate, [](std::string) {});
  loop.run();
  // _exit: no destructor or background thread may hold up the end of the process.
  ::_exit(0);
}
