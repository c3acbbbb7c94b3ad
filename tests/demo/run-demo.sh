#!/usr/bin/env bash
# The README's path, proven: a private gateway started as `make start` starts one, the demo
# driven through the built bridge against it, then a SIGTERM stop that leaves no socket behind.
# Everything lives in a fresh temporary folder, so the user's own gateway and store are untouched.
# Usage: run-demo.sh <quillon-gateway> <quillon-mcp> <demo.mjs> [node]
set -euo pipefail
gateway="$1" bridge="$2" demo="$3" node="${4:-node}"

work="$(mktemp -d "${TMPDIR:-/tmp}/quillon-demo.XXXXXX")"
gateway_pid=""
cleanup() {
  if [ -n "$gateway_pid" ] && kill -0 "$gateway_pid" 2>/dev/null; then
    kill -TERM "$gateway_pid" 2>/dev/null || true
    wait "$gateway_pid" 2>/dev/null || true
  fi
  rm -rf "$work"
}
trap cleanup EXIT

mkdir -m 700 "$work/run"
export XDG_RUNTIME_DIR="$work/run" XDG_DATA_HOME="$work/data"
export QUILLON_MCP_GATEWAY_FOR_TESTS="example.fernhollow.quillon.test.demo-$$"
socket="$XDG_RUNTIME_DIR/quillon/$QUILLON_MCP_GATEWAY_FOR_TESTS"

fail() {
  echo "run-demo: $*" >&2
  for log in "$XDG_DATA_HOME/quillon/gateway.log" "$work/gateway.stderr"; do
    [ -s "$log" ] && { echo "--- $log" >&2; cat "$log" >&2; }
  done
  exit 1
}

"$gateway" </dev/null >/dev/null 2>"$work/gateway.stderr" &
gateway_pid=$!
# The socket appears once the gateway listens; a gateway that cannot start exits instead. No
# clock decides the outcome: the loop ends on one of the two.
until [ -S "$socket" ]; do
  kill -0 "$gateway_pid" 2>/dev/null || fail "the gateway exited before it opened $socket"
  sleep 0.05
done

"$node" "$demo" "$bridge" || fail "the demo failed"

kill -TERM "$gateway_pid"
status=0
wait "$gateway_pid" || status=$?
gateway_pid=""
[ "$status" -eq 0 ] || fail "the gateway exited with status $status on SIGTERM"
[ ! -e "$socket" ] || fail "the gateway left its socket $socket behind"
echo "run-demo: passed"
