// quillon-hook: what the agents' prompt and session-start hooks run, so the user's rules and
// memory reach the model on every prompt without the model asking; and the command that puts
// Quillon (the bridge and these hooks) into each agent's files, and takes it out again.
//
// The hook lanes never fail a prompt: whatever goes wrong, they print nothing and exit 0 within
// their budget, write nothing to standard error, and leave the reason in the gateway's
// diagnostic log when the gateway can be reached.
#include <fcntl.h>
#include <signal.h>
#include <unistd.h>

#include <nlohmann/json.hpp>

#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <string>
#include <thread>
#include <vector>

#include "QuillonBase/Fd.hpp"
#include "QuillonBase/Process.hpp"
#include "QuillonHook/AgentSetup.hpp"
#include "QuillonHook/HookLanes.hpp"
#include "QuillonKit/ClientLineage.hpp"
#include "QuillonKit/DoorConnection.hpp"
#include "QuillonKit/DoorRedial.hpp"
#include "QuillonKit/Environment.hpp"
#include "QuillonKit/MCPGatewayName.hpp"
#include "QuillonKit/XPCClient.hpp"
#include "QuillonMCPBridge/MCPBridge.hpp"
#include "QuillonWire/ClientVersion.hpp"
#include "QuillonWire/GatewayRequest.hpp"

using namespace quillon;

