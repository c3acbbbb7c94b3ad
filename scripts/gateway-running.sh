#!/usr/bin/env bash
# Says whether a gateway serves this user's door, as the gateway built in the build folder places
# it: silent with status 0 when one does, else what to run, with status 1. `make demo` asks first,
# so that a stopped gateway reads as that rather than as the bridge's error answers.
# Usage: scripts/gateway-running.sh [build-dir]   (default: build)
set -euo pipefail
cd "$(dirname "$0")/.."
build="${1:-build}"
. scripts/gateway-paths.sh

start="'./quillon start' (or 'make start')"
[ "$build" = build ] || start="'make start BUILD=$build'"
if [ ! -x "$build/bin/quillon-mcp" ] || [ ! -x "$build/bin/quillon-gateway" ]; then
  echo "The bridge and the gateway are not built in $build/: run $start first." >&2
  exit 1
fi
quillon_paths "$build" || exit 1
# The socket is there exactly while a gateway serves: it removes the socket when it stops. One
# that was killed outright leaves it behind, and then the demo shows the bridge's own answer.
if [ ! -S "$quillon_socket" ]; then
  echo "The Quillon gateway is not running (no $quillon_socket): run $start first." >&2
  exit 1
fi
