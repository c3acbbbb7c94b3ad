// GatewayStatus: what `quillon-gateway status` tells a person: whether a gateway serves this
// user's door (its pid, version and uptime), and what the store holds.
//
// A running gateway holds an exclusive flock on `<socket>.lock` and has written its facts there
// ("pid=1234 version=0.3.0 started=1795262400"). The look tries a shared, non-blocking flock (a
// refusal means a gateway holds the lock) and knocks at the socket to see that it answers. The
// store is opened read-only, so looking never creates, migrates or changes it. Nothing here
// throws; what cannot be read is said in the report.
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <utility>
#include <vector>

#include "QuillonGateway/GatewayDaemon.hpp"

namespace quillon::gateway {

// The facts a running gateway keeps in its lock file, as one line.
struct GatewayFacts {
  std::optional<long> pid;
  std::optional<std::string> version;
  std::optional<double> started;  // seconds since the epoch

  std::string line() const;
  static GatewayFacts parse(const std::string& text);
};

struct GatewayStatus {
  std::string serviceName, socketPath, lockPath;
  bool locked = false;              // a gateway holds the lock
  std::optional<std::string> silence;  // why the socket did not answer the knock; nothing when it did
  std::optional<std::string> doorProblem;  // why the door's folder, which exists, cannot be trusted
  GatewayFacts facts;

  std::string storePath;
  bool storeExists = false;
  std::optional<std::string> storeProblem;
  std::uint64_t storeBytes = 0;  // the store and its WAL
  int schema = 0;
  std::vector<std::pair<std::string, std::int64_t>> types;  // most used first
  std::int64_t memories = 0, scopes = 0, folders = 0;

  static GatewayStatus look(const DaemonSettings& settings);

  bool serving() const { return !silence.has_value(); }
  // 0 when a gateway answers, 3 when none runs (as `systemctl status`), 1 when one holds the
  // door but does not answer.
  int exitCode() const;
  // The report for a person; `home` is shown as "~", `now` dates the uptime, `ownVersion` is this
  // program's, named when the running gateway's differs.
  std::string report(const std::string& home, double now, const std::string& ownVersion) const;
};

}  // namespace quillon::gateway