namespace {

// A prompt waits for its hook: past this the hook gives up, silent, whatever it was doing.
constexpr auto kBudget = std::chrono::milliseconds(1000);
// A gateway that broke the connection gets one quick redial, not the bridge's three seconds.
constexpr kit::DoorRedial kHookRedial{std::chrono::milliseconds(400), std::chrono::milliseconds(50)};
// More than any prompt an agent sends; the rest of a larger input is not read.
constexpr std::size_t kMaxInput = 16 << 20;

constexpr const char* kUsage =
    "quillon-hook: puts the user's Quillon rules and memory into an AI coding agent's prompts.\n"
    "\n"
    "usage: quillon-hook install --agent claude|codex|cursor|opencode|all [--dry-run]\n"
    "       quillon-hook uninstall --agent claude|codex|cursor|opencode|all [--dry-run]\n"
    "       quillon-hook prompt [--agent NAME]         (run by the agent on every prompt)\n"
    "       quillon-hook session-start [--agent NAME]  (run by the agent when a session starts)\n"
    "       quillon-hook --version | --help\n"
    "\n"
    "install registers quillon-mcp (beside this program) as the agent's MCP server and adds the\n"
    "prompt and session-start hooks to the agent's own files, keeping everything else in them;\n"
    "each file changed is first kept as <file>.bak. uninstall takes out exactly what install put in.\n"
    "The hooks read the agent's hook JSON on standard input and print what the model should see.\n";

std::string readAll(int fd) {
  std::string input;
  char buffer[65536];
  while (input.size() < kMaxInput) {
    const auto got = ::read(fd, buffer, sizeof buffer);
    if (got < 0 && errno == EINTR) continue;
    if (got <= 0) break;
    input.append(buffer, static_cast<std::size_t>(got));
  }
  return input;
}

int runLane(const std::string& lane, const std::string& agent) {
  ::signal(SIGPIPE, SIG_IGN);
  // Whatever a library might say goes nowhere: the agent would show it to the user.
  if (const int quiet = ::open("/dev/null", O_WRONLY | O_CLOEXEC); quiet >= 0) ::dup2(quiet, STDERR_FILENO);
  std::thread([] {
    std::this_thread::sleep_for(kBudget);
    ::_exit(0);
  }).detach();

  const std::string input = readAll(STDIN_FILENO);
  static const std::string gatewayName = kit::MCPGatewayName::resolve(kit::processEnvironment());
  static kit::XPCClient client(
      gatewayName, kit::SystemDoor::makeConnection, [] {},
      [] { return kit::SystemDoor::serviceRegistered(gatewayName); },
      [] { return kit::ClientLineage::probe(base::executablePath()); }, kHookRedial);

  std::vector<std::string> problems;
  std::string output;
  if (const auto hookInput = hook::readHookInput(input)) {
    bridge::MCPBridge mcp(client, hookInput->session);
    if (!agent.empty())
      mcp.handle({{"jsonrpc", "2.0"}, {"id", 0}, {"method", "initialize"},
                  {"params", {{"clientInfo", {{"name", hook::clientName(agent)}}}}}});
    auto injection = lane == "prompt" ? hook::promptLane(mcp, *hookInput) : hook::sessionStartLane(mcp, *hookInput);
    problems = std::move(injection.problems);
    if (!injection.text.empty()) {
      // Cursor adds context only from its JSON answer; the others take plain text.
      output = agent == "cursor" ? nlohmann::json{{"additional_context", injection.text}}.dump() + "\n"
                                 : injection.text + "\n";
    }
  } else {
    problems.push_back("the hook's input is not a JSON object (" + std::to_string(input.size()) + " bytes)");
  }
  base::writeAll(STDOUT_FILENO, output);

  // Said to the gateway's diagnostic log, unless the trouble was reaching the gateway at all.
  if (!client.lastDoorFault())
    for (const auto& problem : problems)
      client.send(wire::GatewayRequest{wire::request::Diagnostic{wire::DiagnosticRequest{
          wire::diagnostic::Log{.source = "hook", .line = lane + (agent.empty() ? "" : " --agent " + agent) + ": " +
                                                          problem}}}});
  ::_exit(0);
}

int runSetup(hook::SetupAction action, const std::string& agent, bool dryRun) {
  const auto& known = hook::knownAgents();
  std::vector<std::string> agents;
  if (agent == "all") {
    agents = known;
  } else if (std::find(known.begin(), known.end(), agent) != known.end()) {
    agents = {agent};
  } else {
    std::fprintf(stderr, "quillon-hook: say which agent: --agent claude, codex, cursor, opencode or all\n");
    return 2;
  }
  const auto home = base::environmentVariable("HOME");
  if (!home || !home->starts_with('/')) {
    std::fprintf(stderr, "quillon-hook: HOME is not an absolute folder, so the agents' files cannot be found\n");
    return 1;
  }
  std::error_code error;
  const auto self = std::filesystem::canonical(base::executablePath(), error);
  const auto bridge = self.parent_path() / "quillon-mcp";
  if (error || ::access(bridge.c_str(), X_OK) != 0) {
    std::fprintf(stderr, "quillon-hook: no quillon-mcp beside %s; build or install both, then run this again\n",
                 self.c_str());
    return 1;
  }
  const auto report = hook::setUp(action, agents, {.home = *home, .bridge = bridge.string(), .hook = self.string()},
                                  dryRun);
  for (const auto& line : report.lines) std::printf("%s\n", line.c_str());
  for (const auto& note : report.notes) std::printf("%s\n", note.c_str());
  if (action == hook::SetupAction::install && !dryRun && !report.failed)
    std::printf("Start a new session of the agent to use Quillon; quillon-hook uninstall --agent %s takes it out.\n",
                agent.c_str());
  return report.failed ? 1 : 0;
}

}  // namespace

int main(int argc, char** argv) {
  std::string command, agent;
  bool dryRun = false;
  for (int i = 1; i < argc; ++i) {
    const std::string argument = argv[i];
    if (argument == "--version") {
      std::printf("quillon-hook %s\n", wire::ClientVersion::current().c_str());
      return 0;
    }
    if (argument == "--help" || argument == "-h") {
      std::fputs(kUsage, stdout);
      return 0;
    }
    if (argument == "--dry-run") {
      dryRun = true;
    } else if (argument == "--agent" && i + 1 < argc) {
      agent = argv[++i];
    } else if (argument.starts_with("--agent=")) {
      agent = argument.substr(8);
    } else if (command.empty()) {
      command = argument;
    }
  }
  if (command == "prompt" || command == "session-start") return runLane(command, agent);
  if (command == "install") return runSetup(hook::SetupAction::install, agent, dryRun);
  if (command == "uninstall") return runSetup(hook::SetupAction::uninstall, agent, dryRun);
  std::fputs(kUsage, command.empty() ? stdout : stderr);
  return command.empty() ? 0 : 2;
}
