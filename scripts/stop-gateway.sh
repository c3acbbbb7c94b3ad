#!/usr/bin/env bash
# Stops the gateway that serves this user's door (the one `make start` started, or one started by
# hand) with SIGTERM, and waits until it has removed its socket and exited. The gateway built in
# the build folder says where that door is.
# Usage: scripts/stop-gateway.sh [build-dir]   (default: build)
set -euo pipefail
cd "$(dirname "$0")/.."
build="${1:-build}"
. scripts/gateway-paths.sh

# Nothing built here has started a gateway either.
if [ ! -x "$build/bin/quillon-gateway" ]; then
  echo "The Quillon gateway is not running."
  exit 0
fi
quillon_paths "$build" || exit 1

if ! pid="$(quillon_gateway_pid)"; then
  rm -f "$quillon_pidfile"
  if [ -S "$quillon_socket" ]; then
    echo "No gateway started here was found, but $quillon_socket exists; a gateway run by systemd stops with" \
         "'systemctl --user stop quillon-gateway'." >&2
    exit 1
  fi
  echo "The Quillon gateway is not running."
  exit 0
fi

kill -TERM "$pid"
# It finishes the requests it is serving (at most a few seconds) before it exits.
for _ in $(seq 1 300); do
  quillon_is_gateway "$pid" || break
  sleep 0.05
done
if quillon_is_gateway "$pid"; then
  echo "The Quillon gateway (pid $pid) has not exited yet; see $quillon_log." >&2
  exit 1
fi
rm -f "$quillon_pidfile"
echo "Stopped the Quillon gateway (pid $pid)."
