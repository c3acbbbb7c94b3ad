// GatewayDaemon: the development gateway's process: it claims the service's socket in the door's
// namespace folder, serves every bridge that connects, and stops cleanly on SIGTERM or SIGINT.
//
// Start-up refuses (with a reason for the person who started it) when the data folder or the store
// cannot be used, when the namespace folder fails the door's check, or when a live gateway already
// serves the name; a socket file left by a gateway that died is replaced. Each accepted peer of
// this user gets its own thread and its own store connection, so a slow request on one bridge
// holds up no other beyond SQLite's write lock; replies carry the request's id. Peers of another
// uid are closed at once, unanswered. Logs go to "gateway.log" under the data folder (bounded),
// and to standard error when `echoLog` asks for it; under systemd (`journal`) to standard error
// alone, for the journal.
//
// The gateway outlives its limits rather than dying of them: a peer it cannot take (512 already
// served, no thread to be had) is answered a `failure` that says so; running out of file
// descriptors sheds new peers with a clean close; a line too long or too costly to parse is
// refused alone; a connection silent for `idleClose` is closed (its bridge dials again).
#pragma once

#include <chrono>
#include <memory>
#include <string>
#include <variant>

#include "QuillonKit/Environment.hpp"

namespace quillon::gateway {

struct DaemonSettings {
  std::string serviceName;      // the door's service name
  std::string namespaceFolder;  // where the service's socket lives
  std::string dataFolder;       // the store, the logs
  bool echoLog = false;      // copy the log to standard error for someone watching
  bool journal = false;      // log to standard error only, where systemd's journal reads it
  bool logRequests = false;  // one log line per request: the verb, how long it took, the answer's kind
  // A connection that sends nothing for this long is closed, so forgotten bridges cannot hold
  // every place; a bridge dials again on its next request.
  std::chrono::milliseconds idleClose = std::chrono::minutes(5);

  // The service from QUILLON_MCP_GATEWAY_FOR_TESTS exactly as the bridge resolves it, the door's
  // folder from XDG_RUNTIME_DIR, the data folder $XDG_DATA_HOME/quillon (an absolute
  // XDG_DATA_HOME), else $HOME/.local/share/quillon.
  static DaemonSettings fromEnvironment(const kit::Environment& environment);

  // The files kept in the data folder.
  std::string storePath() const { return dataFolder + "/store.db"; }
  std::string logPath() const { return dataFolder + "/gateway.log"; }
  std::string diagnosticLogPath() const { return dataFolder + "/diagnostic.log"; }
  // Where the bridges send the model for the runbooks: the same rule puts it beside the store.
  std::string runbooksFolder() const { return dataFolder + "/runbooks"; }
};

class GatewayDaemon {
 public:
  // Claims the service, or says why it cannot. The caller must have blocked SIGTERM and SIGINT in
  // every thread before calling, so that serve() alone takes them.
  static std::variant<std::unique_ptr<GatewayDaemon>, std::string> start(const DaemonSettings& settings);
  ~GatewayDaemon();
  GatewayDaemon(const GatewayDaemon&) = delete;
  GatewayDaemon& operator=(const GatewayDaemon&) = delete;

  // Serves until SIGTERM or SIGINT, then stops accepting, removes the socket, ends every
  // connection after the request it is serving, and returns.
  void serve();

  const std::string& socketPath() const;
  const std::string& storePath() const;
  const std::string& logPath() const;

 private:
  struct State;
  explicit GatewayDaemon(std::shared_ptr<State> state);
  std::shared_ptr<State> state_;
};

}  // namespace quillon::gateway
