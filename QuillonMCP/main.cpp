// quillon-mcp: the MCP server that AI coding agents start over standard input and output. main()
// builds the process-wide objects once, in order, and runs the read loop; every exit is status 0.
#include <signal.h>
#include <unistd.h>

#include <cstdio>
#include <cstring>
#include <optional>
#include <string>

#include "QuillonBase/Process.hpp"
#include "QuillonKit/ClientLineage.hpp"
#include "QuillonKit/DiagnosticRelay.hpp"
#include "QuillonKit/DoorConnection.hpp"
#include "QuillonKit/DoorRedial.hpp"
#include "QuillonKit/Environment.hpp"
#include "QuillonKit/ExportedScreens.hpp"
#include "QuillonKit/MCPGatewayName.hpp"
#include "QuillonKit/XPCClient.hpp"
#include "QuillonMCP/ScreenClosures.hpp"
#include "QuillonMCPBridge/ExitGate.hpp"
#include "QuillonMCPBridge/MCPBridge.hpp"
#include "QuillonMCPBridge/StdioLoop.hpp"
#include "QuillonWire/ClientVersion.hpp"

using namespace quillon;

namespace {

constexpr const char* kUsage =
    "quillon-mcp: the Quillon MCP server. AI coding agents (Claude Code, Codex, Cursor, opencode)\n"
    "start it over standard input and output; it offers their model the person's Quillon memory\n"
    "through the gateway daemon. Run by hand, it waits for JSON-RPC messages, one per line.\n"
    "\n"
    "usage: quillon-mcp            serve MCP on standard input and output (other arguments are ignored)\n"
    "       quillon-mcp --version  print the version\n"
    "       quillon-mcp --help     print this text\n"
    "\n"
    "It reads these variables:\n"
    "  CLAUDE_CODE_SESSION_ID          the agent's session, sent with every request\n"
    "  XDG_RUNTIME_DIR                 where the gateway's socket is (else /run/user/<uid>, else /tmp)\n"
    "  QUILLON_MCP_GATEWAY_FOR_TESTS   a test gateway's name (example.fernhollow.quillon.test.*)\n"
    "  TMPDIR                          where screen frames are written as PNG files\n"
    "\n"
    "How to register it with an agent and run the gateway: README.md in the Quillon sources.\n";

// The two questions a person asks a program by hand. Agents pass arguments of their own, which
// change nothing.
bool answeredArguments(int argc, char** argv) {
  for (int i = 1; i < argc; ++i) {
    if (std::strcmp(argv[i], "--version") == 0) {
      std::printf("quillon-mcp %s\n", wire::ClientVersion::current().c_str());
      return true;
    }
    if (std::strcmp(argv[i], "--help") == 0 || std::strcmp(argv[i], "-h") == 0) {
      std::fputs(kUsage, stdout);
      return true;
    }
  }
  return false;
}

}  // namespace

int main(int argc, char** argv) {
  if (answeredArguments(argc, argv)) return 0;
  // An agent that closes its end of our output is gone; the write fails and the loop ends
  // quietly with status 0 instead of the process dying of SIGPIPE.
  ::signal(SIGPIPE, SIG_IGN);

  // Every object lives until _exit; none is ever destroyed.
  static const std::string gatewayName = kit::MCPGatewayName::resolve(kit::processEnvironment());
  static bridge::MCPExitGate gate;
  // The gateway speaks another wire version. Idle, we end at once: replies go out with write(2),
  // so nothing waits in a buffer. With a reply owed, the loop ends right after writing it.
  static kit::XPCClient client(
      gatewayName, kit::SystemDoor::makeConnection,
      [] {
        if (gate.stopRequested()) ::_exit(0);
      },
      [] { return kit::SystemDoor::serviceRegistered(gatewayName); },
      [] { return kit::ClientLineage::probe(base::executablePath()); }, kit::DoorRedial::standard);
  // Only the folder's path is settled here; it is made, and the codecs loaded, by the first frame.
  static const std::optional<kit::ExportedScreens> screens = kit::ExportedScreens::live();
  static bridge::MCPBridge mcp(client, base::environmentVariable("CLAUDE_CODE_SESSION_ID"), quillon::mcp::screenClosures(screens));
  static kit::DiagnosticRelay relay("mcp", client);

  // Replies are written with write(2), one whole line per call: nothing is ever buffered.
  bridge::StdioLoop loop(STDIN_FILENO, STDOUT_FILENO, mcp, gate, [](std::string note) { relay.note(std::move(note)); });
  loop.run();
  // _exit: no destructor or background thread may hold up the end of the process.
  ::_exit(0);
}
