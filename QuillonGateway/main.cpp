// quillon-gateway: the development gateway for Linux. It serves the door's service with an
// embedded store, in the foreground, until SIGTERM or SIGINT.
#include <malloc.h>
#include <signal.h>
#include <sys/stat.h>
#include <unistd.h>

#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <optional>
#include <string>

#include "QuillonBase/Process.hpp"
#include "QuillonGateway/GatewayDaemon.hpp"
#include "QuillonGateway/StoreTools.hpp"
#include "QuillonKit/DoorNamespace.hpp"
#include "QuillonWire/ClientVersion.hpp"

namespace {

constexpr const char* kUsage =
    "usage: quillon-gateway [--verbose] [--idle-seconds N] | --paths | --version | --help\n"
    "       quillon-gateway status | export [FILE] [--force] | import FILE [--dry-run] | backup FILE [--force]\n"
    "Serves the Quillon door for quillon-mcp on this machine, with its store under\n"
    "$XDG_DATA_HOME/quillon (default ~/.local/share/quillon). Runs in the foreground;\n"
    "SIGTERM or Ctrl-C stops it. It logs to gateway.log there, or under systemd to the\n"
    "journal. --verbose adds a line per request (verb, answer, milliseconds) and copies\n"
    "the log to standard error.\n"
    "--idle-seconds closes a connection silent for N seconds (default 300).\n"
    "--paths prints where this gateway would serve and keep its files, as shell\n"
    "assignments (for eval), and exits.\n"
    "status says whether a gateway serves this user (exit 3 when none does) and what\n"
    "the store holds. export writes every memory, folder mapping and name as JSON Lines\n"
    "to FILE or standard output; import adds those of an export the store lacks\n"
    "(--dry-run only says what it would add). backup copies the store, checked, to\n"
    "FILE. Each works while a gateway runs, and --force lets a FILE be replaced.\n";

// A value a POSIX shell reads back as exactly these bytes.
std::string shellQuoted(const std::string& text) {
  std::string quoted = "'";
  for (const char c : text) quoted += c == '\'' ? std::string("'\\''") : std::string(1, c);
  return quoted + "'";
}

// The scripts that start, stop and demonstrate the gateway ask it where things are, so the rule
// that places the door lives in one place and a script can never look in another folder.
void printPaths(const quillon::gateway::DaemonSettings& settings) {
  const auto socket = quillon::kit::DoorNamespace::servicePath(settings.namespaceFolder, settings.serviceName);
  const std::pair<const char*, std::string> paths[] = {
      {"quillon_service", settings.serviceName},
      {"quillon_door", settings.namespaceFolder},
      {"quillon_socket", socket.value_or(settings.namespaceFolder + "/" + settings.serviceName)},
      {"quillon_data", settings.dataFolder},
      {"quillon_store", settings.storePath()},
      {"quillon_log", settings.logPath()},
      {"quillon_diagnostics", settings.diagnosticLogPath()},
      {"quillon_runbooks", settings.runbooksFolder()},
  };
  for (const auto& [name, value] : paths) std::printf("%s=%s\n", name, shellQuoted(value).c_str());
}

// Whether standard error is systemd's journal: JOURNAL_STREAM names the device and inode of the
// stream systemd connected, and only that stream (not one a child redirected) counts.
bool underJournal() {
  const auto stream = quillon::base::environmentVariable("JOURNAL_STREAM");
  unsigned long long device = 0, inode = 0;
  if (!stream || std::sscanf(stream->c_str(), "%llu:%llu", &device, &inode) != 2) return false;
  struct stat facts {};
  return ::fstat(STDERR_FILENO, &facts) == 0 && facts.st_dev == device && facts.st_ino == inode;
}

}  // namespace

int main(int argc, char** argv) {
  // The store's tools run and exit before anything a serving gateway sets up.
  if (const auto tool = quillon::gateway::StoreTools::run(argc, argv)) return *tool;
  bool verbose = false;
  std::optional<long> idleSeconds;
  for (int i = 1; i < argc; ++i) {
    if (std::strcmp(argv[i], "--verbose") == 0) {
      verbose = true;
    } else if (std::strcmp(argv[i], "--idle-seconds") == 0 && i + 1 < argc) {
      char* end = nullptr;
      idleSeconds = std::strtol(argv[++i], &end, 10);
      if (*end != '\0' || *idleSeconds < 1 || *idleSeconds > 24L * 3600) {
        std::fprintf(stderr, "quillon-gateway: --idle-seconds takes a whole number of seconds from 1 to 86400\n");
        return 2;
      }
    } else if (std::strcmp(argv[i], "--help") == 0 || std::strcmp(argv[i], "-h") == 0) {
      std::fputs(kUsage, stdout);
      return 0;
    } else if (std::strcmp(argv[i], "--version") == 0) {
      std::printf("quillon-gateway %s\n", quillon::wire::ClientVersion::current().c_str());
      return 0;
    } else if (std::strcmp(argv[i], "--paths") == 0) {
      printPaths(quillon::gateway::DaemonSettings::fromEnvironment(quillon::kit::processEnvironment()));
      return 0;
    } else {
      std::fprintf(stderr, "quillon-gateway: unknown argument '%s'\n%s", argv[i], kUsage);
      return 2;
    }
  }

  // A fixed threshold keeps large buffers (a big request's line) in their own mappings, given back
  // whole when freed. glibc otherwise raises both thresholds after the first large free, and a
  // connection thread's heap then keeps a big request's memory for the life of the process.
  ::mallopt(M_MMAP_THRESHOLD, 1 << 20);
  // Everything the gateway creates (store, logs, socket) is the user's alone.
  ::umask(077);
  ::signal(SIGPIPE, SIG_IGN);
  // Taken by the daemon's signal descriptor alone: no serving thread is ever interrupted.
  sigset_t stopSignals;
  sigemptyset(&stopSignals);
  sigaddset(&stopSignals, SIGTERM);
  sigaddset(&stopSignals, SIGINT);
  ::pthread_sigmask(SIG_BLOCK, &stopSignals, nullptr);

  auto settings = quillon::gateway::DaemonSettings::fromEnvironment(quillon::kit::processEnvironment());
  settings.journal = underJournal();
  settings.echoLog = verbose && !settings.journal;
  settings.logRequests = verbose;
  if (idleSeconds) settings.idleClose = std::chrono::seconds(*idleSeconds);
  auto started = quillon::gateway::GatewayDaemon::start(settings);
  if (auto* refusal = std::get_if<std::string>(&started)) {
    std::fprintf(stderr, "quillon-gateway: %s\n", refusal->c_str());
    return 1;
  }
  auto& daemon = *std::get<0>(started);
  // Said only to a person watching: under systemd or in the background, the log file has it.
  if (::isatty(STDERR_FILENO) != 0 && !verbose)
    std::fprintf(stderr, "quillon-gateway: serving %s\n  store %s\n  log   %s\n", daemon.socketPath().c_str(),
                 daemon.storePath().c_str(), daemon.logPath().c_str());
  daemon.serve();
  // Connections still busy past the stop's grace hold only what the process's end frees.
  std::fflush(nullptr);
  ::_exit(0);
}
